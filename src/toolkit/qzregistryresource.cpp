#include "toolkit/qzregistryresource.h"

#include "toolkit/qzmarkup.h"

namespace Qzc {

namespace {

bool IsTag(const QzMarkup& markup, const char* tag) {
    return markup.GetTagName().CompareNoCase(tag) == 0;
}

} // namespace

void QzRegistryResource::LoadDoc(const KeldMBString& strDoc) {
    LoadFromMarkup(QzMarkup(strDoc.Cstr()));
}

void QzRegistryResource::LoadFromMarkup(const QzMarkup& markup) {
    QzMarkup walk = markup;
    walk.ResetPos();
    if (!walk.FindElem())
        return;
    SetName(walk.GetTagName());
    walk.IntoElem();
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
    QzMarkup messages("<section><ICode/></section>");
    messages.FindElem();
    messages.FindChildElem();
    messages.IntoElem();
    for (const Entry& message : *this) {
        if (!messages.AddChildElem("res", message.second.Cstr()) ||
            !messages.SetChildAttrib("id", message.first.Cstr()))
            return 0;
    }
    return markup.AddSubDoc(messages.GetDoc().Cstr());
}

} // namespace Qzc
