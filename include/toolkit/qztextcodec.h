#pragma once

#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

class Converter;

/// The one converter between character sets, over iconv.
///
/// A codec is opened from one charset to another and converts any number of texts. It owns the iconv
/// descriptor; one thread uses a codec at a time. Results are booleans: 1 when it worked. Nothing throws; a
/// charset that iconv does not know is a failed Open, after which every Convert fails.
///
/// Each thread keeps the descriptors that its codecs had last, up to 128, so that opening the same pair again costs
/// next to nothing. They are freed with the thread; one that is ended by force leaves them allocated.
class MOTOOLKIT_API QzTextCodec {
public:
    QzTextCodec() = default;                                         ///< closed
    QzTextCodec(KELDCharset::Charset to, KELDCharset::Charset from); ///< opens; IsOpen tells whether that worked
    QzTextCodec(const KeldMBString& to, const KeldMBString& from);   ///< likewise
    ~QzTextCodec();
    QzTextCodec(const QzTextCodec&) = delete;
    QzTextCodec& operator=(const QzTextCodec&) = delete;

    /// Closes what was open, then opens. Two names that are the same text make a codec that copies. An empty
    /// name is no charset, and neither is one with a zero byte. A name may end in what iconv itself understands, such
    /// as
    /// "//IGNORE", which drops the characters that the target charset lacks.
    unsigned char Open(const KeldMBString& to, const KeldMBString& from);
    /// The same by numbers; 132 stands for wide text of this platform's wchar_t.
    unsigned char Open(KELDCharset::Charset to, KELDCharset::Charset from);

    /// Converts all of `src` into `dst`. When any of it cannot be converted (bytes that are no text of the
    /// source charset, a character that the target charset lacks, an incomplete last character, more than
    /// five bytes of output for each of input) or memory runs out, the result is false and `dst` is left as it was. The
    /// charset number of `dst` is not changed.
    unsigned char Convert(KeldMBString& dst, const KeldMBString& src);

    /// The same from `len` bytes at `src`. A codec that copies ignores `len` and takes `src` up to its
    /// terminator: of wide text, which has a zero byte in nearly every unit, just the first byte or so.
    unsigned char Convert(KeldMBString& dst, const char* src, int len);

    /// The same into raw memory: `dst` must have room for 5 * srcLen bytes, whatever `dstSize` says; `dstLen`
    /// becomes the number of bytes written. A codec that copies does so only when dstSize > srcLen; otherwise
    /// it copies nothing, leaves `dstLen` alone and returns true all the same.
    unsigned char Convert(unsigned char* dst, int dstSize, int& dstLen, const unsigned char* src, int srcLen);

    /// How many of `len` bytes at `src` can be converted in front of the first character that cannot: all of them for
    /// a text that is one as a whole. A codec that copies takes anything.
    int GetConvertibleLength(const char* src, int len);

    unsigned char IsOpen() const; ///< whether Convert can do anything
    void Close();                 ///< gives back the descriptor; nothing happens when it is closed

    static KeldMBString GetCharsetName(KELDCharset::Charset charset); ///< see KeldSystem::GetCharsetName
    static KELDCharset::Charset GetCharset(const KeldMBString& name); ///< see KeldSystem::GetCharset

    /// The charset number of a locale name such as "zh-CN", judged by the first of a list of substrings found
    /// in it, without regard to case: ja 128; zh-cn, zh-hans 134; zh-sg, zh-tw, zh-hant, zh-mo, zh-hk 136;
    /// sv-, es-es 137; ar-sa 178; any other 1.
    static KELDCharset::Charset GetStrGlobalCharset(const KeldMBString& locale);

    /// The global charset and whether to use it: held for callers, consulted by nothing in this library. No lock guards
    /// them.
    static void SetGlobalCharset(KELDCharset::Charset charset, unsigned char use);
    static void SetGlobalCharset(const KeldMBString& locale, unsigned char use);
    static KELDCharset::Charset GetGlobalCharset();     ///< 0 at first
    static unsigned char IsUseGlobalCharset();          ///< 0 at first
    static void SetUseGlobalCharset(unsigned char use); ///< 1 or 0

private:
    void* m_handle = Closed();
    unsigned char m_isSameCharset = 0;

    static void* Closed();
    static unsigned char Assign(KeldMBString& dst, std::string_view text);
    unsigned char Hold(Converter* converter);
};

} // namespace Qzc
