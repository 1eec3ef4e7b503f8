#include "toolkit/qzregistryresource.h"

#include "toolkit/qzmarkup.h"
#include "toolkit/xml/xmltext.h"

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
    KeldMBString messages = "\t<section>\r\n\t\t<ICode>\r\n";
    for (const Entry& message : *this) {
        messages += "\t\t\t<res id=\"";
        AppendEscaped(messages, message.first.View(), "<&>'\"");
        messages += "\">";
        AppendEscaped(messages, message.second.View(), "<&>");
        messages += "</res>\r\n";
    }
    messages += "\t\t</ICode>\r\n\t</section>\r\n";
    return markup.AddSubDoc(messages.Cstr());
}

} // namespace Qzc
