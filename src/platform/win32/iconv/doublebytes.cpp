// Charsets of one and two bytes, which the system has, and EUC-JP.

#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/systempage.h"

namespace Platform {

namespace {

class DoubleBytes : public CharsetCodec {
public:
    explicit DoubleBytes(const DoubleByteTable& table) : m_table(table) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        character = text[0];
        if (character < 0x80)
            return 1;
        character = m_table.Decode(text[0]);
        if (character != 0)
            return 1;
        if (length < 2)
            return Short;
        character = m_table.Decode(text[0], text[1]);
        return character != 0 ? 2 : Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        const unsigned int code = character < 0x80 ? character : m_table.Encode(character);
        if (code == 0 && character != 0)
            return Invalid;
        const unsigned char bytes[] = {static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code)};
        return code > 0xFF ? Put(bytes, 2, room, size) : Put(bytes + 1, 1, room, size);
    }
    int AsciiUnit() const override { return 1; }

private:
    const DoubleByteTable& m_table;
};

/// EUC-JP in the bytes of its own form: the system's page 20932 has the second set of three bytes in two.
class EucJp : public CharsetCodec {
public:
    explicit EucJp(const DoubleByteTable& table) : m_table(table) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const unsigned char first = text[0];
        character = first;
        if (first < 0x80)
            return 1;
        if (first != SingleShift2 && first != SingleShift3 && !IsOfSet(first))
            return Invalid;
        const std::size_t count = first == SingleShift3 ? 3 : 2;
        for (std::size_t i = 1; i < count; ++i) {
            if (i == length)
                return Short;
            if (!IsOfSet(text[i]))
                return Invalid;
        }
        if (first == SingleShift2)
            character = text[1] <= 0xDF ? FirstKana + (text[1] - 0xA1U) : 0;
        else if (first == SingleShift3)
            character = m_table.Decode(text[1], text[2] & 0x7F);
        else
            character = m_table.Decode(first, text[1]);
        return character != 0 ? static_cast<int>(count) : Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char bytes[3] = {static_cast<unsigned char>(character)};
        if (character < 0x80)
            return Put(bytes, 1, room, size);
        if (character >= FirstKana && character <= LastKana) {
            bytes[0] = SingleShift2;
            bytes[1] = static_cast<unsigned char>(character - FirstKana + 0xA1);
            return Put(bytes, 2, room, size);
        }
        const unsigned int code = m_table.Encode(character);
        if (code <= 0xFF)
            return Invalid;
        const bool isSecondSet = (code & 0x80) == 0;
        bytes[0] = SingleShift3;
        bytes[1] = static_cast<unsigned char>(code >> 8);
        bytes[2] = static_cast<unsigned char>(code | 0x80);
        return isSecondSet ? Put(bytes, 3, room, size) : Put(bytes + 1, 2, room, size);
    }
    int AsciiUnit() const override { return 1; }

private:
    static constexpr unsigned char SingleShift2 = 0x8E; // half-width katakana follow
    static constexpr unsigned char SingleShift3 = 0x8F;
    static constexpr char32_t FirstKana = 0xFF61;
    static constexpr char32_t LastKana = 0xFF9F;

    static bool IsOfSet(unsigned char byte) { return byte >= 0xA1 && byte <= 0xFE; }

    const DoubleByteTable& m_table;
};

template <class Codec>
std::unique_ptr<CharsetCodec> MakeOver(unsigned int codePage) {
    const DoubleByteTable* const table = DoubleByteTable::Of(codePage);
    return table != nullptr ? std::make_unique<Codec>(*table) : nullptr;
}

} // namespace

std::unique_ptr<CharsetCodec> MakeDoubleBytes(unsigned int codePage) {
    return MakeOver<DoubleBytes>(codePage);
}

std::unique_ptr<CharsetCodec> MakeEucJp() {
    return MakeOver<EucJp>(20932);
}

} // namespace Platform
