#include "toolkit/qzregistryresource.h"

#include "toolkit/configuration/registrywriter.h"
#include "toolkit/qzmarkup.h"

namespace Qzc {

namespace {

bool IsTag(const QzMarkup& markup, const char* tag) {
    return markup.GetTagName().CompareNoCase(tag) == 0;
}

} // namespace

void QzRegistryResource::LoadDoc(const KeldMBString& strDoc) {
    QzRegistry::LoadDoc(strDoc);
}

void QzRegistryResource::LoadFromMarkup(const QzMarkup& markup) {
    QzMarkup walk = markup;
    if (!EnterTop(walk))
        return;
    while (walk.FindElem()) {
        if (!IsTag(walk, "section"))
            continue;
        walk.IntoElem();
        while (walk.FindElem()) {
            if (!IsTag(walk, "ECode") && !IsTag(walk, "ICode"))
                continue;
            walk.IntoElem();
            while (walk.FindElem()) {
                if (IsTag(walk, "res"))
                    SetAt(walk.GetAttrib("id"), walk.GetData());
            }
            walk.OutOfElem();
        }
        walk.OutOfElem();
    }
}

unsigned char QzRegistryResource::SaveDoc(QzMarkup& markup) const {
    RegistryWriter writer;
    writer.Open("section");
    writer.Open("ICode");
    for (const Entry& message : *this)
        writer.Leaf("res", message.second, {"id", message.first});
    writer.Close("ICode");
    writer.Close("section");
    return markup.AddSubDoc(writer.Text().Cstr());
}

} // namespace Qzc
