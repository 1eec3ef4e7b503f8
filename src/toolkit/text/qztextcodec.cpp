#include "toolkit/qztextcodec.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iconv.h>
#include <memory>

#include "base/keldsystem.h"
#include "toolkit/text/widecharset.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

// No conversion that anybody uses makes more bytes than this of one.
constexpr std::size_t Expansion = 5;

Charset s_globalCharset = KELDCharset::Ansi;
unsigned char s_useGlobalCharset = 0;

// iconv's second parameter is `char**` in one system's header and `const char**` in another's.
class InputPointer {
public:
    explicit InputPointer(const char* text) : m_text(text) {}
    operator char**() { return const_cast<char**>(&m_text); }
    operator const char**() { return &m_text; }

private:
    const char* m_text;
};

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
    m_isSameCharset = to == from;
    // iconv takes an empty name for the locale's charset.
    if (!to.IsEmpty() && !from.IsEmpty())
        m_handle = iconv_open(to.Cstr(), from.Cstr());
    return IsOpen();
}

unsigned char QzTextCodec::Open(Charset to, Charset from) {
    if (to == KELDCharset::Wide || from == KELDCharset::Wide) {
        const Charset wide = GetWideCharset();
        if (wide == KELDCharset::Unknown) {
            Close();
            return 0;
        }
        to = to == KELDCharset::Wide ? wide : to;
        from = from == KELDCharset::Wide ? wide : from;
    }
    const KeldMBString fromName = GetCharsetName(from);
    return Open(GetCharsetName(to), fromName);
}

bool QzTextCodec::ConvertBytes(const char* src, std::size_t length, char* dst, std::size_t room,
                               std::size_t& produced) {
    InputPointer in(src);
    std::size_t inLeft = length;
    std::size_t outLeft = room;
    constexpr std::size_t Failed = static_cast<std::size_t>(-1);
    // A charset with combining marks holds its last letter back until told that nothing follows: the second
    // call tells it, and leaves the descriptor as new.
    if (iconv(m_handle, in, &inLeft, &dst, &outLeft) != Failed && inLeft == 0 &&
        iconv(m_handle, nullptr, nullptr, &dst, &outLeft) != Failed) {
        produced = room - outLeft;
        return true;
    }
    iconv(m_handle, nullptr, nullptr, nullptr, nullptr); // what is left of this text must not meet the next
    return false;
}

unsigned char QzTextCodec::Convert(KeldMBString& dst, const KeldMBString& src) {
    if (!IsOpen())
        return 0;
    if (m_isSameCharset) {
        const Charset charset = dst.GetCharset();
        dst = src;
        dst.SetCharset(charset);
        return 1;
    }
    return Convert(dst, src.Cstr(), src.GetLength());
}

unsigned char QzTextCodec::Convert(KeldMBString& dst, const char* src, int len) {
    if (!IsOpen() || len < 0)
        return 0;
    if (m_isSameCharset) {
        dst.Replace(0, dst.GetLength(), src != nullptr ? std::string_view(src) : std::string_view());
        return 1;
    }
    const std::size_t length = src != nullptr ? static_cast<std::size_t>(len) : 0;
    const std::size_t room = std::min(length * Expansion, std::size_t{KeldMBString::MaxLength});
    // Short texts, which most are, need no allocation for the room; a large one's pages are not touched in
    // vain.
    char small[512];
    const std::unique_ptr<char[]> large(room > sizeof(small) ? new char[room] : nullptr);
    char* const buffer = large != nullptr ? large.get() : small;
    std::size_t produced = 0;
    if (!ConvertBytes(src, length, buffer, room, produced))
        return 0;
    dst.Empty();
    dst.Append(buffer, static_cast<int>(produced));
    return 1;
}

unsigned char QzTextCodec::Convert(unsigned char* dst, int dstSize, int& dstLen, const unsigned char* src, int srcLen) {
    if (!IsOpen() || srcLen < 0 || dst == nullptr || (src == nullptr && srcLen != 0))
        return 0;
    const std::size_t length = static_cast<std::size_t>(srcLen);
    if (m_isSameCharset) {
        if (dstSize > srcLen) {
            if (length != 0)
                std::memcpy(dst, src, length);
            dstLen = srcLen;
        }
        return 1;
    }
    std::size_t produced = 0;
    if (!ConvertBytes(reinterpret_cast<const char*>(src), length, reinterpret_cast<char*>(dst), length * Expansion,
                      produced) ||
        produced > KeldMBString::MaxLength)
        return 0;
    dstLen = static_cast<int>(produced);
    return 1;
}

unsigned char QzTextCodec::IsOpen() const {
    return m_handle != Closed();
}

void QzTextCodec::Close() {
    if (IsOpen())
        iconv_close(m_handle);
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
