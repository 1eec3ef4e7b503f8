#include "toolkit/qzstringw.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/keldassert.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/text/widecharset.h"

namespace Qzc {

namespace {

constexpr std::wstring_view WhiteSpace = L"\t\r\n ";

wchar_t ToUpper(wchar_t c) {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}
wchar_t ToLower(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

int ToIndex(std::size_t position) {
    return position == std::wstring::npos ? -1 : static_cast<int>(position);
}

std::wstring_view Cut(std::wstring_view text) {
    const bool fits = KELDASSERT(text.size() <= QzStringW::MaxLength);
    return fits ? text : std::wstring_view();
}

std::wstring_view Set(const wchar_t* set) {
    return KELDASSERT_TEXT(set != nullptr, "lpszCharSet") ? set : std::wstring_view();
}

KELDCharset::Charset Resolve(KELDCharset::Charset charset) {
    return charset == KELDCharset::Current ? QzToolkit::GetCurCharset() : charset;
}

} // namespace

std::wstring_view QzStringW::Text(const wchar_t* text) {
    return KELDASSERT_TEXT(text != nullptr, "str != 0") ? text : std::wstring_view();
}

bool QzStringW::IsIndex(int index) const {
    return KELDASSERT_TEXT(index >= 0 && index < GetLength(), "nIndex >= 0&&nIndex < GetLength()");
}

bool QzStringW::HasRoomFor(std::size_t added) const {
    return KELDASSERT(added <= MaxLength - m_text.size());
}

QzStringW::QzStringW(const KeldMBString& text) {
    FromString(text, text.GetCharset());
}

QzStringW::QzStringW(std::wstring text) {
    if (KELDASSERT(text.size() <= MaxLength))
        m_text = std::move(text);
}

QzStringW::QzStringW(const wchar_t* text) : m_text(Cut(Text(text))) {}

QzStringW::QzStringW(const wchar_t* text, int length) {
    if (KELDASSERT_TEXT(text != nullptr, "str != 0") && length > 0)
        m_text = Cut(std::wstring_view(text, static_cast<std::size_t>(length)));
}

wchar_t QzStringW::GetAt(int index) const {
    return IsIndex(index) ? m_text[static_cast<std::size_t>(index)] : L'\0';
}

void QzStringW::SetAt(int index, wchar_t unit) {
    if (IsIndex(index))
        m_text[static_cast<std::size_t>(index)] = unit;
}

wchar_t& QzStringW::operator[](int index) {
    if (IsIndex(index))
        return m_text[static_cast<std::size_t>(index)];
    static thread_local wchar_t s_none;
    return s_none = L'\0';
}

void QzStringW::SetCapacity(int capacity) {
    if (capacity <= GetCapacity() || capacity > MaxLength)
        return;
    try {
        m_text.reserve(static_cast<std::size_t>(capacity));
    } catch (const std::bad_alloc&) {
        // Only a hint: what is then written takes its memory as it goes.
        return;
    }
}

int QzStringW::GetCapacity() const {
    return static_cast<int>(m_text.capacity());
}

QzStringW& QzStringW::MakeUpper() {
    std::transform(m_text.begin(), m_text.end(), m_text.begin(), ToUpper);
    return *this;
}

QzStringW& QzStringW::MakeLower() {
    std::transform(m_text.begin(), m_text.end(), m_text.begin(), ToLower);
    return *this;
}

QzStringW& QzStringW::MakeInverse() {
    std::reverse(m_text.begin(), m_text.end());
    return *this;
}

QzStringW QzStringW::Left(int count) const {
    return count > 0 ? QzStringW(m_text.substr(0, static_cast<std::size_t>(count))) : QzStringW();
}

QzStringW QzStringW::Right(int count) const {
    if (count < 0)
        return *this;
    return count < GetLength() ? Mid(GetLength() - count) : QzStringW();
}

QzStringW QzStringW::Mid(int index) const {
    return Mid(index, MaxLength);
}

QzStringW QzStringW::Mid(int index, int count) const {
    if (count < 0 || index >= GetLength())
        return QzStringW();
    return m_text.substr(static_cast<std::size_t>(std::max(index, 0)), static_cast<std::size_t>(count));
}

int QzStringW::Delete(int index, int count) {
    index = std::max(index, 0);
    if (count > 0 && index < GetLength())
        m_text.erase(static_cast<std::size_t>(index), static_cast<std::size_t>(count));
    return GetLength();
}

int QzStringW::Insert(int index, const wchar_t* text) {
    const std::wstring_view added = Text(text);
    if (HasRoomFor(added.size()))
        m_text.insert(static_cast<std::size_t>(std::clamp(index, 0, GetLength())), added);
    return GetLength();
}

int QzStringW::Insert(int index, wchar_t unit, int count) {
    if (count > 0 && HasRoomFor(static_cast<std::size_t>(count)))
        m_text.insert(static_cast<std::size_t>(std::clamp(index, 0, GetLength())), static_cast<std::size_t>(count),
                      unit);
    return GetLength();
}

int QzStringW::Remove(wchar_t unit) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < m_text.size(); ++i) {
        // The unit that moves up into an erased one's place is stepped over.
        if (m_text[i] == unit && ++i == m_text.size())
            break;
        m_text[kept++] = m_text[i];
    }
    const std::size_t removed = m_text.size() - kept;
    m_text.resize(kept);
    return static_cast<int>(removed);
}

