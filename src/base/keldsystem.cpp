#include "base/keldsystem.h"

#include <atomic>

#include "platform/charset.h"

namespace KELD {

namespace {

using Charset = KELDCharset::Charset;

struct CharsetName {
    Charset charset;
    const char* name;
};

// A number's first row holds the name that it is given; the rows after it are names that only map to it.
constexpr CharsetName Names[] = {
    {KELDCharset::UTF8, "UTF-8"},
    {KELDCharset::UTF8, "UTF8"},
    {KELDCharset::GB2312, "GBK"},
    {KELDCharset::GB2312, "GB2312"},
    {KELDCharset::GB2312, "GB_2312-80"},
    {KELDCharset::GB2312, "EUC-CN"},
    {KELDCharset::GB2312, "CP936"},
    {KELDCharset::GB2312, "MS936"},
    {KELDCharset::GB2312, "WINDOWS-936"},
    {KELDCharset::GB18030, "GB18030"},
    {KELDCharset::Big5, "BIG5"},
    {KELDCharset::Big5, "BIG-5"},
    {KELDCharset::Big5, "CN-BIG5"},
    {KELDCharset::Big5, "CP950"},
    {KELDCharset::Japanese, "WINDOWS-31J"},
    {KELDCharset::Japanese, "SHIFT_JIS"},
    {KELDCharset::Japanese, "SHIFT-JIS"},
    {KELDCharset::Japanese, "SJIS"},
    {KELDCharset::Japanese, "X-SJIS"},
    {KELDCharset::Japanese, "MS_KANJI"},
    {KELDCharset::Japanese, "CP932"},
    {KELDCharset::Japanese, "MS932"},
    {KELDCharset::EUCJP, "EUC-JP"},
    {KELDCharset::EUCJP, "EUCJP"},
    {KELDCharset::EUCJP, "X-EUC-JP"},
    {KELDCharset::Korean, "CP949"},
    {KELDCharset::Korean, "EUC-KR"},
    {KELDCharset::Korean, "EUCKR"},
    {KELDCharset::Korean, "UHC"},
    {KELDCharset::Korean, "KS_C_5601-1987"},
    {KELDCharset::Korean, "WINDOWS-949"},
    {KELDCharset::Johab, "JOHAB"},
    {KELDCharset::Johab, "CP1361"},
    {KELDCharset::ASCII, "US-ASCII"},
    {KELDCharset::ASCII, "ASCII"},
    {KELDCharset::ASCII, "ANSI_X3.4-1968"},
    {KELDCharset::ASCII, "ISO646-US"},
    {KELDCharset::Ansi, "WINDOWS-1252"},
    {KELDCharset::Ansi, "CP1252"},
    {KELDCharset::Nordic, "WINDOWS-1252"},
    {KELDCharset::EastEurope, "WINDOWS-1250"},
    {KELDCharset::EastEurope, "CP1250"},
    {KELDCharset::Russian, "WINDOWS-1251"},
    {KELDCharset::Russian, "CP1251"},
    {KELDCharset::Greek, "WINDOWS-1253"},
    {KELDCharset::Greek, "CP1253"},
    {KELDCharset::Turkish, "WINDOWS-1254"},
    {KELDCharset::Turkish, "CP1254"},
    {KELDCharset::Hebrew, "WINDOWS-1255"},
    {KELDCharset::Hebrew, "CP1255"},
    {KELDCharset::Arabic, "WINDOWS-1256"},
    {KELDCharset::Arabic, "CP1256"},
    {KELDCharset::Baltic, "WINDOWS-1257"},
    {KELDCharset::Baltic, "CP1257"},
    {KELDCharset::Vietnamese, "WINDOWS-1258"},
    {KELDCharset::Vietnamese, "CP1258"},
    {KELDCharset::Thai, "CP874"},
    {KELDCharset::Thai, "WINDOWS-874"},
    {KELDCharset::Thai, "TIS-620"},
    {KELDCharset::Mac, "MACINTOSH"},
    {KELDCharset::Mac, "MAC"},
    {KELDCharset::KOI8R, "KOI8-R"},
    {KELDCharset::KOI8U, "KOI8-U"},
    {KELDCharset::ISO8859_1, "ISO-8859-1"},
    {KELDCharset::ISO8859_1, "ISO8859-1"},
    {KELDCharset::ISO8859_1, "ISO_8859-1"},
    {KELDCharset::ISO8859_1, "LATIN1"},
    {KELDCharset::ISO8859_2, "ISO-8859-2"},
    {KELDCharset::ISO8859_2, "ISO8859-2"},
    {KELDCharset::ISO8859_3, "ISO-8859-3"},
    {KELDCharset::ISO8859_3, "ISO8859-3"},
    {KELDCharset::ISO8859_4, "ISO-8859-4"},
    {KELDCharset::ISO8859_4, "ISO8859-4"},
    {KELDCharset::ISO8859_5, "ISO-8859-5"},
    {KELDCharset::ISO8859_5, "ISO8859-5"},
    {KELDCharset::ISO8859_6, "ISO-8859-6"},
    {KELDCharset::ISO8859_6, "ISO8859-6"},
    {KELDCharset::ISO8859_7, "ISO-8859-7"},
    {KELDCharset::ISO8859_7, "ISO8859-7"},
    {KELDCharset::ISO8859_8, "ISO-8859-8"},
    {KELDCharset::ISO8859_8, "ISO8859-8"},
    {KELDCharset::ISO8859_9, "ISO-8859-9"},
    {KELDCharset::ISO8859_9, "ISO8859-9"},
    {KELDCharset::ISO8859_10, "ISO-8859-10"},
    {KELDCharset::ISO8859_10, "ISO8859-10"},
    {KELDCharset::ISO8859_11, "ISO-8859-11"},
    {KELDCharset::ISO8859_11, "ISO8859-11"},
    {KELDCharset::ISO8859_13, "ISO-8859-13"},
    {KELDCharset::ISO8859_13, "ISO8859-13"},
    {KELDCharset::ISO8859_14, "ISO-8859-14"},
    {KELDCharset::ISO8859_14, "ISO8859-14"},
    {KELDCharset::ISO8859_15, "ISO-8859-15"},
    {KELDCharset::ISO8859_15, "ISO8859-15"},
    {KELDCharset::ISO8859_15, "LATIN-9"},
    {KELDCharset::ISO8859_16, "ISO-8859-16"},
    {KELDCharset::ISO8859_16, "ISO8859-16"},
    {KELDCharset::UCS2LE, "UCS-2LE"},
    {KELDCharset::UCS2BE, "UCS-2BE"},
    {KELDCharset::UCS4LE, "UCS-4LE"},
    {KELDCharset::UCS4LE, "UTF-32LE"},
    {KELDCharset::UCS4BE, "UCS-4BE"},
    {KELDCharset::UCS4BE, "UTF-32BE"},
    {KELDCharset::UTF16LE, "UTF-16LE"},
    {KELDCharset::UTF16BE, "UTF-16BE"},
};

Charset ProcessCharset() {
    const Charset charset = KeldSystem::GetCharset(Platform::LocaleCharsetName().c_str());
    return charset == KELDCharset::Unknown || charset == KELDCharset::ASCII ? KELDCharset::UTF8 : charset;
}

std::atomic<Charset>& CurrentCharset() {
    static std::atomic<Charset> s_charset{ProcessCharset()};
    return s_charset;
}

} // namespace

Charset KeldSystem::GetCurCharset() {
    return CurrentCharset().load(std::memory_order_relaxed);
}

bool KeldSystem::SetCurCharset(Charset charset) {
    if (charset == KELDCharset::Current || charset == KELDCharset::Unknown)
        return false;
    CurrentCharset().store(charset, std::memory_order_relaxed);
    return true;
}

KeldMBString KeldSystem::GetCharsetName(Charset charset) {
    if (charset == KELDCharset::Current)
        charset = GetCurCharset();
    if (charset == KELDCharset::Wide)
        charset = sizeof(wchar_t) == 2 ? KELDCharset::UCS2LE : KELDCharset::UCS4LE;
    for (const CharsetName& row : Names) {
        if (row.charset == charset)
            return row.name;
    }
    return KeldMBString();
}

Charset KeldSystem::GetCharset(const KeldMBString& name) {
    for (const CharsetName& row : Names) {
        if (name.CompareNoCase(row.name) == 0)
            return row.charset;
    }
    return KELDCharset::Unknown;
}

bool KeldSystem::IsLeadByte(Charset charset, unsigned char byte) {
    if (byte < 0x80)
        return false;
    if (charset == KELDCharset::Current)
        charset = GetCurCharset();
    switch (charset) {
    case KELDCharset::GB2312:
    case KELDCharset::GB18030: // a four-byte character reads as two pairs
    case KELDCharset::Big5:
    case KELDCharset::Korean:
    case KELDCharset::Johab: return byte >= 0x81 && byte <= 0xFE;
    case KELDCharset::Japanese: return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
    default: return false;
    }
}

} // namespace KELD
