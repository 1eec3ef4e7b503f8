#include "toolkit/qzregistryepsfont.h"

#include "toolkit/configuration/registrywriter.h"
#include "toolkit/qzmarkup.h"

namespace Qzc {

void QzRegistryEpsFont::LoadDoc(const KeldMBString& strDoc) {
    QzRegistry::LoadDoc(strDoc);
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
    RegistryWriter writer;
    for (const Entry& font : *this)
        writer.Row("tml:fontname", {{"tml:Qzc", font.first}, {"tml:EPS", font.second}});
    return writer.Text().IsEmpty() || markup.AddSubDoc(writer.Text().Cstr());
}

} // namespace Qzc
