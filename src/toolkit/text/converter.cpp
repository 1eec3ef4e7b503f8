#include "toolkit/text/converter.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <iconv.h>
#include <new>

#include "base/keldsystem.h"
#include "platform/forkhook.h"
#include "platform/thread.h"
#include "platform/threadslot.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

// iconv's second parameter is `char**` in one system's header and `const char**` in another's.
class InputPointer {
public:
    explicit InputPointer(const char* text) : m_text(text) {}
    operator char**() { return const_cast<char**>(&m_text); }
    operator const char**() { return &m_text; }
    const char* Get() const { return m_text; }

private:
    const char* m_text;
};

// Opening and closing take locks of the system's that neither a thread's forced end nor a fork may leave locked.
struct SystemHold {
    Platform::TerminationShield shield;
    Platform::ForkHold hold;
};

using Word = std::uint64_t;

// The bits of a word of units, low byte first, that none of ASCII has.
Word NonAsciiBits(int unit) {
    unsigned char bytes[sizeof(Word)];
    for (std::size_t i = 0; i < sizeof(bytes); ++i)
        bytes[i] = i % static_cast<std::size_t>(unit) == 0 ? 0x80 : 0xFF;
    Word word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

bool IsAscii(const char* at, Word nonAscii) { // a word of it
    Word word = 0;
    std::memcpy(&word, at, sizeof(word));
    return (word & nonAscii) == 0;
}

// The bytes of whole ASCII units at the start.
std::size_t AsciiBytes(const char* text, std::size_t length, int unit, Word nonAscii) {
    std::size_t at = 0;
    constexpr std::size_t Words = 8;
    for (; length - at >= Words * sizeof(Word); at += Words * sizeof(Word)) {
        std::array<Word, Words> words;
        std::memcpy(words.data(), text + at, sizeof(words));
        Word all = 0;
        for (const Word word : words)
            all |= word;
        if ((all & nonAscii) != 0)
            break;
    }
    while (length - at >= sizeof(Word) && IsAscii(text + at, nonAscii))
        at += sizeof(Word);
    const auto size = static_cast<std::size_t>(unit);
    for (; length - at >= size; at += size) {
        if (static_cast<unsigned char>(text[at]) >= 0x80)
            break;
        for (std::size_t i = 1; i < size; ++i) {
            if (text[at + i] != '\0')
                return at;
        }
    }
    return at;
}

// A stretch of ASCII that is worth a call less to the converter.
constexpr std::size_t ShortestStretch = 64;

// Where the next one begins; the length when there is none.
std::size_t NextAscii(const char* text, std::size_t start, std::size_t length, Word nonAscii) {
    while (length - start >= ShortestStretch) {
        std::size_t at = ShortestStretch;
        while (at != 0 && IsAscii(text + start + at - sizeof(Word), nonAscii))
            at -= sizeof(Word);
        if (at == 0)
            return start;
        start += at; // a multiple of the unit behind what is none of ASCII
    }
    return length;
}

template <class From, class To>
void CopyUnits(const char* src, std::size_t count, char* dst) {
    if constexpr (sizeof(From) == sizeof(To)) {
        std::memcpy(dst, src, count * sizeof(From));
        return;
    }
    constexpr std::size_t Block = 16; // a fixed number, out of an array of its own, is what compilers make vectors of
    for (; count >= Block; count -= Block) {
        std::array<From, Block> from;
        std::memcpy(from.data(), src, sizeof(from));
        for (std::size_t i = 0; i < Block; ++i) {
            const To unit = static_cast<To>(from[i]);
            std::memcpy(dst + i * sizeof(unit), &unit, sizeof(unit));
        }
        src += sizeof(from);
        dst += Block * sizeof(To);
    }
    for (; count != 0; --count) {
        From unit = 0;
        std::memcpy(&unit, src, sizeof(unit));
        const To wide = static_cast<To>(unit);
        std::memcpy(dst, &wide, sizeof(wide));
        src += sizeof(unit);
        dst += sizeof(wide);
    }
}

template <class From>
void CopyUnits(const char* src, std::size_t count, char* dst, int unit) {
    switch (unit) {
    case 1: CopyUnits<From, std::uint8_t>(src, count, dst); break;
    case 2: CopyUnits<From, std::uint16_t>(src, count, dst); break;
    default: CopyUnits<From, std::uint32_t>(src, count, dst); break;
    }
}

// A machine with the other order of bytes leaves all of it to the converter.
bool IsLittleEndian() {
    const std::uint16_t one = 1;
    unsigned char first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// Another name of the same number may differ from its own in a few characters.
CharsetTraits TraitsOf(std::string_view name) {
    const Charset charset = KeldSystem::GetCharset(KeldMBString(name));
    const KeldMBString own(KeldSystem::GetCharsetNameView(charset));
    return own.CompareNoCase(KeldMBString(name)) == 0 ? GetCharsetTraits(charset) : CharsetTraits();
}

bool AsksToDrop(std::string_view name) {
    const std::size_t suffix = name.find("//");
    return suffix != std::string_view::npos && KeldMBString(name.substr(suffix)).MakeUpper().Find("IGNORE") >= 0;
}

// Some systems' converters put '?' or '*' in the place of what the charset lacks, and count those. Others count too,
// but not that: found out when first something is counted.
bool SystemReplaces() {
    static std::atomic<int> s_known{-1};
    int known = s_known.load(std::memory_order_relaxed);
    if (known >= 0)
        return known != 0;
    const SystemHold hold;
    const iconv_t probe = iconv_open("ASCII", "UTF-8");
    if (probe == reinterpret_cast<iconv_t>(static_cast<std::intptr_t>(-1)))
        return true;
    InputPointer in("\xE4\xB8\xAD");
    std::size_t left = 3;
    char room[8];
    char* at = room;
    std::size_t roomLeft = sizeof(room);
    known = iconv(probe, in, &left, &at, &roomLeft) != static_cast<std::size_t>(-1) ? 1 : 0;
    iconv_close(probe);
    s_known.store(known, std::memory_order_relaxed);
    return known != 0;
}

} // namespace

/// What one thread keeps for its next texts.
class ConverterCache {
public:
    /// The calling thread's, made when there is none. Null when it can have none (any more).
    static ConverterCache* OfThread();

    /// The first in the key's row that `matches`; taken out.
    template <class Matches>
    Converter* Take(std::uint64_t key, Matches matches) {
        Converter** const at = Find(key, matches);
        return at != nullptr ? Remove(*at) : nullptr;
    }
    /// One with that key, which stays.
    Converter* Borrow(std::uint64_t key) {
        Converter* converter = m_recent;
        if (converter == nullptr || converter->m_key != key || converter->m_isBorrowed) {
            Converter** const at = Find(key, [](const Converter&) { return true; });
            if (at == nullptr)
                return nullptr;
            converter = m_recent = *at;
        }
        converter->m_isBorrowed = true;
        return converter;
    }
    void Return(Converter& converter) {
        converter.m_isBorrowed = false;
        converter.m_lastUse = ++m_uses;
    }
    void Add(Converter& converter) {
        if (m_count >= MaxCount)
            CloseOldest();
        converter.m_cache = this;
        converter.m_lastUse = ++m_uses;
        Converter*& row = Row(converter.m_key);
        converter.m_next = row;
        row = &converter;
        ++m_count;
    }
    static void CloseAll(void* cache) {
        auto* const self = static_cast<ConverterCache*>(cache);
        for (Converter*& row : self->m_rows) {
            while (row != nullptr)
                self->Remove(row)->Close();
        }
        delete self;
    }

private:
    // Every charset of the table in both directions with room to spare. A converter is some 30 to 60 KiB.
    static constexpr unsigned int MaxCount = 128;

    Converter*& Row(std::uint64_t key) {
        return m_rows[static_cast<std::uint32_t>(key * 0x9E3779B97F4A7C15 >> 32) % m_rows.size()];
    }

    // A borrowed one is not there for anybody else: whoever has it may come here again, by a handler.
    template <class Matches>
    Converter** Find(std::uint64_t key, Matches matches) {
        for (Converter** at = &Row(key); *at != nullptr; at = &(*at)->m_next) {
            if ((*at)->m_key == key && !(*at)->m_isBorrowed && matches(**at))
                return at;
        }
        return nullptr;
    }
    Converter* Remove(Converter*& at) {
        Converter* const converter = at;
        at = converter->m_next;
        converter->m_cache = nullptr;
        if (m_recent == converter)
            m_recent = nullptr;
        --m_count;
        return converter;
    }
    void CloseOldest() {
        Converter** oldest = nullptr;
        for (Converter*& row : m_rows) {
            for (Converter** at = &row; *at != nullptr; at = &(*at)->m_next) {
                const bool isOlder = oldest == nullptr || m_uses - (*at)->m_lastUse > m_uses - (*oldest)->m_lastUse;
                if (isOlder && !(*at)->m_isBorrowed)
                    oldest = at;
            }
        }
        if (oldest != nullptr)
            Remove(*oldest)->Close();
    }

    Converter* m_recent = nullptr; // which the next text very likely needs again
    std::array<Converter*, 64> m_rows = {};
    unsigned int m_count = 0;
    unsigned int m_uses = 0;
};

namespace {

// Until it is made, and when it is gone, nothing is kept.
Platform::ThreadSlot s_cache(&ConverterCache::CloseAll);

// Numbers and hashes of names never meet: charset numbers leave the top bit free.
std::uint64_t KeyOf(Charset to, Charset from) {
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(to)) << 32 | static_cast<std::uint32_t>(from);
}
std::uint64_t KeyOf(std::string_view to, std::string_view from) {
    const std::hash<std::string_view> hash;
    return (hash(to) * 31 + hash(from)) | std::uint64_t{1} << 63;
}

} // namespace

