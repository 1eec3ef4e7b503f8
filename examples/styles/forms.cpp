#include "forms.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "stream/qzmemorystream.h"
#include "toolkit/qzstyleexport.h"

using namespace Qzc;

namespace {

// ---- The forms

// The sizes of the forms in bytes; 0 for one that does not give the style back.
struct Forms {
    int record = 0;
    int allFields = 0;
    int xml = 0;
    int xml2003 = 0;
    int featureStyle = 0;
    int sld = 0;

    bool AreComplete() const {
        return record != 0 && allFields != 0 && xml != 0 && xml2003 != 0 && featureStyle != 0 && sld != 0;
    }
};

// Fields that a record does not hold are not compared: so it is the bytes that are.
int SizeIfSame(const QzMemoryStream& written, const QzMemoryStream& again) {
    const std::int64_t size = written.GetLength();
    const bool isSame = again.GetLength() == size &&
                        std::memcmp(again.GetData(), written.GetData(), static_cast<std::size_t>(size)) == 0;
    return isSame ? static_cast<int>(size) : 0;
}

int RecordSize(const QzStyle& style, int kind) {
    QzMemoryStream stream;
    QzMemoryStream again;
    QzStyle copy;
    style.Save(stream, kind);
    stream.Seek(0);
    if (!QzStyle::LoadNext(stream, kind, copy))
        return 0;
    copy.Save(again, kind);
    return SizeIfSame(stream, again);
}

int AllFieldsSize(const QzStyle& style) {
    QzMemoryStream stream;
    QzMemoryStream again;
    QzStyle copy;
    style.SaveAll(stream);
    stream.Seek(0);
    if (!copy.LoadAll(stream, static_cast<int>(stream.GetLength())) || !stream.IsGood())
        return 0;
    copy.SaveAll(again);
    return SizeIfSame(stream, again);
}

int XmlSize(const QzStyle& style, int version) {
    const KeldMBString xml = style.ToXML(version, "");
    QzStyle copy;
    copy.FromXML(xml, version);
    // 3D colours are decimals in the text, which hold six digits of them: so the texts are compared.
    return copy.ToXML(version, "") == xml ? xml.GetLength() : 0;
}

// What the text left out must be all that is missing when it is read.
int FeatureStyleSize(const QzStyle& style, int kind) {
    const KeldMBString text = ToFeatureStyle(style, kind);
    QzStyle copy;
    return FromFeatureStyle(text, kind, copy) && ToFeatureStyle(copy, kind) == text ? text.GetLength() : 0;
}

int SldSize(const QzStyle& style, int kind) {
    const KeldMBString text = ToSld(style, kind, "layer");
    QzStyle copy;
    return FromSld(text, kind, copy) && ToSld(copy, kind, "layer") == text ? text.GetLength() : 0;
}

std::string Joined(const KeldArray<KeldMBString>& names) {
    std::string text;
    for (const KeldMBString& name : names)
        text += (text.empty() ? "" : ", ") + std::string(name.View());
    return text.empty() ? "nothing" : text;
}

} // namespace

bool PrintForms(const Legend& legend) {
    std::printf("%-22s %7s %7s %7s %7s %7s %7s\n", "", "record", "fixed", "xml", "2003", "feature", "sld");
    bool areComplete = true;
    for (const Entry* const entry : legend.All()) {
        for (const QzStyle& style : entry->styles) {
            const Forms forms = {RecordSize(style, entry->kind),
                                 AllFieldsSize(style),
                                 XmlSize(style, 0),
                                 XmlSize(style, 20031211),
                                 FeatureStyleSize(style, entry->kind),
                                 SldSize(style, entry->kind)};
            const bool isCasing = entry->styles.size() > 1 && &style == entry->styles.data();
            std::printf("%-22s %7d %7d %7d %7d %7d %7d\n", isCasing ? "  its casing" : entry->name, forms.record,
                        forms.allFields, forms.xml, forms.xml2003, forms.featureStyle, forms.sld);
            areComplete = areComplete && forms.AreComplete();
        }
    }
    return areComplete;
}

void PrintExports(const Entry& entry) {
    for (const QzStyle& style : entry.styles) {
        KeldArray<KeldMBString> leftOut;
        std::printf("\n%s as an XML element:\n%s", entry.name, style.ToXML(20031211, "").Cstr());
        std::printf("\n%s as a feature style:\n%s\n", entry.name, ToFeatureStyle(style, entry.kind, &leftOut).Cstr());
        std::printf("  left out: %s\n", Joined(leftOut).c_str());
        std::printf("\n%s as SLD:\n%s", entry.name,
                    ToSld(style, entry.kind, entry.name, QzSldVersion::Sld10, &leftOut).Cstr());
        std::printf("  left out: %s\n", Joined(leftOut).c_str());
    }
}
