#pragma once

#include <string_view>

#include "base/keldcharset.h"
#include "base/keldmbstring.h"
#include "base/mobaseexport.h"

namespace KELD {

/// The process's charset and the table of charset names. Every function may be called from any thread.
class MOBASE_API KeldSystem {
public:
    /// The current charset: that of the text which this process holds. It starts as the one of the process's
    /// locale; where the program has set none, as the one that the environment (LC_ALL, LC_CTYPE, LANG) asks
    /// for. A plain "C" locale and one whose charset this library does not know start as UTF-8, of which
    /// ASCII is a part.
    static KELDCharset::Charset GetCurCharset();

    /// Sets the current charset. Refused, with false and nothing changed: `Current`, a number without a name, and
    /// charsets in which ASCII bytes mean something else, such as wide text. Text already held is not converted, so set
    /// it once, at the program's start.
    static bool SetCurCharset(KELDCharset::Charset charset);

    /// The name that iconv knows a charset by, and that files declare. `Current` gives the current charset's,
    /// `Wide` that of this platform's wide text. Empty when the number is not in the table.
    ///
    /// Where the registered charset has an extension that files carry under the old label (GB2312: GBK;
    /// Shift_JIS: Windows-31J; EUC-KR: CP949), the number means the extension, so such files convert whole,
    /// and the extension's name is the one given.
    static KeldMBString GetCharsetName(KELDCharset::Charset charset);
    /// The same without a copy: zero-terminated text that stays.
    static std::string_view GetCharsetNameView(KELDCharset::Charset charset);

    /// The number of a charset name, without regard to case. `Unknown` when the name is not in the table.
    static KELDCharset::Charset GetCharset(const KeldMBString& name);

    /// Whether a byte starts a two-byte character in this charset. Always false for charsets in which no byte
    /// below 0x80 is part of a longer character, so a caller who looks for ASCII bytes can ask without
    /// knowing the charset.
    static bool IsLeadByte(KELDCharset::Charset charset, unsigned char byte);
};

} // namespace KELD
