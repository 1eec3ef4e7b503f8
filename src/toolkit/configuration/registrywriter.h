#pragma once

#include <initializer_list>
#include <string_view>
#include <utility>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// Builds the markup below a registry's top element as one text: adding element by element would look for each
/// one's place. An element has a line of its own, indented by its depth. What takes a name is false, and the text
/// of no more use, when that can be no tag (see TagOfName).
class RegistryWriter {
public:
    struct Attribute {
        const char* name; ///< null: none
        KeldMBString value;
    };

    const KeldMBString& Text() const { return m_text; }

    unsigned char Open(const KeldMBString& name, const Attribute& attribute = {nullptr, {}});
    void Close(const KeldMBString& name);
    unsigned char Leaf(const KeldMBString& name, const KeldMBString& data, const Attribute& attribute = {nullptr, {}});

    /// An element with others, tag and text, all on one line.
    void Row(const char* tag, std::initializer_list<std::pair<const char*, KeldMBString>> cells);

private:
    void Indent();
    void StartTag(const KeldMBString& tag, const Attribute& attribute);
    void EndTag(const KeldMBString& tag);
    void Data(const KeldMBString& text);

    KeldMBString m_text;
    int m_depth = 1;
};

} // namespace Qzc
