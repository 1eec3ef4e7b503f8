#include "toolkit/qzstringw.h"

#include <algorithm>
#include <cstring>

#include "base/keldassert.h"
#include "base/stringops.h"
#include "toolkit/text/converter.h"

namespace Qzc {

namespace {

constexpr std::wstring_view WhiteSpace = L"\t\r\n ";

std::wstring_view Set(const wchar_t* set) {
    return KELDASSERT_TEXT(set != nullptr, "lpszCharSet") ? set : std::wstring_view();
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

QzStringW::QzStringW(const wchar_t* text, int length) {
    if (KELDASSERT_TEXT(text != nullptr, "str != 0") && length > 0)
        m_text = CopyOf(std::wstring_view(text, static_cast<std::size_t>(length)));
}

QzStringW& QzStringW::operator=(const QzStringW& other) noexcept {
    TryMemory([&] { m_text = other.m_text; });
    return *this;
}

std::wstring QzStringW::CopyOf(std::wstring_view text) noexcept {
    std::wstring copy;
    if (KELDASSERT(text.size() <= MaxLength))
        TryMemory([&] { copy = text; });
    return copy;
}

QzStringW QzStringW::Join(std::wstring_view a, std::wstring_view b) {
    QzStringW both;
    if (KELDASSERT(a.size() + b.size() <= MaxLength))
        TryMemory([&] {
            both.m_text.reserve(a.size() + b.size());
            both.m_text.append(a).append(b);
        });
    return both;
}

QzStringW& QzStringW::Append(std::wstring_view text) {
    if (HasRoomFor(text.size()))
        TryMemory([&] { m_text.append(text); });
    return *this;
}

wchar_t QzStringW::GetAt(int index) const {
    return IsIndex(index) ? m_text[static_cast<std::size_t>(index)] : L'\0';
}

void QzStringW::SetAt(int index, wchar_t unit) {
    if (IsIndex(index))
        m_text[static_cast<std::size_t>(index)] = unit;
}

wchar_t& QzStringW::Unit(int index) {
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
    std::transform(m_text.begin(), m_text.end(), m_text.begin(), ToUpper<wchar_t>);
    return *this;
}

QzStringW& QzStringW::MakeLower() {
    std::transform(m_text.begin(), m_text.end(), m_text.begin(), ToLower<wchar_t>);
    return *this;
}

QzStringW& QzStringW::MakeInverse() {
    std::reverse(m_text.begin(), m_text.end());
    return *this;
}

QzStringW QzStringW::Left(int count) const {
    return count > 0 ? QzStringW(View().substr(0, static_cast<std::size_t>(count))) : QzStringW();
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
    return View().substr(static_cast<std::size_t>(std::max(index, 0)), static_cast<std::size_t>(count));
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
        TryMemory([&] { m_text.insert(static_cast<std::size_t>(std::clamp(index, 0, GetLength())), added); });
    return GetLength();
}

int QzStringW::Insert(int index, wchar_t unit, int count) {
    if (count > 0 && HasRoomFor(static_cast<std::size_t>(count)))
        TryMemory([&] {
            m_text.insert(static_cast<std::size_t>(std::clamp(index, 0, GetLength())), static_cast<std::size_t>(count),
                          unit);
        });
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
    const std::wstring_view other = Text(text);
    const std::size_t common = std::min(m_text.size(), other.size());
    for (std::size_t i = 0; i < common; ++i) {
        const wchar_t a = ToLower(m_text[i]);
        const wchar_t b = ToLower(other[i]);
        if (a != b)
            return a < b ? -1 : 1;
    }
    return static_cast<int>(m_text.size() > common) - static_cast<int>(other.size() > common);
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
    return View().substr(0, m_text.find_first_not_of(Set(set)));
}

QzStringW QzStringW::SpanExcluding(const wchar_t* set) const {
    return View().substr(0, m_text.find_first_of(Set(set)));
}

int QzStringW::Replace(wchar_t from, wchar_t to) {
    return ReplaceUnits(m_text, from, to);
}

int QzStringW::Replace(const wchar_t* from, const wchar_t* to) {
    if (from == nullptr || to == nullptr)
        return 0;
    return ReplaceParts(m_text, std::wstring_view(from), std::wstring_view(to), MaxLength);
}

int QzStringW::Split(KeldArray<QzStringW>& pieces, const QzStringW& delimiters) const {
    // Gathered first: this text, or the delimiters, may be an element of `pieces`.
    KeldArray<QzStringW> found;
    const std::wstring_view set = delimiters.m_text;
    const bool whole = TryCopies<QzStringW>([&] {
        std::size_t start = 0;
        while ((start = m_text.find_first_not_of(set, start)) != std::wstring::npos) {
            const std::size_t end = std::min(m_text.find_first_of(set, start), m_text.size());
            found.Add(QzStringW(View().substr(start, end - start)));
            start = end;
        }
    });
    const int before = pieces.GetSize();
    for (QzStringW& piece : found) {
        if (!whole || pieces.Add(std::move(piece)) < 0) {
            pieces.RemoveAt(before, pieces.GetSize() - before);
            return 0;
        }
    }
    return found.GetSize();
}

KeldMBString QzStringW::ToString(KELDCharset::Charset charset) const {
    if (charset == KELDCharset::Current)
        charset = KeldSystem::GetCurCharset();
    KeldMBString text;
    const ConverterUse converter(charset, GetWideCharset());
    const char* const bytes = reinterpret_cast<const char*>(m_text.data());
    std::string converted;
    if (converter && converter->IsSameCharset())
        text = KeldMBString(bytes);
    else if (converter && ConvertTo(converted, *converter, bytes, m_text.size() * sizeof(wchar_t),
                                    KeldMBString::MaxLength) == Converted::Done)
        text = KeldMBString(std::move(converted));
    text.SetCharset(charset);
    return text;
}

void QzStringW::FromString(const KeldMBString& text, KELDCharset::Charset charset) {
    const ConverterUse converter(GetWideCharset(), charset);
    const auto size = static_cast<std::size_t>(text.GetLength());
    Converted result = converter.IsMemoryShort() ? Converted::NoMemory : Converted::NoText;
    if (converter && converter->IsSameCharset()) {
        // Bytes that no conversion has seen may end within a unit: its missing bytes are zero.
        std::wstring wide;
        const bool fits = TryMemory([&] { wide.resize((size + sizeof(wchar_t) - 1) / sizeof(wchar_t)); });
        result = fits ? Converted::Done : Converted::NoMemory;
        if (fits) {
            std::memcpy(wide.data(), text.Cstr(), size);
            m_text = std::move(wide);
        }
    } else if (converter) {
        result = ConvertTo(m_text, *converter, text.Cstr(), size, MaxLength);
    }
    if (result == Converted::NoMemory)
        return;
    if (result == Converted::NoText)
        m_text.clear();
    else if (!converter->HasZeroBytesOnly() || std::memchr(text.Cstr(), '\0', size) != nullptr)
        m_text.resize(std::min(m_text.find(L'\0'), m_text.size()));
}

} // namespace Qzc
