// Charsets that change between sets of seven bits by escape sequences: ISO-2022 for Japan and Korea, and HZ for China.
// The sets are the system's, in pages that have no states.

#include <optional>

#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/singlebytetable.h"
#include "platform/win32/iconv/systempage.h"

namespace Platform {

namespace {

using namespace std::string_view_literals;

enum class Set {
    Ascii,
    Roman,     // JIS X 0201, left
    Kana,      // the same, right
    Japanese,  // JIS X 0208
    Japanese2, // JIS X 0212
    Chinese,   // GB 2312
    Korean,    // KS X 1001
    Latin,     // ISO 8859-1 and -7, upper halves, for one character behind ESC N
    Greek,
    Same,  // a sequence without effect
    Tilde, // a sequence that is the character
};

struct Sequence {
    std::string_view bytes;
    Set set;
};

enum class LineEnd { Keeps, Refused, LeadsBack }; // what becomes of a set of two bytes

/// One of the charsets. A set is written by its first sequence; of several that have a character, the first.
struct Form {
    const Sequence* sequences;
    std::size_t count;
    std::string_view header; // of the whole text
    LineEnd lineEnd;
    bool hasShift; // ESC N
};

// The first four are those of the plain charset.
constexpr Sequence JapaneseSequences[] = {
    {"\x1B(B"sv, Set::Ascii},      {"\x1B(J"sv, Set::Roman}, {"\x1B$B"sv, Set::Japanese}, {"\x1B$@"sv, Set::Japanese},
    {"\x1B$(D"sv, Set::Japanese2}, {"\x1B.A"sv, Set::Latin}, {"\x1B.F"sv, Set::Greek},    {"\x1B$A"sv, Set::Chinese},
    {"\x1B$(C"sv, Set::Korean},    {"\x1B(I"sv, Set::Kana}};
constexpr Sequence KoreanSequences[] = {{"\x0F"sv, Set::Ascii}, {"\x0E"sv, Set::Korean}, {"\x1B$)C"sv, Set::Same}};
constexpr Sequence HzSequences[] = {
    {"~}"sv, Set::Ascii}, {"~{"sv, Set::Chinese}, {"~~"sv, Set::Tilde}, {"~\n"sv, Set::Same}};

constexpr Form IsoJapanese = {JapaneseSequences, 4, ""sv, LineEnd::Keeps, false};
constexpr Form IsoJapanese2 = {JapaneseSequences, std::size(JapaneseSequences), ""sv, LineEnd::Keeps, true};
constexpr Form IsoKorean = {KoreanSequences, std::size(KoreanSequences), "\x1B$)C"sv, LineEnd::Refused, false};
constexpr Form Hz = {HzSequences, std::size(HzSequences), ""sv, LineEnd::LeadsBack, false};

bool IsOfTwoBytes(Set set) {
    return set == Set::Japanese || set == Set::Japanese2 || set == Set::Chinese || set == Set::Korean;
}

// A sequence begins with nothing else.
bool MayStart(unsigned char byte) {
    return byte == 0x1B || byte == 0x0E || byte == 0x0F || byte == '~';
}

bool IsLineEnd(char32_t character) {
    return character == '\n' || character == '\r';
}

/// The characters of all sets.
class Sets {
public:
    /// False when the system lacks a page.
    bool Open(const Form& form) {
        bool isOpen = true;
        for (std::size_t i = 0; i < form.count && isOpen; ++i) {
            switch (form.sequences[i].set) {
            case Set::Japanese:
            case Set::Japanese2: isOpen = Open(m_japanese, 20932); break;
            case Set::Chinese: isOpen = Open(m_chinese, 936); break;
            case Set::Korean: isOpen = Open(m_korean, 949); break;
            case Set::Greek: m_greek.emplace(SingleByteTable::OfPage(28597)); break;
            default: break;
            }
        }
        return isOpen;
    }
    /// 0 for none.
    char32_t Decode(Set set, unsigned char byte) const {
        switch (set) {
        case Set::Roman: return byte == '\\' ? Yen : byte == '~' ? Overline : byte;
        case Set::Kana: return byte <= 0x20 ? byte : byte <= 0x5F ? FirstKana + byte - 0x21 : 0;
        case Set::Latin: return byte | 0x80U;
        case Set::Greek: {
            const char32_t character = m_greek->Decode(byte | 0x80);
            return character != NoCharacter ? character : 0;
        }
        default: return byte;
        }
    }
    char32_t Decode(Set set, unsigned char first, unsigned char second) const {
        const auto upper = static_cast<unsigned char>(first | 0x80);
        const auto upperSecond = static_cast<unsigned char>(second | 0x80);
        char32_t character = 0;
        switch (set) {
        case Set::Japanese: character = m_japanese->Decode(upper, upperSecond); break;
        case Set::Japanese2: character = m_japanese->Decode(upper, second); break;
        case Set::Chinese: character = DecodeChinese(upper, upperSecond); break;
        case Set::Korean: character = m_korean->Decode(upper, upperSecond); break;
        default: break;
        }
        return IsPrivate(character) ? 0 : character;
    }
    /// The byte or the two bytes of a character; 0 for none.
    unsigned int Encode(Set set, char32_t character) const {
        switch (set) {
        case Set::Ascii: return character < 0x80 ? character : 0;
        case Set::Roman:
            if (character == Yen || character == Overline)
                return character == Yen ? '\\' : '~';
            return character < 0x80 && character != '\\' && character != '~' ? character : 0;
        case Set::Kana: return character >= FirstKana && character <= LastKana ? character - FirstKana + 0x21 : 0;
        case Set::Latin: return character >= 0xA0 && character <= 0xFF ? character & 0x7F : 0;
        case Set::Greek: {
            unsigned char byte = 0;
            return m_greek->Encode(character, byte) && byte >= 0xA0 ? byte & 0x7FU : 0;
        }
        default: break;
        }
        unsigned int code = 0;
        switch (set) {
        case Set::Japanese:
        case Set::Japanese2: code = m_japanese->Encode(character); break;
        case Set::Chinese: code = EncodeChinese(character); break;
        case Set::Korean: code = m_korean->Encode(character); break;
        default: break;
        }
        code &= 0x7F7F;
        const auto first = static_cast<unsigned char>(code >> 8);
        const auto second = static_cast<unsigned char>(code & 0xFF);
        // The other set of the page, or what is no part of the set.
        return IsInPlane(first) && IsInPlane(second) && Decode(set, first, second) == character ? code : 0;
    }

