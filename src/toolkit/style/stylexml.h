#pragma once

#include "toolkit/qzmarkup.h"
#include "toolkit/style/numbertext.h"

namespace Qzc {

/// The oldest version of the style XML, and the only one of its dialect.
constexpr int StyleXml2003 = 20031211;

/// Whether XML takes a text in the current charset for a name. QzMarkup's own test is wider.
bool IsXmlName(const KeldMBString& text);

/// One element with one child for each field of a style. What cannot be written makes the whole text empty:
/// nothing is left out silently.
class StyleXmlWriter {
public:
    explicit StyleXmlWriter(const KeldMBString& root)
        : m_isGood(IsXmlName(root) && m_markup.AddElem(root.Cstr(), "") != 0) {}

    void Add(const char* name, const char* text) { Check(m_markup.AddChildElem(name, text)); }
    void Add(const char* name, const KeldMBString& text) {
        Check(text.View().find('\0') == std::string_view::npos);
        Add(name, text.Cstr());
    }
    void Add(const char* name, const NumberText& number) { Add(name, number.Cstr()); }
    void AddInteger(const char* name, int value) { Add(name, NumberText::Integer(value)); }
    void AddUnsigned(const char* name, std::uint32_t value) { AddInteger(name, static_cast<std::int32_t>(value)); }
    void AddFlag(const char* name, unsigned char value) { Add(name, value != 0 ? "TRUE" : "FALSE"); }
    void AddData(const char* name, const KeldMBString& text) {
        Add(name, "");
        Check(m_markup.SetChildData(text.Cstr()));
    }
    void AddElement(const KeldMBString& xml) { Check(m_markup.AddChildSubDoc(xml.Cstr())); }

    // Children of a child.
    void Into(const char* name) {
        Add(name, "");
        m_markup.IntoElem();
    }
    void Out() { m_markup.OutOfElem(); }

    void Check(bool isWritten) { m_isGood = m_isGood && isWritten; }
    KeldMBString Text() const { return m_isGood ? m_markup.GetDoc() : KeldMBString(); }

private:
    QzMarkup m_markup;
    bool m_isGood;
};

/// Looks the children of the top element up by name, forward from the last one found. A read that finds no
/// such child leaves the value as it was.
class StyleXmlReader {
public:
    enum class Order {
        AsWritten, ///< what stands before the last one found is not found any more
        Any        ///< it is, as a second choice
    };

    StyleXmlReader(const KeldMBString& xml, Order order) : m_markup(xml.Cstr()), m_order(order) { m_markup.FindElem(); }

    bool Find(const char* name) {
        if (m_markup.FindChildElem(name))
            return true;
        if (m_order == Order::AsWritten)
            return false;
        Restart();
        return m_markup.FindChildElem(name) != 0;
    }
    void Restart() { m_markup.ResetChildPos(); }
    KeldMBString Data() const { return m_markup.GetChildData(); } ///< of the child found

    /// Gives the text of the child to `set`.
    template <class Set>
    void Read(const char* name, Set set) {
        if (Find(name))
            set(Data());
    }
    void ReadText(const char* name, KeldMBString& value) {
        Read(name, [&](KeldMBString&& text) { value = std::move(text); });
    }
    void ReadFlag(const char* name, unsigned char& value) {
        Read(name, [&](const KeldMBString& text) { value = IsTrue(text); });
    }
    template <class Integer>
    void ReadInteger(const char* name, Integer& value) {
        Read(name, [&](const KeldMBString& text) { value = static_cast<Integer>(qzatoi(text.Cstr())); });
    }
    void ReadUnsigned(const char* name, std::uint32_t& value) {
        Read(name, [&](const KeldMBString& text) { value = qzatou(text.Cstr()); });
    }
    void ReadDecimal(const char* name, double& value) {
        Read(name, [&](const KeldMBString& text) { value = qzatof(text.Cstr()); });
    }

    static unsigned char IsTrue(const KeldMBString& text) { return text.CompareNoCase("TRUE") == 0 ? 1 : 0; }

    // The child found becomes the element whose children are looked up.
    void Into() { m_markup.IntoElem(); }
    void Out() { m_markup.OutOfElem(); }
    KeldMBString Element() const { return m_markup.GetSubDoc(); } ///< after Into: the child's own markup

private:
    QzMarkup m_markup;
    Order m_order;
};

} // namespace Qzc
