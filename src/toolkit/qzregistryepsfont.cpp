#include "toolkit/qzregistryepsfont.h"

#include "toolkit/qzmarkup.h"

namespace Qzc {

void QzRegistryEpsFont::LoadDoc(const KeldMBString& strDoc) {
    LoadFromMarkup(QzMarkup(strDoc.Cstr()));
}

void QzRegistryEpsFont::LoadFromMarkup(const QzMarkup& markup) {
    QzMarkup walk = markup;
    walk.ResetPos();
    if (!walk.FindElem())
        return;
    SetName(walk.GetTagName());
    walk.IntoElem();
    while (walk.FindElem("tml:fontname")) {
        if (!walk.FindChildElem("tml:Qzc"))
            continue;
        const KeldMBString name = walk.GetChildData();
        walk.ResetChildPos();
        SetAt(name, walk.FindChildElem("tml:EPS") ? walk.GetChildData() : KeldMBString());
    }
}

unsigned char QzRegistryEpsFont::SaveDoc(QzMarkup& markup) const {
    for (const Entry& font : *this) {
        if (!markup.AddElem("tml:fontname") || !markup.AddChildElem("tml:Qzc", font.first.Cstr()) ||
            !markup.AddChildElem("tml:EPS", font.second.Cstr()))
            return 0;
    }
    return 1;
}

} // namespace Qzc
