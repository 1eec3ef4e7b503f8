// Stops where the debugger is to look at one value of every type that it has a printer for.

#include <cstdint>
#include <cstdlib>

#include "base/keldarray.h"
#include "base/kelddict.h"
#include "base/keldlist.h"
#include "base/keldtime.h"
#include "toolkit/qzhash.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzstringex.h"
#include "toolkit/qzstringw.h"

using namespace Qzc;

namespace {

template <class... Values>
void Stop(const Values&...) {}

} // namespace

int main() {
    KeldMBString text("a \"b\"\n\\");
    KeldMBString city("\xB1\xB1\xBE\xA9");
    city.SetCharset(KELDCharset::GB2312);
    KeldMBString broken("ab\xB1");
    broken.SetCharset(KELDCharset::UTF8);
    const KeldMBString zero("a\0b", 3);
    const KeldMBString nothing;
    const QzStringEx extended("same");
    const QzStringW wide(L"\u0436\u4E2D");

    KeldArray<int> numbers;
    KeldList<KeldMBString> names;
    const KeldList<int> emptyList;
    KeldDict<int, KeldMBString> byNumber;
    QzHash<int> byName;
    const QzHash<int> emptyHash;
    for (int i = 1; i <= 3; ++i) {
        numbers.Add(i * i);
        names.AddHead(KeldMBString('a', i));
        byNumber.SetAt(10 - i, KeldMBString('x', i));
        byName.SetAt(KeldMBString('k', i), -i);
    }
    const KeldTime moment(1795253696);
    const KeldTime never(INT64_MAX);

    const QzMarkup empty;
    const QzMarkup malformed("<a><b></a>");
    QzMarkup markup("<map><layer name=\"Rivers\"/><layer name=\"Roads\"><item/></layer></map>");
    markup.FindElem("map");
    markup.IntoElem();
    QzMarkup start(markup);
    markup.FindElem("layer");
    markup.SetAttrib("name", "Lakes"); // leaves a gap here, and what follows is told from the text's end
    markup.FindElem("layer");
    markup.FindChildElem("item");

    Stop(text, city, broken, zero, nothing, extended, wide, numbers, names, emptyList, byNumber, byName, emptyHash,
         moment, never, empty, malformed, markup, start);
    return EXIT_SUCCESS;
}
