#include "base/keldsystem.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "base/asciicase.h"
#include "base/charsetnames.h"
#include "base/leadbytes.h"
#include "platform/charset.h"

namespace KELD {

namespace {

using Charset = KELDCharset::Charset;

// A name's bytes in upper case, padded with zeros: names compare as three words.
struct NameKey {
    static constexpr std::size_t Size = 24;
    std::array<std::uint64_t, Size / 8> words = {};

    explicit NameKey(std::string_view name) {
        if (!name.empty()) // whose bytes may be nowhere
            std::memcpy(words.data(), name.data(), name.size());
        for (std::uint64_t& word : words)
            word = ToUpperAscii(word);
    }
    std::uint64_t Hash() const {
        std::uint64_t hash = words[0] * 0x9E3779B97F4A7C15 ^ words[1] * 0xC2B2AE3D27D4EB4F ^ words[2];
        hash ^= hash >> 29;
        return hash * 0x9E3779B97F4A7C15 >> 40;
    }
};

// Both ways into the table of names, by hash; built at the first question.
class NameIndex {
public:
    NameIndex() {
        for (const CharsetName& row : CharsetNames)
            Add(row);
        for (const CharsetName& row : CharsetNamesWithoutAscii)
            Add(row);
    }
    const CharsetName* Find(std::string_view name) const {
        return name.size() <= NameKey::Size ? const_cast<NameIndex*>(this)->FindName(name)->row : nullptr;
    }
    const CharsetName* Find(Charset charset) const { return *const_cast<NameIndex*>(this)->FindNumber(charset); }

private:
    static constexpr std::size_t Size = 2048; // a search ends at an empty slot, of which most are
    static_assert(std::size(CharsetNames) + std::size(CharsetNamesWithoutAscii) < Size / 2);

    struct Slot {
        NameKey key{std::string_view("")}; // a null pointer is none to copy from, not even nothing
        const CharsetName* row = nullptr;
    };

    void Add(const CharsetName& row) {
        Slot& byName = *FindName(row.name);
        if (byName.row == nullptr) // else the name of two numbers, read as the first
            byName = {NameKey(row.name), &row};
        const CharsetName*& byNumber = *FindNumber(row.charset);
        if (byNumber == nullptr)
            byNumber = &row;
    }
    // The slot that holds it, or the empty one where it would stand.
    Slot* FindName(std::string_view name) {
        const NameKey key(name);
        std::size_t at = key.Hash() % Size;
        while (m_names[at].row != nullptr &&
               (m_names[at].key.words != key.words || m_names[at].row->name.size() != name.size()))
            at = (at + 1) % Size;
        return &m_names[at];
    }
    const CharsetName** FindNumber(Charset charset) {
        std::size_t at = (static_cast<std::uint32_t>(charset) * 0x9E3779B9U >> 16) % Size;
        while (m_numbers[at] != nullptr && m_numbers[at]->charset != charset)
            at = (at + 1) % Size;
        return &m_numbers[at];
    }

    std::array<Slot, Size> m_names;
    std::array<const CharsetName*, Size> m_numbers = {};
};

const NameIndex& Index() {
    static const NameIndex s_index;
    return s_index;
}

Charset ProcessCharset() {
    Charset charset = KELDCharset::Unknown;
    TryMemory([&] { charset = KeldSystem::GetCharset(Platform::LocaleCharsetName().c_str()); });
    return charset == KELDCharset::Unknown || charset == KELDCharset::ASCII || !HoldsAscii(charset) ? KELDCharset::UTF8
                                                                                                    : charset;
}

Charset ForPathsToo(Charset charset) {
    Platform::SetPathCharset(KeldSystem::GetCharsetNameView(charset));
    return charset;
}

std::atomic<Charset>& CurrentCharset() {
    static std::atomic<Charset> s_charset{ForPathsToo(ProcessCharset())};
    return s_charset;
}

} // namespace

Charset KeldSystem::GetCurCharset() {
    return CurrentCharset().load(std::memory_order_relaxed);
}

bool KeldSystem::SetCurCharset(Charset charset) {
    if (charset == KELDCharset::Current || !HoldsAscii(charset) || Index().Find(charset) == nullptr)
        return false;
    CurrentCharset().store(ForPathsToo(charset), std::memory_order_relaxed);
    return true;
}

std::string_view KeldSystem::GetCharsetNameView(Charset charset) {
    if (charset == KELDCharset::Current)
        charset = GetCurCharset();
    if (charset == KELDCharset::Wide)
        charset = sizeof(wchar_t) == 2 ? KELDCharset::UCS2LE : KELDCharset::UCS4LE;
    const CharsetName* const row = Index().Find(charset);
    return row != nullptr ? row->name : std::string_view();
}

KeldMBString KeldSystem::GetCharsetName(Charset charset) {
    return KeldMBString(GetCharsetNameView(charset));
}

Charset KeldSystem::GetCharset(const KeldMBString& name) {
    const CharsetName* const row = Index().Find(name.View());
    return row != nullptr ? row->charset : KELDCharset::Unknown;
}

bool KeldSystem::IsLeadByte(Charset charset, unsigned char byte) {
    return byte >= 0x80 && LeadBytes(charset).Holds(byte);
}

} // namespace KELD