    static bool IsInPlane(unsigned char byte) { return byte >= 0x21 && byte <= 0x7E; }

private:
    static constexpr char32_t Yen = 0xA5;
    static constexpr char32_t Overline = 0x203E;
    static constexpr char32_t FirstKana = 0xFF61;
    static constexpr char32_t LastKana = 0xFF9F;
    static constexpr char32_t MiddleDot = 0x30FB;
    static constexpr char32_t Bar = 0x2015;

    static bool Open(const DoubleByteTable*& table, unsigned int codePage) {
        table = DoubleByteTable::Of(codePage);
        return table != nullptr;
    }
    static bool IsPrivate(char32_t character) { return character >= 0xE000 && character <= 0xF8FF; }
    // Page 936 has more in some rows, and two other characters.
    char32_t DecodeChinese(unsigned char first, unsigned char second) const {
        const bool isAddition = (first == 0xA2 && second <= 0xAA) || (first == 0xA6 && second >= 0xE0) ||
                                (first == 0xA8 && second >= 0xBB && second <= 0xC0);
        if (first == 0xA1 && (second == 0xA4 || second == 0xAA))
            return second == 0xA4 ? MiddleDot : Bar;
        return isAddition ? 0 : m_chinese->Decode(first, second);
    }
    unsigned int EncodeChinese(char32_t character) const {
        if (character == MiddleDot || character == Bar)
            return character == MiddleDot ? 0xA1A4 : 0xA1AA;
        return m_chinese->Encode(character);
    }

