#pragma once

#include "base/keldcharset.h"

namespace Qzc {

/// What is known of a charset's form, so that some of the converter's work can be left out.
struct CharsetTraits {
    /// Bytes of a unit when units below 0x80, low byte first, are ASCII characters and can be nothing else but the
    /// later byte of a longer character; 0 in other charsets.
    int asciiUnit = 0;
    /// A unit below 0x80 is always a character: ASCII can be found from anywhere in the text.
    bool isSelfEvident = false;
    /// Every character is converted by itself: nothing is held back and no state is left behind.
    bool isStateless = false;
};

constexpr CharsetTraits GetCharsetTraits(KELDCharset::Charset charset) {
    switch (charset) {
    case KELDCharset::UTF8:
    case KELDCharset::ASCII:
    case KELDCharset::Ansi:
    case KELDCharset::Nordic:
    case KELDCharset::EastEurope:
    case KELDCharset::Russian:
    case KELDCharset::Greek:
    case KELDCharset::Turkish:
    case KELDCharset::Arabic:
    case KELDCharset::Baltic:
    case KELDCharset::Thai:
    case KELDCharset::Mac:
    case KELDCharset::KOI8R:
    case KELDCharset::KOI8U:
    case KELDCharset::ISO8859_1:
    case KELDCharset::ISO8859_2:
    case KELDCharset::ISO8859_3:
    case KELDCharset::ISO8859_4:
    case KELDCharset::ISO8859_5:
    case KELDCharset::ISO8859_6:
    case KELDCharset::ISO8859_7:
    case KELDCharset::ISO8859_8:
    case KELDCharset::ISO8859_9:
    case KELDCharset::ISO8859_10:
    case KELDCharset::ISO8859_11:
    case KELDCharset::ISO8859_13:
    case KELDCharset::ISO8859_14:
    case KELDCharset::ISO8859_15:
    case KELDCharset::ISO8859_16:
    case KELDCharset::EUCJP: return {1, true, true};
    case KELDCharset::GB2312:
    case KELDCharset::GB18030:
    case KELDCharset::Big5:
    case KELDCharset::Japanese:
    case KELDCharset::Korean: return {1, false, true};
    case KELDCharset::UCS2LE:
    case KELDCharset::UTF16LE: return {2, true, true};
    case KELDCharset::UCS4LE: return {4, true, true};
    case KELDCharset::UCS2BE:
    case KELDCharset::UTF16BE:
    case KELDCharset::UCS4BE: return {0, false, true};
    default: return {};
    }
}

} // namespace Qzc
