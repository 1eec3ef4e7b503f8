#include "toolkit/configuration/registrywriter.h"

#include <algorithm>

#include "toolkit/configuration/entryname.h"
#include "toolkit/xml/xmltext.h"

namespace Qzc {

namespace {

constexpr std::string_view LineEnd = "\r\n";

} // namespace

unsigned char RegistryWriter::Open(const KeldMBString& name, const Attribute& attribute) {
    const KeldMBString tag = TagOfName(name);
    if (tag.IsEmpty())
        return 0;
    Indent();
    StartTag(tag, attribute);
    m_text.Append(LineEnd);
    ++m_depth;
    return 1;
}

void RegistryWriter::Close(const KeldMBString& name) {
    --m_depth;
    Indent();
    EndTag(TagOfName(name));
    m_text.Append(LineEnd);
}

unsigned char RegistryWriter::Leaf(const KeldMBString& name, const KeldMBString& data, const Attribute& attribute) {
    const KeldMBString tag = TagOfName(name);
    if (tag.IsEmpty())
        return 0;
    Indent();
    StartTag(tag, attribute);
    Data(data);
    EndTag(tag);
    m_text.Append(LineEnd);
    return 1;
}

void RegistryWriter::Row(const char* tag, std::initializer_list<std::pair<const char*, KeldMBString>> cells) {
    Indent();
    StartTag(tag, {nullptr, {}});
    for (const auto& [name, text] : cells) {
        StartTag(name, {nullptr, {}});
        Data(text);
        EndTag(name);
    }
    EndTag(tag);
    m_text.Append(LineEnd);
}

// Deep nesting is not indented further, or the blanks would outgrow the rest.
void RegistryWriter::Indent() {
    m_text += KeldMBString('\t', std::min(m_depth, 16));
}

void RegistryWriter::StartTag(const KeldMBString& tag, const Attribute& attribute) {
    m_text.Append("<").Append(tag.View());
    if (attribute.name != nullptr) {
        m_text.Append(" ").Append(std::string_view(attribute.name)).Append("=\"");
        AppendEscaped(m_text, attribute.value.View(), TextIn::Attribute);
        m_text.Append("\"");
    }
    m_text.Append(">");
}

void RegistryWriter::EndTag(const KeldMBString& tag) {
    m_text.Append("</").Append(tag.View()).Append(">");
}

void RegistryWriter::Data(const KeldMBString& text) {
    AppendEscaped(m_text, text.View(), TextIn::Element);
}

} // namespace Qzc
