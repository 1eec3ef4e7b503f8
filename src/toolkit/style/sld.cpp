// Symbolizers of OGC's Styled Layer Descriptor 1.0 and, with other prefixes and names, Symbology Encoding 1.1.

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "toolkit/qzmarkup.h"
#include "toolkit/qzstyleexport.h"
#include "toolkit/style/exchange.h"

namespace Qzc {

namespace {

constexpr std::array<const char*, 3> SymbolizerNames = {"PointSymbolizer", "LineSymbolizer", "PolygonSymbolizer"};
constexpr const char* PlainMark = "circle";

// ---- Writing

class SldWriter {
public:
    explicit SldWriter(QzSldVersion version)
        : m_prefix(version == QzSldVersion::Se11 ? "se:" : ""),
          m_parameter(version == QzSldVersion::Se11 ? "se:SvgParameter" : "CssParameter") {
        m_isGood = m_markup.AddElem("StyledLayerDescriptor") != 0;
        m_markup.SetAttrib("version", version == QzSldVersion::Se11 ? "1.1.0" : "1.0.0");
        m_markup.SetAttrib("xmlns", "http://www.opengis.net/sld");
        if (version == QzSldVersion::Se11)
            m_markup.SetAttrib("xmlns:se", "http://www.opengis.net/se");
    }

    /// An element of the document's own, which has no prefix in either version, and one of the symbolizers'.
    void OpenLayer(const char* name) { OpenElement(name); }
    void Open(const char* name) { OpenElement((m_prefix + name).c_str()); }
    void Close() { m_markup.OutOfElem(); }
    void Add(const char* name, const std::string& text) {
        m_isGood = m_isGood && m_markup.AddChildElem((m_prefix + name).c_str(), text.c_str()) != 0;
    }
    void AddParameter(const char* name, const std::string& text) {
        m_markup.AddChildElem(m_parameter, text.c_str());
        m_markup.AddChildAttrib("name", name);
    }
    KeldMBString Text() const { return m_isGood ? m_markup.GetDoc() : KeldMBString(); }

private:
    void OpenElement(const char* name) {
        m_isGood = m_isGood && m_markup.AddChildElem(name) != 0 && m_markup.IntoElem() != 0;
    }

    QzMarkup m_markup;
    bool m_isGood = false;
    std::string m_prefix;
    const char* m_parameter;
};

std::string Pixels(double millimetres) {
    return Decimal(millimetres / MillimetresPerPixel, 4);
}

std::string Part(unsigned char percent) {
    return Decimal(FromPercent(percent, 100) / 100.0, 2);
}

// A stroke and a fill have no place for an identifier; the rule's name, which draws nothing, has.
std::string RuleName(const QzStyle& style, int kind) {
    std::string name;
    if (kind != PointKind && style.GetLineStyle() != 0)
        name = SymbolName("pen", style.GetLineStyle());
    if (kind == RegionKind && style.GetFillStyle() != 0)
        name += (name.empty() ? "" : " ") + SymbolName("brush", style.GetFillStyle());
    return name;
}

void AddStroke(SldWriter& writer, const QzStyle& style) {
    writer.Open("Stroke");
    writer.AddParameter("stroke", WebColor(style.GetLineColor()));
    writer.AddParameter("stroke-width", Pixels(style.GetLineWidth()));
    writer.Close();
}

void AddFill(SldWriter& writer, std::uint32_t color, unsigned char percent) {
    writer.Open("Fill");
    writer.AddParameter("fill", WebColor(color));
    if (percent < 100)
        writer.AddParameter("fill-opacity", Part(percent));
    writer.Close();
}

void AddMark(SldWriter& writer, const QzStyle& style, const std::string& name) {
    writer.Open("Mark");
    writer.Add("WellKnownName", name);
    AddFill(writer, style.GetLineColor(), 100);
    writer.Close();
}

void AddGraphic(SldWriter& writer, const QzStyle& style) {
    writer.Open("Graphic");
    if (style.GetMarkerStyle() != 0)
        AddMark(writer, style, SymbolName("sym", style.GetMarkerStyle()));
    AddMark(writer, style, PlainMark); // for those who do not know the first
    if (style.GetFillOpaqueRate() < 100)
        writer.Add("Opacity", Part(style.GetFillOpaqueRate()));
    writer.Add("Size", Pixels(style.GetMarkerSize()));
    if (style.GetMarkerAngle() != 0)
        writer.Add("Rotation", Decimal(style.GetMarkerAngle(), 1));
    writer.Close();
}

// ---- Reading

/// Walks the document, takes the first symbolizer of the kind and names what it does not take.
class SldReader {
public:
    SldReader(const KeldMBString& xml, int kind, QzStyle& style, LeftOut& leftOut)
        : m_markup(xml.Cstr()), m_kind(kind), m_style(style), m_leftOut(leftOut) {}