QzStringW& QzStringW::TrimLeft() {
    m_text.erase(0, m_text.find_first_not_of(WhiteSpace));
    return *this;
}

QzStringW& QzStringW::TrimRight() {
    m_text.erase(m_text.find_last_not_of(WhiteSpace) + 1);
    return *this;
}

QzStringW& QzStringW::TrimLeft(wchar_t unit) {
    m_text.erase(0, m_text.find_first_not_of(unit));
    return *this;
}

QzStringW& QzStringW::TrimRight(wchar_t unit) {
    m_text.erase(m_text.find_last_not_of(unit) + 1);
    return *this;
}

QzStringW& QzStringW::TrimLeft(const wchar_t* set) {
    m_text.erase(0, m_text.find_first_not_of(Set(set)));
    return *this;
}

QzStringW& QzStringW::TrimRight(const wchar_t* set) {
    m_text.erase(m_text.find_last_not_of(Set(set)) + 1);
    return *this;
}

int QzStringW::Compare(const wchar_t* text) const {
    return m_text.compare(KELDASSERT_TEXT(text != nullptr, "pstr") ? text : L"");
}

int QzStringW::CompareNoCase(const wchar_t* text) const {
    QzStringW lower(*this);
    return lower.MakeLower().m_text.compare(QzStringW(text).MakeLower().m_text);
}

int QzStringW::Find(wchar_t unit, int start) const {
    return ToIndex(m_text.find(unit, static_cast<std::size_t>(std::max(start, 0))));
}

int QzStringW::Find(const wchar_t* text, int start) const {
    const wchar_t* const sub = KELDASSERT_TEXT(text != nullptr, "lpszSub") ? text : L"";
    return ToIndex(m_text.find(sub, static_cast<std::size_t>(std::max(start, 0))));
}

int QzStringW::ReverseFind(wchar_t unit) const {
    return ToIndex(m_text.rfind(unit));
}

int QzStringW::FindOneOf(const wchar_t* set) const {
    return ToIndex(m_text.find_first_of(Set(set)));
}

QzStringW QzStringW::SpanIncluding(const wchar_t* set) const {
    return m_text.substr(0, m_text.find_first_not_of(Set(set)));
}

QzStringW QzStringW::SpanExcluding(const wchar_t* set) const {
    return m_text.substr(0, m_text.find_first_of(Set(set)));
}

int QzStringW::Replace(wchar_t from, wchar_t to) {
    if (from == to)
        return 0;
    int replaced = 0;
    for (wchar_t& unit : m_text) {
        if (unit == from) {
            unit = to;
            ++replaced;
        }
    }
    return replaced;
}

int QzStringW::Replace(const wchar_t* from, const wchar_t* to) {
    if (from == nullptr || to == nullptr || *from == L'\0')
        return 0;
    const std::wstring_view old(from);
    const std::wstring_view fresh(to);
    // Built beside the old text, so that many replacements cost one pass and not one move of the tail each.
    std::wstring result;
    int replaced = 0;
    std::size_t copied = 0;
    for (std::size_t at = 0; (at = m_text.find(old, at)) != std::wstring::npos; at = copied) {
        result.append(m_text, copied, at - copied).append(fresh);
        copied = at + old.size();
        ++replaced;
        if (!KELDASSERT(result.size() + (m_text.size() - copied) <= MaxLength))
            return 0;
    }
    if (replaced != 0) {
        result.append(m_text, copied, std::wstring::npos);
        m_text = std::move(result);
    }
    return replaced;
}

int QzStringW::Split(KeldArray<QzStringW>& pieces, const QzStringW& delimiters) const {
    // Gathered first: this text, or the delimiters, may be an element of `pieces`.
    KeldArray<QzStringW> found;
    const std::wstring& set = delimiters.m_text;
    std::size_t start = 0;
    while ((start = m_text.find_first_not_of(set, start)) != std::wstring::npos) {
        const std::size_t end = std::min(m_text.find_first_of(set, start), m_text.size());
        found.Add(m_text.substr(start, end - start));
        start = end;
    }
    for (QzStringW& piece : found)
        pieces.Add(std::move(piece));
    return found.GetSize();
}

KeldMBString QzStringW::ToString(KELDCharset::Charset charset) const {
    charset = Resolve(charset);
    KeldMBString text;
    QzTextCodec codec(charset, GetWideCharset());
    codec.Convert(text, reinterpret_cast<const char*>(m_text.c_str()), GetLength() * static_cast<int>(sizeof(wchar_t)));
    text.SetCharset(charset);
    return text;
}

void QzStringW::FromString(const KeldMBString& text, KELDCharset::Charset charset) {
    m_text.clear();
    KeldMBString wide;
    QzTextCodec codec(GetWideCharset(), Resolve(charset));
    if (!codec.Convert(wide, text))
        return;
    const std::size_t size = static_cast<std::size_t>(wide.GetLength());
    // Bytes that no conversion has seen may end within a unit: its missing bytes are zero.
    m_text.resize((size + sizeof(wchar_t) - 1) / sizeof(wchar_t));
    std::memcpy(m_text.data(), wide.Cstr(), size);
    m_text.resize(std::min(m_text.find(L'\0'), m_text.size()));
}

} // namespace Qzc
