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

namespace MarkupScan {

/// An attribute as it stands in a start tag. Where there is no value it is empty and marks its place.
struct TagAttribute {
    std::string_view name;          ///< as far as the next equals sign, blank or end of the tag
    std::string_view value;         ///< without its quotes
    const char* readable = nullptr; ///< before it all bytes may be read
    bool isQuoted = false;          ///< the value stands in quotes
    bool hasEqualsSign = false;     ///< behind the name
    bool isPlain = false;           ///< the value is known to hold no reference
};

/// How far a scanner has come in a start tag.
struct TagScan {
    const char* next = nullptr;     ///< where the next attribute is looked for
    const char* readable = nullptr; ///< before it all bytes may be read
    const char* block = nullptr;    ///< the bytes looked at last; null for none yet
    unsigned stops = 0;             ///< those of them where values may begin and end, which are still ahead
    unsigned references = 0;        ///< those that start references
};

} // namespace MarkupScan

/// One attribute.
class MOTOOLKIT_API QzMarkup::Attribute {
public:
    std::string_view GetNameView() const { return m_found.name; } ///< as it stands
    /// References resolved.
    std::string_view GetValueView() const { return m_found.isPlain ? m_found.value : GetResolvedView(); }
    /// As it stands.
    KeldMBString GetName() const { return KeldMBString::FromPart(m_found.name, m_found.readable); }
    /// References resolved.
    KeldMBString GetValue() const {
        return m_found.isPlain ? KeldMBString::FromPart(m_found.value, m_found.readable) : GetResolved();
    }

private:
    friend class QzMarkup;
    std::string_view GetResolvedView() const;
    KeldMBString GetResolved() const;

    MarkupScan::TagAttribute m_found;
};

/// One element, or none: then all that is read from it is empty.
class MOTOOLKIT_API QzMarkup::Element {
public:
    Element() = default;
    explicit operator bool() const { return m_iPos != 0; } ///< whether there is an element

    std::string_view GetTagNameView() const;            ///< the name
    std::string_view GetDataView() const;               ///< the text, as QzMarkup::GetData gives it
    KeldMBString GetTagName() const;                    ///< the name
    KeldMBString GetData() const;                       ///< the text
    KeldMBString GetAttrib(const char* szAttrib) const; ///< the value of an attribute, references resolved
    KeldMBString GetSubDoc() const;                     ///< the markup, from start tag to end tag
    inline ElementRange Children() const;               ///< the elements in it
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
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.m_scan.next == b.m_scan.next; }
        friend bool operator!=(const Iterator& a, const Iterator& b) { return a.m_scan.next != b.m_scan.next; }

    private:
        friend class AttributeRange;
        friend class QzMarkup;

        MarkupScan::TagScan m_scan; ///< that looks for nothing behind the last
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