ConverterCache* ConverterCache::OfThread() {
    auto* cache = static_cast<ConverterCache*>(s_cache.Get());
    if (cache == nullptr) {
        cache = new (std::nothrow) ConverterCache;
        if (cache != nullptr && !s_cache.Set(cache)) {
            delete cache;
            cache = nullptr;
        }
    }
    return cache;
}

Converter* Converter::Take(Charset to, Charset from) {
    if (to < 0 || from < 0)
        return nullptr;
    const std::uint64_t key = KeyOf(to, from);
    ConverterCache* const cache = ConverterCache::OfThread();
    Converter* const kept = cache != nullptr ? cache->Take(key, [](const Converter&) { return true; }) : nullptr;
    return kept != nullptr ? kept : Open(KeldSystem::GetCharsetNameView(to), KeldSystem::GetCharsetNameView(from), key);
}

Converter* Converter::Take(std::string_view to, std::string_view from) {
    const std::uint64_t key = KeyOf(to, from);
    ConverterCache* const cache = ConverterCache::OfThread();
    const auto matches = [&](const Converter& kept) { return kept.Is(to, from); };
    Converter* const kept = cache != nullptr ? cache->Take(key, matches) : nullptr;
    return kept != nullptr ? kept : Open(to, from, key);
}

void Converter::Give(Converter* converter) {
    if (converter == nullptr)
        return;
    ConverterCache* const cache = ConverterCache::OfThread();
    if (cache != nullptr)
        cache->Add(*converter);
    else
        converter->Close();
}

