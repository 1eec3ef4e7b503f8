// UTF-7: ASCII, and the other characters' units of UTF-16 in base64.

#include <array>

#include "platform/win32/iconv/codecs.h"

namespace Platform {

namespace {

/// What one of the two forms has.
struct Form {
    char start;                 // of base64; alone, with '-' behind it, it stands for itself
    char last;                  // the 64th digit
    bool alwaysEnds;            // base64 ends with '-' whatever follows
    std::string_view optional;  // marks that are read as they are and written in base64
    std::string_view forbidden; // printable ones that are not read as they are
    std::string_view controls;  // that stand for themselves
};

constexpr Form Plain = {'+', '/', false, "!\"#$%&*;<=>@[]^_`{|}", "\\~", " \t\n\r"};
constexpr Form Imap = {'&', ',', true, "", "", " "};

constexpr std::string_view Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+";

bool Holds(std::string_view set, char character) {
    return set.find(character) != std::string_view::npos;
}

class Utf7 : public CharsetCodec {
public:
    explicit Utf7(const Form& form) : m_form(form) {
        m_values.fill(-1);
        for (std::size_t i = 0; i < Digits.size(); ++i)
            m_values[static_cast<unsigned char>(Digits[i])] = static_cast<int>(i);
        m_values[static_cast<unsigned char>(form.last)] = 63;
    }

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const auto byte = static_cast<char>(text[0]);
        m_next = m_state;
        character = NoCharacter;
        if (text[0] >= 0x80)
            return Invalid;
        if (m_state.isBase64)
            return DecodeBase64(byte, character) ? 1 : Invalid;
        if (byte == m_form.start) {
            if (length < 2)
                return Short;
            m_next = State();
            m_next.isBase64 = m_next.isFresh = true;
            return 1;
        }
        character = text[0];
        return IsDirect(byte) || Holds(m_form.optional, byte) ? 1 : Invalid;
    }
    void Accept() override { m_state = m_next; }

    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        if (IsSurrogate(character) || character > LastCharacter)
            return Invalid;
        unsigned char bytes[8];
        std::size_t count = 0;
        State next = m_state;
        const auto ascii = static_cast<char>(character < 0x80 ? character : 0);
        const bool isStart = ascii == m_form.start && (m_form.alwaysEnds || !m_state.isBase64);
        if (isStart || (ascii != '\0' && IsDirect(ascii))) {
            if (m_state.isBase64) {
                count += FlushDigit(next, bytes + count);
                if (m_form.alwaysEnds || m_values[character] >= 0 || ascii == '-')
                    bytes[count++] = '-';
            }
            next = State();
            bytes[count++] = static_cast<unsigned char>(character);
            if (isStart)
                bytes[count++] = '-';
        } else {
            if (!m_state.isBase64)
                bytes[count++] = static_cast<unsigned char>(m_form.start);
            next.isBase64 = true;
            if (character > 0xFFFF) {
                count += PutUnit(next, 0xD800 + ((character - 0x10000) >> 10), bytes + count);
                character = 0xDC00 + (character & 0x3FF);
            }
            count += PutUnit(next, character, bytes + count);
        }
        const int result = Put(bytes, count, room, size);
        if (result > 0)
            m_state = next;
        return result;
    }
    int Finish(unsigned char* room, std::size_t size) override {
        if (!m_state.isBase64)
            return 0;
        unsigned char bytes[2];
        State next = m_state;
        std::size_t count = FlushDigit(next, bytes);
        bytes[count++] = '-';
        return size < count ? Invalid : Put(bytes, count, room, size);
    }
    void Reset() override { m_state = State(); }

private:
    struct State {
        bool isBase64 = false;
        bool isFresh = false;   // its start is all that was read
        unsigned int bits = 0;  // that wait for the rest of their unit or their digit
        unsigned int count = 0; // how many
        char32_t high = 0;      // half of a pair
    };

    bool IsDirect(char byte) const {
        if (byte == m_form.start)
            return false;
        return Holds(m_form.controls, byte) ||
               (byte > ' ' && byte < 0x7F && !Holds(m_form.optional, byte) && !Holds(m_form.forbidden, byte));
    }
    bool DecodeBase64(char byte, char32_t& character) {
        const int value = m_values[static_cast<unsigned char>(byte)];
        m_next.isFresh = false;
        if (value >= 0) {
            m_next.bits = (m_state.bits << 6 | static_cast<unsigned int>(value)) & 0x3FFFFF;
            m_next.count = m_state.count + 6;
            return m_next.count < 16 || TakeUnit(character);
        }
        if (m_form.alwaysEnds && byte != '-')
            return false;
        // What does not fill a unit must be zeros, and no whole digit.
        if (m_state.count >= 6 || (m_state.bits & ((1U << m_state.count) - 1)) != 0 || m_state.high != 0)
            return false;
        m_next = State();
        if (byte != '-') {
            character = static_cast<unsigned char>(byte);
            return IsDirect(byte) || Holds(m_form.optional, byte);
        }
        if (m_state.isFresh)
            character = static_cast<unsigned char>(m_form.start);
        return true;
    }
    bool TakeUnit(char32_t& character) {
        m_next.count -= 16;
        const char32_t unit = m_next.bits >> m_next.count & 0xFFFF;
        if (m_next.high != 0) {
            character = 0x10000 + ((m_next.high - 0xD800) << 10) + (unit - 0xDC00);
            m_next.high = 0;
            return unit >= 0xDC00 && unit <= 0xDFFF;
        }
        if (unit >= 0xD800 && unit < 0xDC00)
            m_next.high = unit;
        else
            character = unit;
        return !IsSurrogate(unit) || m_next.high != 0;
    }
    std::size_t PutUnit(State& state, char32_t unit, unsigned char* room) const {
        state.bits = (state.bits << 16 | unit) & 0x3FFFFF;
        state.count += 16;
        std::size_t count = 0;
        while (state.count >= 6) {
            state.count -= 6;
            room[count++] = Digit(state.bits >> state.count & 0x3F);
        }
        return count;
    }
    std::size_t FlushDigit(State& state, unsigned char* room) const {
        if (state.count == 0)
            return 0;
        *room = Digit(state.bits << (6 - state.count) & 0x3F);
        return 1;
    }
    unsigned char Digit(unsigned int value) const {
        return static_cast<unsigned char>(value < Digits.size() ? Digits[value] : m_form.last);
    }

    const Form& m_form;
    std::array<int, 0x80> m_values; // of the digits; -1 for others
    State m_state;
    State m_next;
};

} // namespace

std::unique_ptr<CharsetCodec> MakeUtf7(std::string_view name) {
    if (name == "UTF-7" || name == "UTF7" || name == "CP65000")
        return std::make_unique<Utf7>(Plain);
    return name == "UTF-7-IMAP" ? std::make_unique<Utf7>(Imap) : nullptr;
}

} // namespace Platform