    bool Read() {
        if (!m_markup.IsWellFormed() || !m_markup.FindElem())
            return false;
        const KeldMBString tag = m_markup.GetTagName();
        const std::string_view name = Local(tag);
        if (name == SymbolizerNames[static_cast<std::size_t>(m_kind)])
            ReadSymbolizer();
        else if (Level(name) >= 0)
            ReadContainer(Level(name));
        return m_isFound;
    }

private:
    // A name without its prefix.
    static std::string_view Local(const KeldMBString& name) {
        const std::string_view text = name.View();
        return text.substr(text.find(':') + 1);
    }
    // What leads to symbolizers, from the outside in; -1 for everything else. An element is entered only from
    // one of a lower level, so that no document leads deeper than there are levels.
    static int Level(std::string_view name) {
        constexpr std::pair<std::string_view, int> Levels[] = {
            {"StyledLayerDescriptor", 0}, {"NamedLayer", 1}, {"UserLayer", 1}, {"UserStyle", 2},
            {"FeatureTypeStyle", 3},      {"Rule", 4}};
        for (const auto& [known, level] : Levels) {
            if (known == name)
                return level;
        }
        return -1;
    }
    static bool DrawsNothing(std::string_view name) {
        constexpr std::string_view Names[] = {
            "Name", "Title", "Abstract", "Description", "IsDefault", "FeatureTypeName", "SemanticTypeIdentifier"};
        return std::find(std::begin(Names), std::end(Names), name) != std::end(Names);
    }

    /// Each child of the main element; `read` may go into it with Inside.
    template <class ReadChild>
    void ForEachChild(ReadChild read) {
        m_markup.ResetChildPos();
        while (m_markup.FindChildElem()) {
            const KeldMBString tag = m_markup.GetChildTagName();
            read(Local(tag));
        }
    }
    template <class ReadElement>
    void Inside(ReadElement read) {
        m_markup.IntoElem();
        read();
        m_markup.OutOfElem();
    }

    void ReadContainer(int level) {
        ForEachChild([&](std::string_view name) {
            if (name == SymbolizerNames[static_cast<std::size_t>(m_kind)] && !m_isFound)
                Inside([&] { ReadSymbolizer(); });
            else if (Level(name) > level && !m_isFound)
                Inside([&] { ReadContainer(Level(name)); });
            else if (!DrawsNothing(name))
                m_leftOut.Add(name);
            else if (level == Level("Rule") && name == "Name")
                m_ruleName = m_markup.GetChildData();
        });
        if (!m_isFound)
            m_ruleName.Empty();
    }

