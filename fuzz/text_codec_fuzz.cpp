// Bytes as text of one charset, through every text type and stream form, into another.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "stream/qzbytearray.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzstringex.h"
#include "toolkit/qzstringucs2le.h"
#include "toolkit/qzstringutf8.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;

namespace {

using Charset = KELDCharset::Charset;

constexpr int Charsets[] = {0,     1,   77,   128,  129,   130,   132,   134,   136,   137,   161,
                            162,   163, 177,  178,  186,   204,   222,   238,   250,   251,   252,
                            253,   254, 1200, 1201, -1,    99,    20127, 20866, 28595, 28605, 51932,
                            54936, 437, 951,  37,   50220, 50225, 65000, 70000, 70001, 70013, 70022};

void Require(bool holds) {
    if (!holds)
        std::abort();
}

Charset Choose(std::uint8_t byte) {
    return static_cast<Charset>(Charsets[byte % (sizeof(Charsets) / sizeof(Charsets[0]))]);
}

void CheckTerminated(const QzStringUCS2LE& text) {
    Require(text.GetLength() >= 0 && text.Cstr()[text.GetLength()] == 0);
}

void CheckCodec(const KeldMBString& text, Charset to, Charset from) {
    KeldMBString result("before");
    QzTextCodec codec(to, from);
    const bool converted = codec.Convert(result, text) != 0;
    Require(converted || result == "before");
    if (converted) { // nothing of the first run is left in the second
        KeldMBString again;
        Require(codec.Convert(again, text) && again == result);
    }
    // Copied stretches and steps are what the converter itself makes of the text, which under names with a suffix
    // gets it as it is.
    KeldMBString whole("before");
    const KeldMBString toName = QzTextCodec::GetCharsetName(to);
    const KeldMBString fromName = QzTextCodec::GetCharsetName(from);
    QzTextCodec plain(toName + "//", fromName);
    if (toName != fromName && codec.IsOpen() && plain.IsOpen())
        Require((plain.Convert(whole, text) != 0) == converted && whole == result);

    // What is UTF-8 is so after a way through 32-bit units.
    KeldMBString wide;
    KeldMBString back;
    if (QzTextCodec(KELDCharset::UCS4LE, KELDCharset::UTF8).Convert(wide, text))
        Require(QzTextCodec(KELDCharset::UTF8, KELDCharset::UCS4LE).Convert(back, wide) && back == text);
}

void CheckWide(const KeldMBString& text, Charset to, Charset from) {
    QzStringW wide;
    wide.FromString(text, from);
    Require(std::wcslen(wide.Cstr()) == static_cast<std::size_t>(wide.GetLength()));
    const KeldMBString utf8 = wide.ToString(KELDCharset::UTF8);
    QzStringW back;
    back.FromString(utf8, KELDCharset::UTF8);
    Require(utf8.IsEmpty() || back == wide); // empty: a surrogate that came in as a unit of its own
    wide.ToString(to);

    KeldArray<QzStringW> pieces;
    int left = 0;
    wide.Split(pieces, L" a");
    for (const QzStringW& piece : pieces) {
        Require(!piece.IsEmpty() && piece.FindOneOf(L" a") < 0);
        left += piece.GetLength();
    }
    wide.Replace(L" ", L"");
    wide.Replace(L"a", L"");
    Require(wide.GetLength() == left);
}

void CheckStreams(const KeldMBString& text, Charset to, Charset from) {
    const QzStringUCS2LE units(text, from);
    CheckTerminated(units);
    units.ToString(to);
    QzByteArray array;
    array << units;
    array.Seek(0);
    QzStringUCS2LE copy;
    array >> copy;
    Require(array.IsGood() && copy.GetChars() == units.GetChars());

    QzByteArray input(text.Cstr(), text.GetLength());
    while (input.IsGood() && input.GetRemaining() > 0) {
        input >> copy;
        CheckTerminated(copy);
        QzStringEx string;
        input >> string;
        Require(string.GetLength() <= text.GetLength());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const Charset to = Choose(data[0]);
    const Charset from = Choose(data[1]);
    const KeldMBString text(reinterpret_cast<const char*>(data) + 2, static_cast<int>(size - 2));
    CheckCodec(text, to, from);
    CheckWide(text, to, from);
    CheckStreams(text, to, from);

    const QzStringUTF8 utf8(text, from);
    Require(std::strlen(utf8.Cstr()) == static_cast<std::size_t>(utf8.GetLength()));
    utf8.ToString(to);
    QzHashCode::StringToHashCode(text);
    QzHashCode::FastStringToHashCode(text);
    QzStringEx changed(text);
    changed.SetCharset(from);
    Require(changed.ChangeCharset(to) ? changed.GetCharset() == to : changed == text);
    return 0;
}
