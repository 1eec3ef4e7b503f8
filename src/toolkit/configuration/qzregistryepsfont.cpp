#include "toolkit/qzregistryepsfont.h"

#include "toolkit/qzmarkup.h"
#include "toolkit/xml/xmltext.h"

namespace Qzc {

void QzRegistryEpsFont::LoadDoc(const KeldMBString& strDoc) {
    LoadFromMarkup(QzMarkup(strDoc.Cstr()));
}

void QzRegistryEpsFont::LoadFromMarkup(const QzMarkup& markup) {
    QzMarkup walk = markup;
    if (!EnterTop(walk))
        return;
    while (walk.FindElem("tml:fontname")) {
        if (!walk.FindChildElem("tml:Qzc"))
            continue;
        const KeldMBString name = walk.GetChildData();
        walk.ResetChildPos();
        SetAt(name, walk.FindChildElem("tml:EPS") ? walk.GetChildData() : KeldMBString());
    }
}

unsigned char QzRegistryEpsFont::SaveDoc(QzMarkup& markup) const {
    KeldMBString fonts;
    for (const Entry& font : *this) {
        fonts += "\t<tml:fontname><tml:Qzc>";
        AppendEscaped(fonts, font.first.View(), "<&>");
        fonts += "</tml:Qzc><tml:EPS>";
        AppendEscaped(fonts, font.second.View(), "<&>");
        fonts += "</tml:EPS></tml:fontname>\r\n";
    }
    return fonts.IsEmpty() || markup.AddSubDoc(fonts.Cstr());
}

} // namespace Qzc