    void ReadSymbolizer() {
        m_isFound = true;
        const KeldMBString unit = m_markup.GetAttrib("uom");
        m_isPixel = unit.IsEmpty() || unit.View().substr(unit.View().find_last_of('/') + 1) == "pixel";
        if (!m_isPixel)
            m_leftOut.Add("uom");
        bool hasFill = false;
        bool hasStroke = false;
        ForEachChild([&](std::string_view name) {
            if (m_kind == PointKind && name == "Graphic") {
                Inside([&] { ReadGraphic(); });
            } else if (m_kind == RegionKind && name == "Fill") {
                hasFill = true;
                Inside([&] { ReadRegionFill(); });
            } else if (m_kind != PointKind && name == "Stroke") {
                hasStroke = true;
                Inside([&] { ReadLineStroke(); });
            } else if (!DrawsNothing(name)) {
                m_leftOut.Add(name);
            }
        });
        if (m_kind == RegionKind && !hasFill)
            m_style.SetFillOpaqueRate(0);
        if (m_kind != PointKind && !hasStroke)
            m_style.SetLineWidth(0);
        if (m_kind != PointKind)
            m_style.SetLineStyle(RuleIdentifier("pen"));
        if (m_kind == RegionKind)
            m_style.SetFillStyle(RuleIdentifier("brush"));
    }

    int RuleIdentifier(const char* tool) const {
        std::string_view rest = Trimmed(m_ruleName.View());
        while (!rest.empty()) {
            const std::size_t end = std::min(rest.find(' '), rest.size());
            if (const auto identifier = ParseSymbolName(rest.substr(0, end), tool))
                return *identifier;
            rest = Trimmed(rest.substr(end));
        }
        return 0;
    }

    struct Fill {
        std::uint32_t color = KELDRGB(0x80, 0x80, 0x80);
        double opacity = 1;
    };
    struct Stroke {
        std::uint32_t color = KELDRGB(0, 0, 0);
        double width = 1; // in pixels
    };

    Fill ReadFill() {
        Fill fill;
        ReadParameters([&](std::string_view name, std::string_view text) {
            return (name == "fill" && TakeColor(text, fill.color)) ||
                   (name == "fill-opacity" && TakeNumber(text, fill.opacity));
        });
        return fill;
    }
    Stroke ReadStroke() {
        Stroke stroke;
        ReadParameters([&](std::string_view name, std::string_view text) {
            double opacity = 0;
            return (name == "stroke" && TakeColor(text, stroke.color)) ||
                   (name == "stroke-width" && TakeSize(text, stroke.width)) ||
                   (name == "stroke-opacity" && TakeNumber(text, opacity) && opacity == 1);
        });
        return stroke;
    }
    void ReadRegionFill() {
        const Fill fill = ReadFill();
        m_style.SetFillForeColor(fill.color);
        m_style.SetFillOpaqueRate(ToPercent(fill.opacity));
    }
    void ReadLineStroke() {
        const Stroke stroke = ReadStroke();
        m_style.SetLineColor(stroke.color);
        if (m_isPixel)
            m_style.SetLineWidth(stroke.width * MillimetresPerPixel);
    }

    // The marks are alternatives, the best one first.
    void ReadGraphic() {
        constexpr double DefaultSize = 6;
        double size = DefaultSize;
        double angle = 0;
        double opacity = 1;
        Fill fill;
        bool hasMark = false;
        int identifier = 0;
        ForEachChild([&](std::string_view name) {
            if (name == "Mark") {
                if (!hasMark)
                    Inside([&] { ReadMark(fill, identifier); });
                hasMark = true;
            } else if (!(name == "Opacity" && TakeNumber(Value(), opacity)) &&
                       !(name == "Size" && TakeSize(Value(), size)) &&
                       !(name == "Rotation" && TakeNumber(Value(), angle))) {
                m_leftOut.Add(name);
            }
        });
        m_style.SetMarkerStyle(identifier);
        m_style.SetLineColor(fill.color);
        m_style.SetFillOpaqueRate(ToPercent(opacity * fill.opacity));
        m_style.SetMarkerAngle(angle);
        if (!m_isPixel)
            return;
        m_style.SetMarkerSize(size * MillimetresPerPixel);
        m_style.SetMarkerWidth(size * MillimetresPerPixel);
        m_style.SetMarkerHeight(size * MillimetresPerPixel);
    }
    void ReadMark(Fill& fill, int& identifier) {
        bool hasFill = false;
        ForEachChild([&](std::string_view name) {
            if (name == "Fill") {
                hasFill = true;
                Inside([&] { fill = ReadFill(); });
            } else if (name == "Stroke" && !hasFill) { // an outline only: that is the colour which is seen
                Inside([&] { fill.color = ReadStroke().color; });
            } else if (name == "WellKnownName") {
                const std::string text = Value();
                if (const auto known = ParseSymbolName(text, "sym"))
                    identifier = *known;
                else if (text != PlainMark)
                    m_leftOut.Add(name);
            } else {
                m_leftOut.Add(name);
            }
        });
    }