Converter* Converter::Borrow(Charset to, Charset from, bool& isMemoryShort) {
    ConverterCache* const cache = ConverterCache::OfThread();
    const std::uint64_t key = KeyOf(to, from);
    Converter* converter = cache != nullptr ? cache->Borrow(key) : nullptr;
    if (converter != nullptr)
        return converter;
    const unsigned int failures = GetMemoryFailures();
    converter = Take(to, from); // all that are kept may be borrowed
    isMemoryShort = GetMemoryFailures() != failures;
    if (converter != nullptr && cache != nullptr) {
        cache->Add(*converter);
        converter->m_isBorrowed = true;
    }
    return converter;
}

void Converter::Return() {
    if (m_cache != nullptr)
        m_cache->Return(*this);
    else
        Close();
}

Converter* Converter::Open(std::string_view to, std::string_view from, std::uint64_t key) {
    // iconv takes an empty name for the locale's charset.
    const auto isName = [](std::string_view name) {
        return !name.empty() && name.front() != '/' && name.find('\0') == std::string_view::npos;
    };
    if (!isName(to) || !isName(from))
        return nullptr;
    auto* const converter = new (std::nothrow) Converter;
    if (converter == nullptr) {
        ReportMemoryFailure();
        return nullptr;
    }
    converter->m_key = key;
    const bool isNamed = TryCopies<KeldMBString>([&] {
        converter->m_to = to;
        converter->m_from = from;
        converter->m_toTraits = TraitsOf(to);
        converter->m_fromTraits = TraitsOf(from);
        converter->m_dropsLetters = AsksToDrop(to) || AsksToDrop(from);
        converter->m_mayReplace = to.find("//") != std::string_view::npos || from.find("//") != std::string_view::npos;
    });
    converter->m_isSameCharset = to == from;
    converter->m_isStateless = converter->m_toTraits.isStateless && converter->m_fromTraits.isStateless;
    converter->m_copiesAscii =
        converter->m_toTraits.asciiUnit != 0 && converter->m_fromTraits.asciiUnit != 0 && IsLittleEndian();
    if (converter->m_copiesAscii)
        converter->m_nonAscii = NonAsciiBits(converter->m_fromTraits.asciiUnit);
    if (isNamed && converter->OpenHandle())
        return converter;
    delete converter;
    return nullptr;
}

bool Converter::OpenHandle() {
    int error = 0;
    {
        const SystemHold hold;
        m_handle = iconv_open(m_to.c_str(), m_from.c_str());
        error = errno;
    }
    const bool isOpen = m_handle != reinterpret_cast<void*>(static_cast<std::intptr_t>(-1));
    if (!isOpen && error == ENOMEM)
        ReportMemoryFailure(); // here, where its handler may do as it likes
    return isOpen;
}

void Converter::Close() {
    {
        const SystemHold hold;
        iconv_close(m_handle);
    }
    delete this;
}

