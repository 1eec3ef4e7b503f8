#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

#include "toolkit/qzmarkup.h"

namespace Qzc {

// What a program reads in loops: elements and attributes as small values that are passed by copy.
//     for (const auto layer : markup.Children()) {
//         for (const auto attribute : layer.Attributes())
//             Print(attribute.GetName(), attribute.GetValue());
//         for (const auto item : layer.Children())
//             Print(item.GetTagNameView(), item.GetData());
//     }
// They belong to the document and are valid until it changes; like its own const operations they may be used in
// many threads meanwhile. Views are as those of QzMarkup.

/// One attribute.
class MOTOOLKIT_API QzMarkup::Attribute {
public:
    std::string_view GetNameView() const { return m_name; }       ///< as it stands
    std::string_view GetValueView() const;                        ///< references resolved
    KeldMBString GetName() const { return KeldMBString(m_name); } ///< as it stands
    KeldMBString GetValue() const;                                ///< references resolved

private:
    friend class QzMarkup;
    std::string_view m_name;
    std::string_view m_value; ///< as it stands
    bool m_isQuoted = false;
    bool m_hasEqualsSign = false;
};

/// One element, or none: then all that is read from it is empty.
class MOTOOLKIT_API QzMarkup::Element {
public:
    Element() = default;
    explicit operator bool() const { return m_iPos != 0; } ///< whether there is an element

    std::string_view GetTagNameView() const; ///< the name
    std::string_view GetDataView() const;    ///< the text, as QzMarkup::GetData gives it
    KeldMBString GetTagName() const { return KeldMBString(GetTagNameView()); } ///< the name
    KeldMBString GetData() const;                                              ///< the text
    KeldMBString GetAttrib(const char* szAttrib) const; ///< the value of an attribute, references resolved
    KeldMBString GetSubDoc() const;                     ///< the markup, from start tag to end tag
    ElementRange Children() const;                      ///< the elements in it
    AttributeRange Attributes() const;                  ///< those of its start tag

private:
    friend class QzMarkup;
    Element(const QzMarkup* markup, int iPos) : m_markup(markup), m_iPos(iPos) {}

    const QzMarkup* m_markup = nullptr;
    int m_iPos = 0;
};

/// The children of an element, in order.
class QzMarkup::ElementRange {
public:
    /// An input iterator.
    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Element;
        using difference_type = std::ptrdiff_t;
        using pointer = const Element*;
        using reference = Element;

        Iterator() = default;
        Element operator*() const { return Element(m_markup, m_iPos); }
        Iterator& operator++() {
            m_iPos = m_markup->Pos(m_iPos).iElemNext;
            return *this;
        }
        Iterator operator++(int) {
            const Iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.m_iPos == b.m_iPos; }
        friend bool operator!=(const Iterator& a, const Iterator& b) { return a.m_iPos != b.m_iPos; }

    private:
        friend class ElementRange;
        Iterator(const QzMarkup* markup, int iPos) : m_markup(markup), m_iPos(iPos) {}

        const QzMarkup* m_markup = nullptr;
        int m_iPos = 0;
    };

    Iterator begin() const { return Iterator(m_markup, m_iFirst); }
    Iterator end() const { return Iterator(m_markup, 0); }
    bool empty() const { return m_iFirst == 0; }

private:
    friend class QzMarkup;
    ElementRange(const QzMarkup* markup, int iParent)
        : m_markup(markup), m_iFirst(iParent != 0 ? markup->Pos(iParent).iElemChild : 0) {}

    const QzMarkup* m_markup;
    int m_iFirst;
};

/// The attributes of an element, in order.
class MOTOOLKIT_API QzMarkup::AttributeRange {
public:
    /// An input iterator; what it points to it holds itself.
    class MOTOOLKIT_API Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Attribute;
        using difference_type = std::ptrdiff_t;
        using pointer = const Attribute*;
        using reference = const Attribute&;

        Iterator() = default;
        const Attribute& operator*() const { return m_attribute; }
        const Attribute* operator->() const { return &m_attribute; }
        Iterator& operator++();
        Iterator operator++(int) {
            const Iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.m_next == b.m_next; }
        friend bool operator!=(const Iterator& a, const Iterator& b) { return a.m_next != b.m_next; }

    private:
        friend class AttributeRange;
        friend class QzMarkup;

        const char* m_next = nullptr; ///< where the next attribute is looked for; null behind the last
        const char* m_readable = nullptr;
        Attribute m_attribute;
    };

    Iterator begin() const;
    Iterator end() const { return Iterator(); }

private:
    friend class QzMarkup;
    const char* m_inside = nullptr;   ///< behind the name in the start tag; null for none
    const char* m_readable = nullptr; ///< before it all bytes may be read
};

inline QzMarkup::ElementRange QzMarkup::Element::Children() const {
    return ElementRange(m_markup, m_iPos);
}

inline QzMarkup::ElementRange QzMarkup::Children() const {
    return ElementRange(this, m_iPos);
}

} // namespace Qzc