    /// The parameters of a fill or a stroke; `take` tells whether it took one.
    template <class Take>
    void ReadParameters(Take take) {
        ForEachChild([&](std::string_view name) {
            const bool isParameter = name == "CssParameter" || name == "SvgParameter";
            const KeldMBString parameter = isParameter ? m_markup.GetChildAttrib("name") : KeldMBString(name);
            if (!isParameter || !take(parameter.View(), Value()))
                m_leftOut.Add(parameter.View());
        });
    }

    /// The child's text, also where it stands in an expression's literal; empty for any other expression.
    std::string Value() {
        std::string value(Trimmed(m_markup.GetChildData().View()));
        Inside([&] {
            ForEachChild([&](std::string_view name) {
                value = name == "Literal" && value.empty() ? Trimmed(m_markup.GetChildData().View()) : "";
            });
        });
        return value;
    }

    static bool TakeColor(std::string_view text, std::uint32_t& color) {
        const auto parsed = ParseWebColor(text);
        if (parsed)
            color = parsed->color;
        return parsed && parsed->alpha == 255;
    }
    static bool TakeNumber(std::string_view text, double& number) {
        const auto parsed = ParseDecimal(text);
        if (parsed)
            number = *parsed;
        return parsed.has_value();
    }
    bool TakeSize(std::string_view text, double& size) const {
        return m_isPixel && TakeNumber(text, size) && size >= 0;
    }

    QzMarkup m_markup;
    int m_kind;
    QzStyle& m_style;
    LeftOut& m_leftOut;
    bool m_isFound = false;
    bool m_isPixel = true;
    KeldMBString m_ruleName;
};

} // namespace

KeldMBString ToSld(const QzStyle& style, int kind, const KeldMBString& name, QzSldVersion version,
                   KeldArray<KeldMBString>* pLeftOut) try {
    KeldMBString text;
    const bool isDrawn = kind >= PointKind && kind <= RegionKind;
    if (isDrawn && name.View().find('\0') == std::string_view::npos) {
        SldWriter writer(version);
        writer.OpenLayer("NamedLayer");
        writer.Add("Name", name.Cstr());
        writer.OpenLayer("UserStyle");
        writer.Open("FeatureTypeStyle");
        writer.Open("Rule");
        const std::string ruleName = RuleName(style, kind);
        if (!ruleName.empty())
            writer.Add("Name", ruleName);
        writer.Open(SymbolizerNames[static_cast<std::size_t>(kind)]);
        if (kind == PointKind)
            AddGraphic(writer, style);
        if (kind == RegionKind)
            AddFill(writer, style.GetFillForeColor(), style.GetFillOpaqueRate());
        if (kind != PointKind)
            AddStroke(writer, style);
        text = writer.Text();
    }
    TellLeftOut(style, kind, text, FromSld, pLeftOut);
    return text;
} catch (const std::bad_alloc&) {
    return KeldMBString();
}

unsigned char FromSld(const KeldMBString& xml, int kind, QzStyle& style, KeldArray<KeldMBString>* pLeftOut) try {
    LeftOut().Give(pLeftOut);
    if (kind < PointKind || kind > RegionKind)
        return 0;
    LeftOut leftOut;
    QzStyle read = style;
    if (!SldReader(xml, kind, read, leftOut).Read())
        return 0;
    leftOut.Give(pLeftOut);
    style = std::move(read);
    return 1;
} catch (const std::bad_alloc&) {
    return 0;
}

} // namespace Qzc
