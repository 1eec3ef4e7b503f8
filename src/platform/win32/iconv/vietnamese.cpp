// The charsets of Vietnam whose letters are followed by their tones: windows-1258 and TCVN 5712.

#include <algorithm>
#include <array>
#include <vector>

#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/singlebytetable.h"
#include "platform/win32/iconv/systempage.h"
#include "platform/win32/system.h"

namespace Platform {

namespace {

constexpr std::size_t ToneCount = 5;
constexpr char32_t Tones[ToneCount] = {0x300, 0x301, 0x303, 0x309, 0x323};

struct Letter {
    char16_t composed;
    unsigned char base;
    unsigned char tone;

    bool operator<(const Letter& other) const { return composed < other.composed; }
};

struct Table {
    SingleByteTable bytes;
    std::array<unsigned char, ToneCount> tones = {};
    std::array<std::array<char16_t, ToneCount>, 256> composed = {}; // 0: the two stay apart
    std::array<bool, 256> isBase = {};
    std::vector<Letter> letters;

    explicit Table(const SingleByteTable& itsBytes) : bytes(itsBytes) {
        for (std::size_t i = 0; i < ToneCount; ++i)
            bytes.Encode(Tones[i], tones[i]);
        for (std::size_t base = 0; base < 256; ++base) {
            const auto first = static_cast<unsigned char>(base);
            if (bytes.Decode(first) == NoCharacter)
                continue;
            for (std::size_t i = 0; i < ToneCount; ++i) {
                const wchar_t pair[] = {static_cast<wchar_t>(bytes.Decode(first)), static_cast<wchar_t>(Tones[i])};
                wchar_t units[4] = {};
                if (FoldStringW(MAP_PRECOMPOSED, pair, 2, units, 4) != 1)
                    continue;
                composed[base][i] = units[0];
                isBase[base] = true;
                letters.push_back({static_cast<char16_t>(units[0]), first, tones[i]});
            }
        }
        std::sort(letters.begin(), letters.end());
    }
    char32_t Compose(unsigned char base, unsigned char tone) const {
        for (std::size_t i = 0; i < ToneCount; ++i) {
            if (tones[i] == tone && composed[base][i] != 0)
                return composed[base][i];
        }
        return NoCharacter;
    }
};

class Vietnamese : public CharsetCodec {
public:
    explicit Vietnamese(const Table& table) : m_table(table) {}

    int Decode(const unsigned char* text, std::size_t, char32_t& character) override {
        const unsigned char byte = text[0];
        m_next = Nothing;
        if (m_table.bytes.Decode(byte) == NoCharacter)
            return Invalid;
        if (m_base != Nothing) {
            const auto base = static_cast<unsigned char>(m_base);
            character = m_table.Compose(base, byte);
            if (character == NoCharacter) {
                character = m_table.bytes.Decode(base);
                m_next = byte;
            }
            return 1;
        }
        character = m_table.bytes.Decode(byte);
        if (m_table.isBase[byte]) {
            character = NoCharacter;
            m_next = byte;
        }
        return 1;
    }
    void Accept() override { m_base = m_next; }
    char32_t Held() const override {
        return m_base != Nothing ? m_table.bytes.Decode(static_cast<unsigned char>(m_base)) : NoCharacter;
    }

    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char bytes[2] = {};
        if (m_table.bytes.Encode(character, bytes[0]))
            return Put(bytes, 1, room, size);
        const Letter wanted = {static_cast<char16_t>(character), 0, 0};
        const auto found = std::lower_bound(m_table.letters.begin(), m_table.letters.end(), wanted);
        if (found == m_table.letters.end() || found->composed != character)
            return Invalid;
        bytes[0] = found->base;
        bytes[1] = found->tone;
        return Put(bytes, 2, room, size);
    }
    void Reset() override { m_base = Nothing; }

private:
    static constexpr int Nothing = -1;

    const Table& m_table;
    int m_base = Nothing; // the byte that waits for a tone
    int m_next = Nothing;
};

} // namespace

// The tables outlive whoever still converts while the program ends.
std::unique_ptr<CharsetCodec> MakeVietnamese() {
    if (IsValidCodePage(1258) == 0)
        return nullptr;
    static const Table& s_table = *new Table(SingleByteTable::OfPage(1258));
    return std::make_unique<Vietnamese>(s_table);
}

std::unique_ptr<CharsetCodec> MakeTcvn(const SingleByteTable& bytes) {
    static const Table& s_table = *new Table(bytes);
    return std::make_unique<Vietnamese>(s_table);
}

} // namespace Platform
