#include "base/keldmbstring.h"

#include <algorithm>
#include <cstdio>

#include "base/keldassert.h"
#include "base/keldsystem.h"

namespace KELD {

namespace {

constexpr const char* WhiteSpace = " \t\r\n";

char ToUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
char ToLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

int ToIndex(std::size_t position) {
    return position == std::string::npos ? -1 : static_cast<int>(position);
}

} // namespace

KeldMBString::KeldMBString(const char* text) : KeldMBString(Text(text)) {}

KeldMBString::KeldMBString(const char* text, int length) {
    if (text != nullptr && length > 0)
        m_text.assign(text, static_cast<std::size_t>(length));
}

KeldMBString::KeldMBString(char c, int count) : m_text(static_cast<std::size_t>(std::max(count, 0)), c) {}

KeldMBString::KeldMBString(std::string text) {
    if (KELDASSERT(text.size() <= MaxLength))
        m_text = std::move(text);
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
        part.m_text.assign(m_text, static_cast<std::size_t>(index), static_cast<std::size_t>(count));
    return part;
}

int KeldMBString::Find(char c, int start) const {
    return ToIndex(m_text.find(c, static_cast<std::size_t>(std::max(start, 0))));
}

int KeldMBString::Find(const KeldMBString& text, int start) const {
    return ToIndex(m_text.find(text.m_text, static_cast<std::size_t>(std::max(start, 0))));
}

int KeldMBString::ReverseFind(char c) const {
    return ToIndex(m_text.rfind(c));
}

int KeldMBString::FindOneOf(const char* set) const {
    return ToIndex(m_text.find_first_of(Text(set)));
}

int KeldMBString::Replace(char from, char to) {
    if (from == to)
        return 0;
    int replaced = 0;
    for (char& c : m_text) {
        if (c == from) {
            c = to;
            ++replaced;
        }
    }
    return replaced;
}

int KeldMBString::Replace(const KeldMBString& from, const KeldMBString& to) {
    if (from.IsEmpty())
        return 0;
    // Built beside the old text, so that many replacements cost one pass and not one move of the tail each.
    std::string result;
    int replaced = 0;
    std::size_t copied = 0;
    for (std::size_t at = 0; (at = m_text.find(from.m_text, at)) != std::string::npos; at = copied) {
        result.append(m_text, copied, at - copied).append(to.m_text);
        copied = at + from.m_text.size();
        ++replaced;
        if (!KELDASSERT(result.size() + (m_text.size() - copied) <= MaxLength))
            return 0;
    }
    if (replaced != 0) {
        result.append(m_text, copied, std::string::npos);
        m_text = std::move(result);
    }
    return replaced;
}

void KeldMBString::Replace(int index, int count, std::string_view text) {
    const int at = std::clamp(index, 0, GetLength());
    const int cut = std::clamp(count, 0, GetLength() - at);
    if (text.size() > static_cast<std::size_t>(cut) && !HasRoomFor(text.size() - static_cast<std::size_t>(cut)))
        return;
    m_text.replace(static_cast<std::size_t>(at), static_cast<std::size_t>(cut), text);
}

int KeldMBString::Insert(int index, const KeldMBString& text) {
    Replace(index, 0, text.m_text);
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
    for (std::size_t i = 0; i < m_text.size(); ++i) {
        if (KeldSystem::IsLeadByte(m_charset, static_cast<unsigned char>(m_text[i])))
            ++i;
        else
            m_text[i] = map(m_text[i]);
    }
}

KeldMBString& KeldMBString::MakeUpper() {
    MapLetters(ToUpper);
    return *this;
}

KeldMBString& KeldMBString::MakeLower() {
    MapLetters(ToLower);
    return *this;
}

int KeldMBString::Compare(const KeldMBString& other) const {
    return m_text.compare(other.m_text);
}

int KeldMBString::CompareNoCase(const KeldMBString& other) const {
    const std::size_t common = std::min(m_text.size(), other.m_text.size());
    bool trailByte = false;
    for (std::size_t i = 0; i < common; ++i) {
        char a = m_text[i];
        char b = other.m_text[i];
        if (!trailByte) {
            a = ToLower(a);
            b = ToLower(b);
        }
        if (a != b)
            return static_cast<unsigned char>(a) < static_cast<unsigned char>(b) ? -1 : 1;
        trailByte = !trailByte && KeldSystem::IsLeadByte(m_charset, static_cast<unsigned char>(a));
    }
    return static_cast<int>(m_text.size() > common) - static_cast<int>(other.m_text.size() > common);
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
    const int length = format != nullptr ? std::vsnprintf(buffer, sizeof(buffer), format, arguments) : 0;
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof(buffer)) {
        result.assign(buffer, static_cast<std::size_t>(length));
    } else if (length > 0) {
        result.resize(static_cast<std::size_t>(length));
        std::vsnprintf(result.data(), result.size() + 1, format, again);
    }
    va_end(again);
    m_text = std::move(result);
}

KeldMBString& KeldMBString::Append(const char* text, int length) {
    return text != nullptr && length > 0 ? Append(std::string_view(text, static_cast<std::size_t>(length))) : *this;
}

KeldMBString& KeldMBString::operator+=(const char* text) {
    return Append(Text(text));
}

KeldMBString& KeldMBString::operator+=(char c) {
    return Append(std::string_view(&c, 1));
}

void KeldMBString::Reserve(int capacity) {
    if (capacity > 0)
        m_text.reserve(static_cast<std::size_t>(capacity));
}

bool KeldMBString::HasRoomFor(std::size_t added) const {
    return KELDASSERT(added <= MaxLength - m_text.size());
}

} // namespace KELD
