#pragma once

#include "base/namespaces.h"

namespace KELD {

/// Charset numbers. Below 256 they are the Windows charset numbers with this system's own beside them (37 is a code
/// page); then come code page numbers, of which only some have a name here, and from 70000 on the numbers of charsets
/// without a code page. KeldSystem maps all of them to names and back.
struct KELDCharset {
    /// The numbers. Those without a remark are named after the charset.
    enum Charset : int {
        Unknown = -1, ///< no charset of this table; never a name that a codec opens

        Ansi = 0,         ///< Western European, windows-1252
        Current = 1,      ///< whatever KeldSystem::GetCurCharset() says at the time of use
        Mac = 77,         ///< Macintosh Roman
        Japanese = 128,   ///< Shift_JIS as Windows writes it
        Korean = 129,     ///< EUC-KR and its extension by Windows
        Johab = 130,      ///< Korean, Johab
        Wide = 132,       ///< wide text of this platform's wchar_t: stands for one of 251 to 254
        GB2312 = 134,     ///< simplified Chinese: GB2312 and its extension GBK
        Big5 = 136,       ///< traditional Chinese
        Nordic = 137,     ///< Swedish and Spanish, windows-1252
        Greek = 161,      ///< windows-1253
        Turkish = 162,    ///< windows-1254
        Vietnamese = 163, ///< windows-1258
        Hebrew = 177,     ///< windows-1255
        Arabic = 178,     ///< windows-1256
        Baltic = 186,     ///< windows-1257
        Russian = 204,    ///< windows-1251
        Thai = 222,       ///< windows-874
        EastEurope = 238, ///< windows-1250

        UTF8 = 250,
        UCS2LE = 251, ///< 2-byte wide text, little-endian
        UCS2BE = 252, ///< 2-byte wide text, big-endian
        UCS4LE = 253, ///< 4-byte wide text, little-endian
        UCS4BE = 254, ///< 4-byte wide text, big-endian

        UTF16LE = 1200,
        UTF16BE = 1201,
        ASCII = 20127,
        KOI8R = 20866,
        KOI8U = 21866,
        ISO8859_1 = 28591, ///< ISO-8859-n is 28590 + n; n = 12 was never assigned
        ISO8859_2 = 28592,
        ISO8859_3 = 28593,
        ISO8859_4 = 28594,
        ISO8859_5 = 28595,
        ISO8859_6 = 28596,
        ISO8859_7 = 28597,
        ISO8859_8 = 28598,
        ISO8859_9 = 28599,
        ISO8859_10 = 28600,
        ISO8859_11 = 28601,
        ISO8859_13 = 28603,
        ISO8859_14 = 28604,
        ISO8859_15 = 28605,
        ISO8859_16 = 28606,
        EUCJP = 51932,
        GB18030 = 54936,

        Big5HKSCS = 951, ///< Big5 with the characters of Hong Kong
        ISO2022JP = 50220,
        ISO2022KR = 50225,
        ISO2022CN = 50227,
        EUCTW = 51950,
        UTF7 = 65000,

        UTF16 = 70000, ///< with a byte-order mark, which tells a reader the order; UTF32 likewise
        UTF32 = 70001,
        UCS2 = 70002, ///< in the machine's own order; UCS4 big-endian
        UCS4 = 70003,
        ISO2022JP2 = 70010,
        ISO2022JP3 = 70011,
        ISO2022CNEXT = 70012,
        EUCJISX0213 = 70013,
        ShiftJISX0213 = 70014,
        KOI8T = 70020,
        KOI8RU = 70021,
        TCVN = 70022,
        VISCII = 70023,
        TSCII = 70024,
        ARMSCII8 = 70025,
        GeorgianPS = 70026,
        GeorgianAcademy = 70027,
        PT154 = 70028,
        RK1048 = 70029,
        HPRoman8 = 70030,
        MIK = 70031
    };
};

} // namespace KELD
