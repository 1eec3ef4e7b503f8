#include "base/keldmbstring.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/asciicase.h"
#include "base/keldassert.h"
#include "base/leadbytes.h"
#include "base/stringops.h"

namespace KELD {

namespace {

constexpr const char* WhiteSpace = " \t\r\n";

} // namespace

KeldMBString::KeldMBString(const char* text, int length)
    : m_text(CopyOf(text != nullptr && length > 0 ? std::string_view(text, static_cast<std::size_t>(length))
                                                  : std::string_view())) {}

KeldMBString::KeldMBString(std::string text) {
    if (KELDASSERT(text.size() <= MaxLength))
        m_text = std::move(text);
}

std::string KeldMBString::TooLong() {
    ReportAssertion("text.size() <= MaxLength", __FILE__, __LINE__);
    return std::string();
}

void KeldMBString::Fill(char c, int count) {
    TryMemory([&] { m_text.assign(static_cast<std::size_t>(std::max(count, 0)), c); });
}

bool KeldMBString::Assign(std::string_view text) noexcept {
    return TryMemory([&] { m_text.assign(text); });
}

void KeldMBString::AppendGrowing(std::string_view text) {
    if (HasRoomFor(text.size()))
        TryMemory([&] { m_text.append(text); });
}

KeldMBString KeldMBString::Join(std::string_view a, std::string_view b, const KeldMBString& charset) {
    KeldMBString both;
    both.m_charset = charset.m_charset;
    if (KELDASSERT(a.size() + b.size() <= MaxLength))
        TryMemory([&] {
            both.m_text.reserve(a.size() + b.size());
            both.m_text.append(a).append(b);
        });
    return both;
}

KeldMBString KeldMBString::Extend(KeldMBString& a, std::string_view b) {
    const std::size_t length = a.m_text.size();
    a.Append(b);
    if (a.m_text.size() != length + b.size())
        a.Empty();
    return std::move(a);
}

char KeldMBString::GetAt(int index) const {
    if (!KELDASSERT(index >= 0 && index < GetLength()))
        return 0;
    return m_text[static_cast<std::size_t>(index)];
}

void KeldMBString::SetAt(int index, char c) {
    if (KELDASSERT(index >= 0 && index < GetLength()))
        m_text[static_cast<std::size_t>(index)] = c;
}

KeldMBString KeldMBString::Left(int count) const {
    return Mid(0, count);
}

KeldMBString KeldMBString::Right(int count) const {
    return Mid(GetLength() - std::clamp(count, 0, GetLength()));
}

KeldMBString KeldMBString::Mid(int index) const {
    return Mid(index, MaxLength);
}

KeldMBString KeldMBString::Mid(int index, int count) const {
    KeldMBString part;
    part.m_charset = m_charset;
    index = std::max(index, 0);
    if (index < GetLength() && count > 0)
        part.Assign(View().substr(static_cast<std::size_t>(index), static_cast<std::size_t>(count)));
    return part;
}

int KeldMBString::Find(char c, int start) const {
    return ToIndex(m_text.find(c, static_cast<std::size_t>(std::max(start, 0))));
}

int KeldMBString::Find(Argument text, int start) const {
    return ToIndex(m_text.find(text.View(), static_cast<std::size_t>(std::max(start, 0))));
}

int KeldMBString::ReverseFind(char c) const {
    return ToIndex(m_text.rfind(c));
}

int KeldMBString::FindOneOf(const char* set) const {
    return ToIndex(m_text.find_first_of(Text(set)));
}

int KeldMBString::Replace(char from, char to) {
    return ReplaceUnits(m_text, from, to);
}

int KeldMBString::Replace(Argument from, Argument to) {
    return ReplaceParts(m_text, from.View(), to.View(), MaxLength);
}

void KeldMBString::Replace(int index, int count, std::string_view text) {
    const int at = std::clamp(index, 0, GetLength());
    const int cut = std::clamp(count, 0, GetLength() - at);
    if (text.size() > static_cast<std::size_t>(cut) && !HasRoomFor(text.size() - static_cast<std::size_t>(cut)))
        return;
    TryMemory([&] { m_text.replace(static_cast<std::size_t>(at), static_cast<std::size_t>(cut), text); });
}

int KeldMBString::Insert(int index, Argument text) {
    Replace(index, 0, text.View());
    return GetLength();
}

int KeldMBString::Delete(int index, int count) {
    Replace(index, count, std::string_view());
    return GetLength();
}

KeldMBString& KeldMBString::TrimLeft() {
    m_text.erase(0, m_text.find_first_not_of(WhiteSpace));
    return *this;
}

KeldMBString& KeldMBString::TrimRight() {
    m_text.erase(m_text.find_last_not_of(WhiteSpace) + 1);
    return *this;
}

KeldMBString& KeldMBString::TrimLeft(char c) {
    m_text.erase(0, m_text.find_first_not_of(c));
    return *this;
}

KeldMBString& KeldMBString::TrimRight(char c) {
    m_text.erase(m_text.find_last_not_of(c) + 1);
    return *this;
}

template <class Map>
void KeldMBString::MapLetters(Map map) {
    const LeadBytes leadBytes(m_charset);
    char* c = m_text.data();
    char* const end = c + m_text.size();
    constexpr std::ptrdiff_t Block = 16; // a fixed number is what compilers make vectors of
    const auto mapBlock = [&](char* at) {
        for (std::ptrdiff_t i = 0; i < Block; ++i)
            at[i] = map(at[i]);
    };
    if (leadBytes.IsEmpty() && end - c >= Block) {
        for (; end - c > Block; c += Block)
            mapBlock(c);
        mapBlock(end - Block); // some of it once more, which changes nothing
        return;
    }
    for (; c < end; ++c) {
        if (leadBytes.Holds(static_cast<unsigned char>(*c)))
            ++c;
        else
            *c = map(*c);
    }
}

KeldMBString& KeldMBString::MakeUpper() {
    MapLetters([](char c) { return ToUpper(c); });
    return *this;
}

KeldMBString& KeldMBString::MakeLower() {
    MapLetters([](char c) { return ToLower(c); });
    return *this;
}

int KeldMBString::Compare(Argument other) const {
    return m_text.compare(other.View());
}

int KeldMBString::CompareNoCase(Argument other) const {
    const std::string_view otherText = other.View();
    const std::size_t common = std::min(m_text.size(), otherText.size());
    const char* const left = m_text.data();
    const char* const right = otherText.data();
    const LeadBytes leadBytes(m_charset);
    std::size_t i = 0;
    if (leadBytes.IsEmpty()) {
        for (std::uint64_t words[2]; i + sizeof(words[0]) <= common; i += sizeof(words[0])) {
            std::memcpy(&words[0], left + i, sizeof(words[0]));
            std::memcpy(&words[1], right + i, sizeof(words[1]));
            if (ToLowerAscii(words[0]) != ToLowerAscii(words[1]))
                break;
        }
    }
    for (bool trailByte = false; i < common; ++i) {
        const char a = trailByte ? left[i] : ToLower(left[i]);
        const char b = trailByte ? right[i] : ToLower(right[i]);
        if (a != b)
            return static_cast<unsigned char>(a) < static_cast<unsigned char>(b) ? -1 : 1;
        trailByte = !trailByte && leadBytes.Holds(static_cast<unsigned char>(a));
    }
    return static_cast<int>(m_text.size() > common) - static_cast<int>(otherText.size() > common);
}

void KeldMBString::Format(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    FormatV(format, arguments);
    va_end(arguments);
}

void KeldMBString::FormatV(const char* format, std::va_list arguments) {
    // Printed beside the text, which may itself be one of the arguments.
    std::string result;
    std::va_list again;
    va_copy(again, arguments);
    char buffer[256];
    errno = 0;
    const int length = format != nullptr ? std::vsnprintf(buffer, sizeof(buffer), format, arguments) : 0;
    bool done = true;
    if (length < 0 && errno == ENOMEM) {
        done = false;
        ReportMemoryFailure();
    } else if (length > 0) {
        done = TryMemory([&] {
            if (static_cast<std::size_t>(length) < sizeof(buffer)) {
                result.assign(buffer, static_cast<std::size_t>(length));
                return;
            }
            result.resize(static_cast<std::size_t>(length));
            if (std::vsnprintf(result.data(), result.size() + 1, format, again) != length)
                throw std::bad_alloc(); // nothing else differs from the first time
        });
    }
    va_end(again);
    if (done)
        m_text = std::move(result);
}

KeldMBString& KeldMBString::Append(const char* text, int length) {
    return text != nullptr && length > 0 ? Append(std::string_view(text, static_cast<std::size_t>(length))) : *this;
}

void KeldMBString::Reserve(int capacity) {
    if (capacity > 0)
        TryMemory([&] { m_text.reserve(static_cast<std::size_t>(capacity)); });
}

bool KeldMBString::HasRoomFor(std::size_t added) const {
    return KELDASSERT(added <= MaxLength - m_text.size());
}

} // namespace KELD
