// QzStyle's XML: two dialects of one element with a child for each field.

#include <algorithm>
#include <array>
#include <string_view>

#include "base/keldassert.h"
#include "toolkit/qzstyle.h"
#include "toolkit/style/stylexml.h"

namespace Qzc {

namespace {

// Symbols are written a little shorter than their length says, and a reader fills them up. More than this is
// no symbol but a length to exhaust the memory with.
constexpr std::int64_t MaxMissingBytes = 65536;

constexpr int GradientCount = 5;
constexpr const char* GradientNames[GradientCount] = {"None", "Linear", "Radial", "Conical", "Square"};

struct SymbolNames {
    const char* block;
    const char* length;
    const char* version;
    const char* bytes;
};
constexpr SymbolNames MarkerSymbolNames = {"zpl:CustomMarkerSymbol", "zpl:MarkerSymbolLength",
                                           "zpl:MarkerSymbolVersion", "zpl:MarkerSymbolString"};
constexpr SymbolNames LineSymbolNames = {"zpl:CustomLineSymbol", "zpl:LineSymbolLength", "zpl:LineSymbolVersion",
                                         "zpl:LineSymbolString"};
constexpr SymbolNames FillSymbolNames = {"zpl:CustomFillSymbol", "zpl:FillSymbolLength", "zpl:FillSymbolVersion",
                                         "zpl:FillSymbolString"};

template <class Symbol>
void AddSymbol(StyleXmlWriter& writer, const SymbolNames& names, const Symbol& symbol) {
    if (symbol.pBytes == nullptr)
        return;
    if (symbol.nLength > QzMarkup::MaxValueLength / 2) {
        writer.Check(false);
        return;
    }
    KeldMBString bytes;
    QzStyle::ByteConver2String(symbol.pBytes.get(), static_cast<int>(symbol.nLength), bytes);
    writer.Into(names.block);
    writer.AddUnsigned(names.length, symbol.nLength);
    writer.AddUnsigned(names.version, symbol.nVersion);
    writer.AddData(names.bytes, bytes);
    writer.Out();
}

template <class Symbol>
void ReadSymbol(StyleXmlReader& reader, const SymbolNames& names, Symbol& symbol) {
    if (!reader.Find(names.block))
        return;
    std::uint32_t length = 0; // a negative one becomes one that is far too large
    KeldMBString text;
    reader.Into();
    reader.ReadUnsigned(names.length, length);
    reader.ReadUnsigned(names.version, symbol.nVersion);
    reader.ReadText(names.bytes, text);
    reader.Out();
    symbol.Clear();
    if (length == 0 || length > text.GetLength() / 2 + MaxMissingBytes || !symbol.Allocate(length))
        return;
    unsigned char* bytes = symbol.pBytes.get();
    QzStyle::StringConver2Byte(bytes, static_cast<int>(length), text);
}

void AddColor(StyleXmlWriter& writer, const char* name, std::uint32_t color) {
    writer.Add(name, QzStyle::ConvertRGBColor(color));
}

void ReadColor(StyleXmlReader& reader, const char* name, std::uint32_t& color) {
    reader.Read(name, [&](const KeldMBString& text) { color = QzStyle::ConvertRGBColor(text); });
}

// The value of a hexadecimal digit, -1 for what is none.
constexpr std::array<signed char, 256> HexValues = [] {
    std::array<signed char, 256> values{};
    for (signed char& value : values)
        value = -1;
    constexpr std::string_view Digits = "0123456789ABCDEFabcdef";
    for (std::size_t i = 0; i < Digits.size(); ++i)
        values[static_cast<unsigned char>(Digits[i])] = static_cast<signed char>(i < 16 ? i : i - 6);
    return values;
}();

int HexDigit(char c) {
    return HexValues[static_cast<unsigned char>(c)];
}

} // namespace

KeldMBString QzStyle::ToXML(int nVersion, const KeldMBString& tag) const {
    KELDASSERT(nVersion == 0 || nVersion >= 20031211);
    if (nVersion == StyleXml2003)
        return ToXML2003(tag.IsEmpty() ? "zpl:GeoStyle" : tag);

    StyleXmlWriter writer(tag.IsEmpty() ? "zpl:Style" : tag);
    const auto addDecimal = [&](const char* name, double value) { writer.Add(name, NumberText::Fixed(value, 2)); };
    const bool hasGradient = m_nFillGradientType < GradientCount;
    writer.AddInteger("zpl:MarkerStyle", m_nMarkerStyle);
    addDecimal("zpl:MarkerSize", GetMarkerSize());
    addDecimal("zpl:MarkerAngle", GetMarkerAngle());
    writer.AddInteger("zpl:MarkerWidth", m_nMarkerWidth);
    writer.AddInteger("zpl:MarkerHeight", m_nMarkerHeight);
    writer.AddInteger("zpl:LineStyle", m_nLineStyle);
    addDecimal("zpl:LineWidth", GetLineWidth());
    AddColor(writer, "zpl:LineColor", m_nLineColor);
    writer.AddInteger("zpl:FillStyle", m_nFillStyle);
    AddColor(writer, "zpl:FillForeColor", m_nFillForeColor);
    AddColor(writer, "zpl:FillBackColor", m_nFillBackColor);
    writer.AddFlag("zpl:FillBackOpaque", m_bFillBackOpaque);
    writer.AddInteger("zpl:FillOpaqueRate", m_nFillOpaqueRate);
    writer.Add("zpl:FillGradientType", GradientNames[hasGradient ? m_nFillGradientType : 0]);
    addDecimal("zpl:FillAngle", GetFillAngle());
    writer.AddInteger("zpl:FillCenterOffsetX", m_nFillCenterOffsetX);
    writer.AddInteger("zpl:FillCenterOffsetY", m_nFillCenterOffsetY);
    AddSymbol(writer, MarkerSymbolNames, m_markerSymbol);
    AddSymbol(writer, LineSymbolNames, m_lineSymbol);
    AddSymbol(writer, FillSymbolNames, m_fillSymbol);
    if (m_pStyleEx != nullptr)
        writer.AddElement(m_pStyleEx->ToXML(nVersion, "zpl:Style3D"));
    return writer.Text();
}

KeldMBString QzStyle::ToXML2003(const KeldMBString& tag) const {
    StyleXmlWriter writer(tag);
    writer.AddInteger("zpl:SymbolStyle", m_nMarkerStyle);
    writer.AddInteger("zpl:SymbolSize", m_nMarkerSize);
    writer.AddInteger("zpl:SymbolAngle", m_nMarkerAngle);
    writer.AddInteger("zpl:LineStyle", m_nLineStyle);
    writer.AddInteger("zpl:LineWidth", m_nLineWidth);
    AddColor(writer, "zpl:LineColor", m_nLineColor);
    writer.AddInteger("zpl:FillStyle", m_nFillStyle);
    AddColor(writer, "zpl:FillForeColor", m_nFillForeColor);
    AddColor(writer, "zpl:FillBackColor", m_nFillBackColor);
    writer.AddFlag("zpl:BackTransparent", m_bFillBackOpaque ? 0 : 1);
    writer.AddInteger("zpl:FillOpaqueRate", m_nFillOpaqueRate);
    writer.AddInteger("zpl:FillGradientType", m_nFillGradientType);
    writer.Add("zpl:FillGradientAngle", NumberText::Fixed(GetFillAngle(), 6));
    writer.AddInteger("zpl:FillCenterOffsetX", m_nFillCenterOffsetX);
    writer.AddInteger("zpl:FillCenterOffsetY", m_nFillCenterOffsetY);
    AddSymbol(writer, MarkerSymbolNames, m_markerSymbol);
    AddSymbol(writer, LineSymbolNames, m_lineSymbol);
    AddSymbol(writer, FillSymbolNames, m_fillSymbol);
    return writer.Text();
}

unsigned char QzStyle::FromXML(const KeldMBString& xml, int nVersion) {
    KELDASSERT(nVersion == 0 || nVersion >= 20031211);
    if (xml.IsEmpty())
        return 0;
    if (nVersion == StyleXml2003) {
        FromXML2003(xml);
        return 1;
    }

    StyleXmlReader reader(xml, StyleXmlReader::Order::AsWritten);
    if (reader.Find("zpl:PointSize")) {
        const unsigned char result = NeedStyleEx().FromXML(xml, 0);
        UpdateStyleAttribute();
        return result;
    }
    const auto readTenths = [&](const char* name, std::int32_t& tenths) {
        reader.Read(name, [&](const KeldMBString& text) { tenths = Tenths(qzatof(text.Cstr())); });
    };
    reader.ReadInteger("zpl:MarkerStyle", m_nMarkerStyle);
    readTenths("zpl:MarkerSize", m_nMarkerSize);
    readTenths("zpl:MarkerAngle", m_nMarkerAngle);
    reader.ReadInteger("zpl:MarkerWidth", m_nMarkerWidth);
    reader.ReadInteger("zpl:MarkerHeight", m_nMarkerHeight);
    reader.ReadInteger("zpl:LineStyle", m_nLineStyle);
    readTenths("zpl:LineWidth", m_nLineWidth);
    ReadColor(reader, "zpl:LineColor", m_nLineColor);
    reader.ReadInteger("zpl:FillStyle", m_nFillStyle);
    ReadColor(reader, "zpl:FillForeColor", m_nFillForeColor);
    ReadColor(reader, "zpl:FillBackColor", m_nFillBackColor);
    reader.ReadFlag("zpl:FillBackOpaque", m_bFillBackOpaque);
    reader.ReadInteger("zpl:FillOpaqueRate", m_nFillOpaqueRate);
    reader.Read("zpl:FillGradientType", [&](const KeldMBString& text) {
        m_nFillGradientType = 0;
        for (int i = 1; i < GradientCount; ++i) {
            if (text.CompareNoCase(GradientNames[i]) == 0)
                m_nFillGradientType = static_cast<unsigned char>(i);
        }
    });
    reader.Read("zpl:FillAngle", [&](const KeldMBString& text) { SetFillAngle(qzatof(text.Cstr())); });
    reader.ReadInteger("zpl:FillCenterOffsetX", m_nFillCenterOffsetX);
    reader.ReadInteger("zpl:FillCenterOffsetY", m_nFillCenterOffsetY);
    ReadSymbol(reader, MarkerSymbolNames, m_markerSymbol);
    ReadSymbol(reader, LineSymbolNames, m_lineSymbol);
    ReadSymbol(reader, FillSymbolNames, m_fillSymbol);
    if (reader.Find("zpl:Style3D")) {
        reader.Into();
        NeedStyleEx().FromXML(reader.Element(), nVersion);
        reader.Out();
    }
    return 1;
}

void QzStyle::FromXML2003(const KeldMBString& xml) {
    StyleXmlReader reader(xml, StyleXmlReader::Order::AsWritten);
    reader.ReadInteger("zpl:SymbolStyle", m_nMarkerStyle);
    reader.Read("zpl:SymbolSize", [&](const KeldMBString& text) { m_nMarkerSize = Truncated(qzatof(text.Cstr())); });
    reader.ReadInteger("zpl:SymbolAngle", m_nMarkerAngle);
    reader.ReadInteger("zpl:LineStyle", m_nLineStyle);
    reader.ReadInteger("zpl:LineWidth", m_nLineWidth);
    ReadColor(reader, "zpl:LineColor", m_nLineColor);
    reader.ReadInteger("zpl:FillStyle", m_nFillStyle);
    ReadColor(reader, "zpl:FillForeColor", m_nFillForeColor);
    ReadColor(reader, "zpl:FillBackColor", m_nFillBackColor);
    reader.Restart(); // some writers put this one elsewhere
    reader.Read("zpl:BackTransparent",
                [&](const KeldMBString& text) { m_bFillBackOpaque = StyleXmlReader::IsTrue(text) ? 0 : 1; });
    reader.ReadInteger("zpl:FillOpaqueRate", m_nFillOpaqueRate);
    reader.ReadInteger("zpl:FillGradientType", m_nFillGradientType);
    reader.Read("zpl:FillGradientAngle", [&](const KeldMBString& text) { SetFillAngle(qzatof(text.Cstr())); });
    reader.ReadInteger("zpl:FillCenterOffsetX", m_nFillCenterOffsetX);
    reader.ReadInteger("zpl:FillCenterOffsetY", m_nFillCenterOffsetY);
    ReadSymbol(reader, MarkerSymbolNames, m_markerSymbol);
    ReadSymbol(reader, LineSymbolNames, m_lineSymbol);
    ReadSymbol(reader, FillSymbolNames, m_fillSymbol);
}

// ---- Colours and symbol bytes as text

KeldMBString QzStyle::ConvertRGBColor(unsigned int color) {
    KeldMBString text("RGB(", 4);
    for (const int part : {KELDREDVAL(color), KELDGREENVAL(color), KELDBLUEVAL(color)})
        text.Append(NumberText::Integer(part).View()).Append(",");
    text.SetAt(text.GetLength() - 1, ')');
    return text;
}

unsigned int QzStyle::ConvertRGBColor(const KeldMBString& text) {
    constexpr auto None = std::string_view::npos;
    if (text.View().find("RGB") == None && text.View().find("rgb") == None)
        return qzatou(text.Cstr());
    const auto numberAt = [&](int index) { return qzatoi(text.Cstr() + std::min(index, text.GetLength())); };
    const auto behindComma = [&](int start) {
        const int comma = text.Find(',', start);
        return comma >= 0 ? comma + 1 : text.GetLength();
    };
    const int green = behindComma(0);
    const int blue = behindComma(green);
    return KELDRGB(numberAt(4), numberAt(green), numberAt(blue));
}

unsigned char QzStyle::ByteConver2String(const unsigned char* bytes, int length, KeldMBString& out) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    constexpr int Group = 4;
    if (length < 0 || (bytes == nullptr && length > 0))
        return 0;
    const int tail = length % Group;
    const int whole = tail != 0 ? length - tail : std::max(length - Group, 0);
    const std::int64_t capacity = std::int64_t{out.GetLength()} + (std::int64_t{length} + Group) * 2;
    out.Reserve(static_cast<int>(std::min<std::int64_t>(capacity, KeldMBString::MaxLength)));
    char text[512];
    char* next = text;
    for (int i = 0; i < whole + tail; ++i) {
        *next++ = Digits[bytes[i] >> 4];
        *next++ = Digits[bytes[i] & 0x0F];
        if (next == text + sizeof(text)) {
            out.Append(text, sizeof(text));
            next = text;
        }
    }
    out.Append(text, static_cast<int>(next - text));
    if (tail != 0)
        out.Append("000000", (Group - tail) * 2);
    return 1;
}

unsigned char QzStyle::StringConver2Byte(unsigned char*& bytes, const int& length, const KeldMBString& text) {
    const std::string_view view = text.View();
    std::size_t at = 0;
    for (int i = 0; i < length; ++i, at += 2) {
        if (at + 2 <= view.size()) {
            const int pair = HexDigit(view[at]) * 16 + HexDigit(view[at + 1]);
            if (pair >= 0 && HexDigit(view[at + 1]) >= 0) {
                bytes[i] = static_cast<unsigned char>(pair);
                continue;
            }
        }
        int value = 0;
        for (std::size_t k = at; k < std::min(at + 2, view.size()); ++k) {
            const int digit = HexDigit(view[k]);
            if (digit < 0)
                break;
            value = value * 16 + digit;
        }
        bytes[i] = static_cast<unsigned char>(value);
    }
    return 1;
}

} // namespace Qzc
