#include "platform/win32/iconv/codecs.h"

namespace Platform {

namespace {

constexpr char32_t ByteOrderMark = 0xFEFF;

class Utf8 : public CharsetCodec {
public:
    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const unsigned char first = text[0];
        if (first < 0x80) {
            character = first;
            return 1;
        }
        const int size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        if (first < 0xC2 || first > 0xF4)
            return Invalid;
        character = first & (0x7FU >> size);
        for (int i = 1; i < size; ++i) {
            if (static_cast<std::size_t>(i) == length)
                return Short;
            if ((text[i] & 0xC0) != 0x80)
                return Invalid;
            character = character << 6 | (text[i] & 0x3FU);
        }
        constexpr char32_t Least[] = {0, 0, 0x80, 0x800, 0x10000};
        return character < Least[size] || IsSurrogate(character) || character > LastCharacter ? Invalid : size;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        if (IsSurrogate(character) || character > LastCharacter)
            return Invalid;
        const int count = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
        if (size < static_cast<std::size_t>(count))
            return Short;
        for (int i = count - 1; i > 0; --i) {
            room[i] = static_cast<unsigned char>(0x80 | (character & 0x3F));
            character >>= 6;
        }
        constexpr unsigned char Lead[] = {0, 0, 0xC0, 0xE0, 0xF0};
        room[0] = static_cast<unsigned char>(Lead[count] | character);
        return count;
    }
    int AsciiUnit() const override { return 1; }
};

/// Units of two or four bytes in either order.
class Units : public CharsetCodec {
public:
    enum class Mark { Text, Read, ReadAndWritten }; ///< what becomes of a byte-order mark at the start

    Units(int size, bool isBig, bool hasPairs, Mark mark)
        : m_size(size), m_startsBig(isBig), m_hasPairs(hasPairs), m_mark(mark), m_isBig(isBig) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        int skipped = 0;
        if (m_isAtStart && m_mark != Mark::Text) {
            if (length < static_cast<std::size_t>(m_size))
                return Short;
            const char32_t first = Unit(text, m_isBig);
            const char32_t other = Unit(text, !m_isBig);
            if (first == ByteOrderMark || other == ByteOrderMark) {
                m_isBig = m_isBig != (other == ByteOrderMark);
                skipped = m_size;
            }
            m_isAtStart = false;
            if (skipped != 0) {
                character = NoCharacter;
                return skipped;
            }
        }
        if (length < static_cast<std::size_t>(m_size))
            return Short;
        character = Unit(text, m_isBig);
        if (m_hasPairs && character >= 0xD800 && character < 0xDC00) {
            if (length < 4)
                return Short;
            const char32_t low = Unit(text + 2, m_isBig);
            if (low < 0xDC00 || low > 0xDFFF)
                return Invalid;
            character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
            return 4;
        }
        return IsSurrogate(character) || character > LastCharacter ? Invalid : m_size;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        const bool isPair = m_size == 2 && character > 0xFFFF;
        if (IsSurrogate(character) || character > LastCharacter || (isPair && !m_hasPairs))
            return Invalid;
        const bool writesMark = m_isAtStart && m_mark == Mark::ReadAndWritten;
        const int count = (writesMark ? m_size : 0) + (isPair ? 4 : m_size);
        if (size < static_cast<std::size_t>(count))
            return Short;
        m_isAtStart = false;
        if (writesMark) {
            PutUnit(ByteOrderMark, room);
            room += m_size;
        }
        if (isPair) {
            PutUnit(0xD800 + ((character - 0x10000) >> 10), room);
            PutUnit(0xDC00 + ((character - 0x10000) & 0x3FF), room + 2);
        } else {
            PutUnit(character, room);
        }
        return count;
    }
    int AsciiUnit() const override { return m_isBig || (m_isAtStart && m_mark != Mark::Text) ? 0 : m_size; }
    void Reset() override {
        m_isAtStart = true;
        m_isBig = m_startsBig;
    }

private:
    char32_t Unit(const unsigned char* text, bool isBig) const {
        if (m_size == 2)
            return static_cast<char32_t>(isBig ? text[0] << 8 | text[1] : text[1] << 8 | text[0]);
        char32_t unit = 0;
        for (int i = 0; i < 4; ++i)
            unit = unit << 8 | text[isBig ? i : 3 - i];
        return unit;
    }
    void PutUnit(char32_t unit, unsigned char* room) const {
        if (m_size == 2) {
            room[m_isBig ? 1 : 0] = static_cast<unsigned char>(unit);
            room[m_isBig ? 0 : 1] = static_cast<unsigned char>(unit >> 8);
            return;
        }
        for (int i = 0; i < 4; ++i)
            room[m_isBig ? 3 - i : i] = static_cast<unsigned char>(unit >> 8 * i);
    }

    int m_size;
    bool m_startsBig;
    bool m_hasPairs;
    Mark m_mark;
    bool m_isBig;
    bool m_isAtStart = true;
};

} // namespace

std::unique_ptr<CharsetCodec> MakeUnicode(std::string_view name) {
    if (name == "UTF-8" || name == "UTF8")
        return std::make_unique<Utf8>();
    using Mark = Units::Mark;
    static constexpr struct {
        std::string_view name;
        int size;
        bool isBig;
        bool hasPairs;
        Mark mark;
    } Forms[] = {
        {"UTF-16LE", 2, false, true, Mark::Text},
        {"UTF-16BE", 2, true, true, Mark::Text},
        {"UCS-2LE", 2, false, false, Mark::Text},
        {"UCS-2BE", 2, true, false, Mark::Text},
        {"UTF-32LE", 4, false, false, Mark::Text},
        {"UTF-32BE", 4, true, false, Mark::Text},
        {"UCS-4LE", 4, false, false, Mark::Text},
        {"UCS-4BE", 4, true, false, Mark::Text},
        {"UTF-16", 2, false, true, Mark::ReadAndWritten},
        {"UTF16", 2, false, true, Mark::ReadAndWritten},
        {"UTF-32", 4, false, false, Mark::ReadAndWritten},
        {"UTF32", 4, false, false, Mark::ReadAndWritten},
        {"UCS-2", 2, false, false, Mark::Read},
        {"UCS2", 2, false, false, Mark::Read},
        {"ISO-10646-UCS-2", 2, false, false, Mark::Read},
        {"UCS-4", 4, true, false, Mark::Read},
        {"UCS4", 4, true, false, Mark::Read},
        {"ISO-10646-UCS-4", 4, true, false, Mark::Read},
    };
    for (const auto& form : Forms) {
        if (form.name == name)
            return std::make_unique<Units>(form.size, form.isBig, form.hasPairs, form.mark);
    }
    return nullptr;
}

} // namespace Platform
