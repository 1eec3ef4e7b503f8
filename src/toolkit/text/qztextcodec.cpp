#include "toolkit/qztextcodec.h"

#include <cstdint>
#include <cstring>

#include "base/keldsystem.h"
#include "toolkit/text/converter.h"
#include "toolkit/text/widecharset.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

Charset s_globalCharset = KELDCharset::Ansi;
unsigned char s_useGlobalCharset = 0;

} // namespace

void* QzTextCodec::Closed() {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(-1));
}

QzTextCodec::QzTextCodec(Charset to, Charset from) {
    Open(to, from);
}

QzTextCodec::QzTextCodec(const KeldMBString& to, const KeldMBString& from) {
    Open(to, from);
}

QzTextCodec::~QzTextCodec() {
    Close();
}

unsigned char QzTextCodec::Open(const KeldMBString& to, const KeldMBString& from) {
    Close();
    return Hold(Converter::Take(to.View(), from.View()));
}

unsigned char QzTextCodec::Open(Charset to, Charset from) {
    Close();
    return Hold(Converter::Take(ResolveCharset(to), ResolveCharset(from)));
}

unsigned char QzTextCodec::Hold(Converter* converter) {
    if (converter != nullptr) {
        m_handle = converter;
        m_isSameCharset = converter->IsSameCharset();
    }
    return IsOpen();
}

unsigned char QzTextCodec::Convert(KeldMBString& dst, const KeldMBString& src) {
    if (!IsOpen())
        return 0;
    if (m_isSameCharset)
        return Assign(dst, src.View());
    return Convert(dst, src.Cstr(), src.GetLength());
}

unsigned char QzTextCodec::Assign(KeldMBString& dst, std::string_view text) {
    const int length = dst.GetLength();
    return TryCopies<KeldMBString>([&] { dst.Replace(0, length, text); });
}

unsigned char QzTextCodec::Convert(KeldMBString& dst, const char* src, int len) {
    if (!IsOpen())
        return 0;
    if (m_isSameCharset)
        return Assign(dst, src != nullptr ? std::string_view(src) : std::string_view());
    if (len < 0)
        return 0;
    std::string text;
    if (ConvertTo(text, *static_cast<Converter*>(m_handle), src, src != nullptr ? static_cast<std::size_t>(len) : 0,
                  KeldMBString::MaxLength) != Converted::Done)
        return 0;
    const Charset charset = dst.GetCharset();
    dst = KeldMBString(std::move(text));
    dst.SetCharset(charset);
    return 1;
}

unsigned char QzTextCodec::Convert(unsigned char* dst, int dstSize, int& dstLen, const unsigned char* src, int srcLen) {
    if (!IsOpen() || srcLen < 0 || dst == nullptr || (src == nullptr && srcLen != 0))
        return 0;
    const std::size_t length = static_cast<std::size_t>(srcLen);
    if (m_isSameCharset) {
        if (dstSize > srcLen) {
            if (length != 0)
                std::memmove(dst, src, length);
            dstLen = srcLen;
        }
        return 1;
    }
    std::size_t produced = 0;
    if (!static_cast<Converter*>(m_handle)->Convert(reinterpret_cast<const char*>(src), length,
                                                    reinterpret_cast<char*>(dst), length * Converter::Expansion,
                                                    produced) ||
        produced > KeldMBString::MaxLength)
        return 0;
    dstLen = static_cast<int>(produced);
    return 1;
}

int QzTextCodec::GetConvertibleLength(const char* src, int len) {
    if (!IsOpen() || src == nullptr || len <= 0)
        return 0;
    return m_isSameCharset ? len
                           : static_cast<int>(static_cast<Converter*>(m_handle)->ConvertibleLength(
                                 src, static_cast<std::size_t>(len)));
}

unsigned char QzTextCodec::IsOpen() const {
    return m_handle != Closed();
}

void QzTextCodec::Close() {
    if (IsOpen())
        Converter::Give(static_cast<Converter*>(m_handle));
    m_handle = Closed();
    m_isSameCharset = 0;
}

KeldMBString QzTextCodec::GetCharsetName(Charset charset) {
    return KeldSystem::GetCharsetName(charset);
}

Charset QzTextCodec::GetCharset(const KeldMBString& name) {
    return KeldSystem::GetCharset(name);
}

Charset QzTextCodec::GetStrGlobalCharset(const KeldMBString& locale) {
    static constexpr struct {
        const char* part;
        Charset charset;
    } Rules[] = {
        {"JA", KELDCharset::Japanese},    {"JA-JP", KELDCharset::Japanese}, {"ZH-CN", KELDCharset::GB2312},
        {"ZH-HANS", KELDCharset::GB2312}, {"ZH-SG", KELDCharset::Big5},     {"ZH-TW", KELDCharset::Big5},
        {"ZH-HANT", KELDCharset::Big5},   {"ZH-MO", KELDCharset::Big5},     {"ZH-HK", KELDCharset::Big5},
        {"SV-", KELDCharset::Nordic},     {"AR-SA", KELDCharset::Arabic},   {"ES-ES", KELDCharset::Nordic},
    };
    KeldMBString upper = locale;
    upper.MakeUpper();
    for (const auto& rule : Rules) {
        if (upper.Find(rule.part) >= 0)
            return rule.charset;
    }
    return KELDCharset::Current;
}

void QzTextCodec::SetGlobalCharset(Charset charset, unsigned char use) {
    s_globalCharset = charset;
    s_useGlobalCharset = use;
}

void QzTextCodec::SetGlobalCharset(const KeldMBString& locale, unsigned char use) {
    SetGlobalCharset(GetStrGlobalCharset(locale), use);
}

Charset QzTextCodec::GetGlobalCharset() {
    return s_globalCharset;
}

unsigned char QzTextCodec::IsUseGlobalCharset() {
    return s_useGlobalCharset;
}

void QzTextCodec::SetUseGlobalCharset(unsigned char use) {
    s_useGlobalCharset = use;
}

} // namespace Qzc