    const DoubleByteTable* m_japanese = nullptr;
    const DoubleByteTable* m_chinese = nullptr;
    const DoubleByteTable* m_korean = nullptr;
    std::optional<SingleByteTable> m_greek;
};

class Iso2022 : public CharsetCodec {
public:
    Iso2022(const Form& form, const Sets& sets) : m_form(form), m_sets(sets) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const unsigned char byte = text[0];
        m_next = m_state;
        character = NoCharacter;
        if (byte >= 0x80)
            return Invalid;
        if (m_state.set == Set::Ascii && IsPlain(byte)) {
            character = byte;
            return 1;
        }
        bool isPart = false;
        const std::string_view ahead(reinterpret_cast<const char*>(text), length);
        for (std::size_t i = 0; i < m_form.count && MayStart(byte); ++i) {
            const Sequence& sequence = m_form.sequences[i];
            if (ahead.substr(0, sequence.bytes.size()) == sequence.bytes)
                return Enter(sequence, character);
            isPart = isPart || sequence.bytes.substr(0, length) == ahead;
        }
        const bool isShift = m_form.hasShift && SingleShift.substr(0, length) == ahead.substr(0, SingleShift.size());
        if (isPart || (isShift && length < 3))
            return Short;
        if (isShift) {
            const bool isDesignated = m_state.second != Set::Ascii && text[2] >= 0x20;
            return isDesignated && Found(m_sets.Decode(m_state.second, text[2]), character) ? 3 : Invalid;
        }
        if (IsOfTwoBytes(m_state.set) && byte > 0x20 && byte != 0x7F) {
            if (length < 2)
                return Short;
            const bool isPair = Sets::IsInPlane(text[1]);
            return isPair && Found(m_sets.Decode(m_state.set, byte, text[1]), character) ? 2 : Invalid;
        }
        if (IsOfTwoBytes(m_state.set) && m_form.lineEnd != LineEnd::Keeps) {
            if (m_form.lineEnd == LineEnd::Refused || !IsLineEnd(byte))
                return Invalid;
            m_next.set = Set::Ascii;
        }
        if (IsLineEnd(byte))
            m_next.second = Set::Ascii;
        character = m_sets.Decode(m_state.set, byte);
        return character != 0 || byte == 0 ? 1 : Invalid;
    }
    void Accept() override { m_state = m_next; }

    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        Bytes bytes;
        if (m_state.set == Set::Ascii && m_state.hasHeader && character < 0x80 &&
            IsPlain(static_cast<unsigned char>(character))) {
            bytes.Add(static_cast<unsigned char>(character));
            return Put(bytes.bytes, 1, room, size);
        }
        if (!m_state.hasHeader)
            bytes.Add(m_form.header);
        State next = m_state;
        next.hasHeader = true;
        const Sequence* const sequence = SequenceFor(character);
        if (sequence == nullptr)
            return Invalid;
        const unsigned int code = m_sets.Encode(sequence->set, character);
        if (sequence->set == Set::Latin || sequence->set == Set::Greek) {
            if (m_state.second != sequence->set)
                bytes.Add(sequence->bytes);
            next.second = sequence->set;
            bytes.Add(SingleShift);
        } else {
            if (m_state.set != sequence->set)
                bytes.Add(sequence->bytes);
            next.set = sequence->set;
        }
        if (IsOfTwoBytes(sequence->set))
            bytes.Add(static_cast<unsigned char>(code >> 8));
        bytes.Add(static_cast<unsigned char>(code));
        if (character == '~' && m_form.sequences == HzSequences)
            bytes.Add('~');
        if (IsLineEnd(character))
            next.second = Set::Ascii;
        const int result = Put(bytes.bytes, bytes.count, room, size);
        if (result > 0)
            m_state = next;
        return result;
    }
    int Finish(unsigned char* room, std::size_t size) override {
        Bytes bytes;
        if (!m_state.hasHeader)
            bytes.Add(m_form.header);
        if (m_state.set != Set::Ascii)
            bytes.Add(m_form.sequences[0].bytes);
        return bytes.count <= size ? Put(bytes.bytes, bytes.count, room, size) : Invalid;
    }
    void Reset() override { m_state = State(); }

private:
    static constexpr std::string_view SingleShift = "\x1BN";

    struct State {
        Set set = Set::Ascii;
        Set second = Set::Ascii; // behind ESC N; ASCII: none
        bool hasHeader = false;
    };
    struct Bytes {
        unsigned char bytes[16]; // a header, a sequence, a shift and a character
        std::size_t count = 0;

        void Add(unsigned char byte) { bytes[count++] = byte; }
        void Add(std::string_view text) {
            for (const char c : text)
                Add(static_cast<unsigned char>(c));
        }
    };

    // In ASCII nothing but itself.
    static bool IsPlain(unsigned char byte) { return !MayStart(byte) && !IsLineEnd(byte); }
    static bool Found(char32_t found, char32_t& character) {
        character = found;
        return found != 0;
    }
    int Enter(const Sequence& sequence, char32_t& character) {
        if (sequence.set == Set::Tilde)
            character = '~';
        else if (sequence.set == Set::Latin || sequence.set == Set::Greek)
            m_next.second = sequence.set;
        else if (sequence.set != Set::Same)
            m_next.set = sequence.set;
        return static_cast<int>(sequence.bytes.size());
    }
    // The present set goes on as long as it can; lines begin and end in ASCII.
    const Sequence* SequenceFor(char32_t character) const {
        const bool isAscii = IsLineEnd(character) || character == 0;
        const Sequence* found = nullptr;
        for (std::size_t i = 0; i < m_form.count; ++i) {
            const Sequence& sequence = m_form.sequences[i];
            if (isAscii ? sequence.set != Set::Ascii : m_sets.Encode(sequence.set, character) == 0)
                continue;
            if (sequence.set == m_state.set || isAscii)
                return &sequence;
            found = found == nullptr ? &sequence : found;
        }
        return found;
    }

    const Form& m_form;
    Sets m_sets;
    State m_state;
    State m_next;
};

} // namespace

std::unique_ptr<CharsetCodec> MakeIso2022(std::string_view name) {
    static constexpr struct {
        std::string_view name;
        const Form& form;
    } Names[] = {
        {"ISO-2022-JP", IsoJapanese},
        {"CSISO2022JP", IsoJapanese},
        {"CP50220", IsoJapanese},
        {"ISO-2022-JP-2", IsoJapanese2},
        {"CSISO2022JP2", IsoJapanese2},
        {"ISO-2022-KR", IsoKorean},
        {"CSISO2022KR", IsoKorean},
        {"CP50225", IsoKorean},
        {"HZ", Hz},
        {"HZ-GB-2312", Hz},
        {"CP52936", Hz},
    };
    for (const auto& row : Names) {
        if (row.name != name)
            continue;
        Sets sets;
        return sets.Open(row.form) ? std::make_unique<Iso2022>(row.form, sets) : nullptr;
    }
    return nullptr;
}

} // namespace Platform
