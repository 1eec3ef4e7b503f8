#include "toolkit/qzstringutf8.h"

#include "toolkit/text/converter.h"

namespace Qzc {

namespace {

// Up to the first zero byte.
std::string_view Text(std::string_view bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

} // namespace

QzStringUTF8::QzStringUTF8(const KeldMBString& text, KELDCharset::Charset from) {
    const ConverterUse converter(KELDCharset::UTF8, from);
    const auto size = static_cast<std::size_t>(text.GetLength());
    if (from == KELDCharset::UTF8 || (converter && converter->IsSameCharset()))
        TryMemory([&] { m_text = Text(text.View()); });
    else if (converter && ConvertTo(m_text, *converter, text.Cstr(), size, KeldMBString::MaxLength) == Converted::Done)
        m_text.resize(Text(m_text).size());
}

QzStringUTF8::QzStringUTF8(const QzStringUTF8& other) noexcept {
    *this = other;
}

QzStringUTF8& QzStringUTF8::operator=(const QzStringUTF8& other) noexcept {
    TryMemory([&] { m_text = other.m_text; });
    return *this;
}

KeldMBString QzStringUTF8::ToString(KELDCharset::Charset to) const {
    if (to == KELDCharset::UTF8)
        return KeldMBString(std::string_view(m_text));
    const ConverterUse converter(to, KELDCharset::UTF8);
    if (!converter)
        return KeldMBString();
    std::string text;
    if (converter->IsSameCharset())
        return KeldMBString(Text(m_text));
    ConvertTo(text, *converter, m_text.data(), m_text.size(), KeldMBString::MaxLength);
    KeldMBString result(std::move(text));
    result.TrimRight('\0');
    return result;
}

} // namespace Qzc