bool Converter::Convert(const char* src, std::size_t length, char* dst, std::size_t room, std::size_t& produced) {
    // A short text that is not all ASCII is one call: looking for stretches to copy would cost more than it saves.
    const bool isOneCall = m_isStateless && length < ShortestStretch &&
                           (!m_copiesAscii || length < sizeof(Word) || !IsAscii(src, m_nonAscii));
    if (isOneCall) {
        InputPointer in(src);
        char* at = dst;
        std::size_t left = length;
        std::size_t roomLeft = room;
        const std::size_t result = iconv(m_handle, in, &left, &at, &roomLeft);
        produced = room - roomLeft;
        const bool isWhole = result == 0 || result == Failed || m_mayReplace || !SystemReplaces(); // see Call
        if (left == 0 && isWhole)
            return true;
        Reset(); // and once more, to find out why
    }
    Output out{dst, room};
    const bool converted = Advance(src, length, true, out) == length && Finish(out);
    if (!converted)
        Reset();
    produced = room - out.left;
    return converted;
}

std::size_t Converter::Call(const char* src, std::size_t length, bool isEnd, Output& out) {
    InputPointer in(src);
    for (std::size_t left = length;;) {
        const std::size_t before = left;
        const std::size_t result = iconv(m_handle, in, &left, &out.at, &out.left);
        if (result != 0 && result != Failed && !m_mayReplace && SystemReplaces())
            return Failed;
        if (left == 0 || result != Failed)
            return length - left;
        // A converter that was told to drop letters stops at one now and then, and a character's rest may follow.
        const bool goesOn = m_dropsLetters && errno == EILSEQ && left != before;
        if (!goesOn)
            return errno == EILSEQ || isEnd ? Failed : length - left;
    }
}

bool Converter::CopiesAscii(const char* src, std::size_t length, std::size_t unit) const {
    return m_copiesAscii && m_fromTraits.asciiUnit == 1 && m_toTraits.asciiUnit == static_cast<int>(unit) &&
           AsciiBytes(src, length, 1, m_nonAscii) == length;
}

bool Converter::CopyAscii(const char* src, std::size_t bytes, Output& out) const {
    const std::size_t units = bytes / static_cast<std::size_t>(m_fromTraits.asciiUnit);
    const std::size_t size = units * static_cast<std::size_t>(m_toTraits.asciiUnit);
    if (size > out.left)
        return false;
    switch (m_fromTraits.asciiUnit) {
    case 1: CopyUnits<std::uint8_t>(src, units, out.at, m_toTraits.asciiUnit); break;
    case 2: CopyUnits<std::uint16_t>(src, units, out.at, m_toTraits.asciiUnit); break;
    default: CopyUnits<std::uint32_t>(src, units, out.at, m_toTraits.asciiUnit); break;
    }
    out.at += size;
    out.left -= size;
    return true;
}

std::size_t Converter::Advance(const char* src, std::size_t length, bool isEnd, Output& out) {
    if (!m_copiesAscii)
        return Call(src, length, isEnd, out);
    const int unit = m_fromTraits.asciiUnit;
    std::size_t done = 0;
    while (done < length) {
        const std::size_t ascii = AsciiBytes(src + done, length - done, unit, m_nonAscii);
        if (ascii != 0 && !CopyAscii(src + done, ascii, out))
            return Failed;
        done += ascii;
        if (done == length)
            break;
        const std::size_t end = m_fromTraits.isSelfEvident ? NextAscii(src, done, length, m_nonAscii) : length;
        const std::size_t converted = Call(src + done, end - done, isEnd || end != length, out);
        if (converted == Failed)
            return Failed;
        done += converted;
        if (done != end)
            break;
    }
    return done;
}

// Where iconv itself stops: without the short ways of Advance, which do not tell.
std::size_t Converter::ConvertibleLength(const char* src, std::size_t length) {
    const Cleaner cleaner{*this, false};
    alignas(8) char piece[PieceSize];
    InputPointer in(src);
    std::size_t left = length;
    while (left != 0) {
        Output out{piece, sizeof(piece)};
        const std::size_t before = left;
        if (iconv(m_handle, in, &left, &out.at, &out.left) == Failed && errno != E2BIG && left == before)
            break;
    }
    return length - left;
}

bool Converter::Finish(Output& out) {
    // A charset with combining marks holds its last letter back until told that nothing follows: this tells it, and
    // leaves the descriptor as new.
    if (m_isStateless)
        return true;
    const std::size_t result = iconv(m_handle, nullptr, nullptr, &out.at, &out.left);
    return result == 0 || (result != Failed && (m_mayReplace || !SystemReplaces()));
}

void Converter::Reset() {
    iconv(m_handle, nullptr, nullptr, nullptr, nullptr); // what is left of a text must not meet the next
}

} // namespace Qzc
