// Feature style strings: tools with parameters, "PEN(c:#ff0000,w:2px);BRUSH(fc:#00ff00)".

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "toolkit/qzstyleexport.h"
#include "toolkit/style/exchange.h"

namespace Qzc {

namespace {

// ---- Writing

std::string ColorText(std::uint32_t color, int alpha) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text = WebColor(color);
    if (alpha < 255) {
        text += Digits[alpha >> 4];
        text += Digits[alpha & 0x0F];
    }
    return text;
}

// Our own symbol, and behind it what others know: it is drawn when they do not know ours.
std::string IdText(const char* tool, int identifier, const char* plain) {
    return "id:\"" + SymbolName(tool, identifier) + ',' + plain + '"';
}

std::string Pen(const QzStyle& style) {
    std::string text = "PEN(c:" + WebColor(style.GetLineColor()) + ",w:" + Decimal(style.GetLineWidth(), 1) + "mm";
    if (style.GetLineStyle() != 0)
        text += ',' + IdText("pen", style.GetLineStyle(), "ogr-pen-0");
    return text + ')';
}

std::string Brush(const QzStyle& style) {
    const int alpha = FromPercent(style.GetFillOpaqueRate(), 255);
    std::string text = "BRUSH(fc:" + ColorText(style.GetFillForeColor(), alpha) +
                       ",bc:" + ColorText(style.GetFillBackColor(), style.GetFillBackOpaque() != 0 ? alpha : 0);
    if (style.GetFillAngle() != 0)
        text += ",a:" + Decimal(style.GetFillAngle(), 1);
    if (style.GetFillStyle() != 0)
        text += ',' + IdText("brush", style.GetFillStyle(), "ogr-brush-0");
    return text + ')';
}

std::string Marker(const QzStyle& style) {
    constexpr const char* FilledCircle = "ogr-sym-3";
    std::string text = "SYMBOL(" + IdText("sym", style.GetMarkerStyle(), FilledCircle) +
                       ",c:" + ColorText(style.GetLineColor(), FromPercent(style.GetFillOpaqueRate(), 255)) +
                       ",s:" + Decimal(style.GetMarkerSize(), 1) + "mm";
    if (style.GetMarkerAngle() != 0)
        text += ",a:" + Decimal(style.GetMarkerAngle(), 1);
    return text + ')';
}

// ---- Reading: first the grammar, then what it means

struct Tool {
    std::string name;
    std::vector<std::pair<std::string, std::string>> parameters;

    const std::string* Find(std::string_view parameter) const {
        for (const auto& [key, value] : parameters) {
            if (key == parameter)
                return &value;
        }
        return nullptr;
    }
};

class Scanner {
public:
    explicit Scanner(std::string_view text) : m_rest(Trimmed(text)) {}

    bool ReadAll(std::vector<Tool>& tools) {
        while (!m_rest.empty()) {
            tools.emplace_back();
            if (!ReadTool(tools.back()))
                return false;
            if (!m_rest.empty() && !Skip(';'))
                return false;
        }
        return !tools.empty();
    }

private:
    bool Skip(char c) {
        m_rest = Trimmed(m_rest);
        if (m_rest.empty() || m_rest[0] != c)
            return false;
        m_rest = Trimmed(m_rest.substr(1));
        return true;
    }
    // Up to one of the delimiters, which must come.
    bool ReadUntil(const char* delimiters, std::string& text) {
        const std::size_t end = m_rest.find_first_of(delimiters);
        if (end == std::string_view::npos)
            return false;
        text = Trimmed(m_rest.substr(0, end));
        m_rest.remove_prefix(end);
        return true;
    }
    bool ReadTool(Tool& tool) {
        if (!ReadUntil("(", tool.name) || tool.name.empty() || !Skip('('))
            return false;
        if (Skip(')'))
            return true;
        do {
            auto& [name, value] = tool.parameters.emplace_back();
            if (!ReadUntil(":,()\"", name) || name.empty() || !Skip(':') || !ReadValue(value))
                return false;
        } while (Skip(','));
        return Skip(')');
    }
    bool ReadValue(std::string& value) {
        if (m_rest.empty() || m_rest[0] != '"')
            return ReadUntil(",)", value);
        std::size_t i = 1;
        for (; i < m_rest.size() && m_rest[i] != '"'; ++i) {
            if (m_rest[i] == '\\' && i + 1 < m_rest.size())
                ++i;
            value += m_rest[i];
        }
        if (i == m_rest.size())
            return false;
        m_rest.remove_prefix(i + 1);
        return true;
    }

    std::string_view m_rest;
};

/// Gives a style what one tool tells, and names what it cannot take.
class ToolReader {
public:
    ToolReader(const Tool& tool, LeftOut& leftOut) : m_tool(tool), m_leftOut(leftOut) {}

    /// Whether the parameter is there and `take` could do something with its text.
    template <class Take>
    bool Read(const char* parameter, Take take) {
        m_known.emplace_back(parameter);
        const std::string* const value = m_tool.Find(parameter);
        if (value == nullptr)
            return false;
        const bool isTaken = take(*value);
        if (!isTaken)
            Miss(parameter);
        return isTaken;
    }
    template <class Set>
    bool ReadColor(const char* parameter, Set set) {
        return Read(parameter, [&](const std::string& text) {
            const auto color = ParseWebColor(text);
            if (color)
                set(color->color, color->alpha);
            return color.has_value();
        });
    }
    template <class Set>
    void ReadLength(const char* parameter, Set set) {
        Read(parameter, [&](const std::string& text) {
            std::string_view unit;
            const auto value = ParseDecimal(text, &unit);
            const double factor = Millimetres(unit);
            if (!value || *value < 0 || factor == 0)
                return false;
            set(*value * factor);
            return true;
        });
    }
    template <class Set>
    void ReadAngle(const char* parameter, Set set) {
        Read(parameter, [&](const std::string& text) {
            const auto value = ParseDecimal(text);
            if (value)
                set(*value);
            return value.has_value();
        });
    }
    /// The first of a list of names that is ours or, as far as it is plain, everybody's. `plain` draws plainly
    /// and `none` draws nothing; false for the latter.
    template <class Set>
    bool ReadId(const char* tool, std::string_view plain, std::string_view none, Set set) {
        bool draws = true;
        set(0);
        Read("id", [&](std::string_view names) {
            while (!names.empty()) {
                const std::size_t comma = std::min(names.find(','), names.size());
                const std::string_view name = Trimmed(names.substr(0, comma));
                names.remove_prefix(std::min(comma + 1, names.size()));
                draws = none.empty() || name != none;
                if (const auto identifier = ParseSymbolName(name, tool))
                    set(*identifier);
                else if (draws && name != plain)
                    continue;
                return true;
            }
            return false;
        });
        return draws;
    }
    void Miss(const char* parameter) { m_leftOut.Add(m_tool.name + ' ' + parameter); }
    void MissUnknown() {
        for (const auto& [name, value] : m_tool.parameters) {
            if (std::find(m_known.begin(), m_known.end(), name) == m_known.end())
                Miss(name.c_str());
        }
    }

private:
    static double Millimetres(std::string_view unit) {
        constexpr std::pair<std::string_view, double> Units[] = {
            {"", 1}, {"mm", 1}, {"cm", 10}, {"in", 25.4}, {"pt", 25.4 / 72}, {"px", MillimetresPerPixel}};
        for (const auto& [name, millimetres] : Units) {
            if (name == unit)
                return millimetres;
        }
        return 0; // so also for units on the ground
    }

    const Tool& m_tool;
    LeftOut& m_leftOut;
    std::vector<std::string> m_known;
};

void ReadPen(ToolReader& pen, QzStyle& style) {
    pen.ReadColor("c", [&](std::uint32_t color, int alpha) {
        style.SetLineColor(color);
        if (alpha != 255)
            pen.Miss("c alpha");
    });
    pen.ReadLength("w", [&](double width) { style.SetLineWidth(width); });
    if (!pen.ReadId("pen", "ogr-pen-0", "ogr-pen-1", [&](int id) { style.SetLineStyle(id); }))
        style.SetLineWidth(0);
}

void ReadBrush(ToolReader& brush, QzStyle& style) {
    brush.ReadColor("fc", [&](std::uint32_t color, int alpha) {
        style.SetFillForeColor(color);
        style.SetFillOpaqueRate(ToPercent(alpha / 255.0));
    });
    const bool hasBack = brush.ReadColor("bc", [&](std::uint32_t color, int alpha) {
        style.SetFillBackColor(color);
        style.SetFillBackOpaque(alpha != 0);
    });
    if (!hasBack)
        style.SetFillBackOpaque(0);
    brush.ReadAngle("a", [&](double angle) { style.SetFillAngle(angle); });
    if (!brush.ReadId("brush", "ogr-brush-0", "ogr-brush-1", [&](int id) { style.SetFillStyle(id); }))
        style.SetFillOpaqueRate(0);
}

void ReadMarker(ToolReader& marker, QzStyle& style) {
    marker.ReadColor("c", [&](std::uint32_t color, int alpha) {
        style.SetLineColor(color);
        style.SetFillOpaqueRate(ToPercent(alpha / 255.0));
    });
    marker.ReadLength("s", [&](double size) {
        style.SetMarkerSize(size);
        style.SetMarkerWidth(size);
        style.SetMarkerHeight(size);
    });
    marker.ReadAngle("a", [&](double angle) { style.SetMarkerAngle(angle); });
    marker.ReadId("sym", "ogr-sym-3", "", [&](int id) { style.SetMarkerStyle(id); });
}

/// A tool that a kind is drawn with, and what a geometry without it looks like.
struct KindTool {
    int kind;
    std::string_view name;
    void (*read)(ToolReader& tool, QzStyle& style);
    void (*miss)(QzStyle& style);
};
constexpr KindTool KindTools[] = {{PointKind, "SYMBOL", ReadMarker, [](QzStyle&) {}},
                                  {LineKind, "PEN", ReadPen, [](QzStyle&) {}},
                                  {RegionKind, "BRUSH", ReadBrush, [](QzStyle& style) { style.SetFillOpaqueRate(0); }},
                                  {RegionKind, "PEN", ReadPen, [](QzStyle& style) { style.SetLineWidth(0); }}};

} // namespace

KeldMBString ToFeatureStyle(const QzStyle& style, int kind, KeldArray<KeldMBString>* pLeftOut) try {
    KeldMBString text;
    switch (kind) {
    case PointKind: text = KeldMBString(Marker(style)); break;
    case LineKind: text = KeldMBString(Pen(style)); break;
    case RegionKind: text = KeldMBString(Brush(style) + ';' + Pen(style)); break;
    default: break;
    }
    TellLeftOut(style, kind, text, FromFeatureStyle, pLeftOut);
    return text;
} catch (const std::bad_alloc&) {
    return KeldMBString();
}

unsigned char FromFeatureStyle(const KeldMBString& text, int kind, QzStyle& style,
                               KeldArray<KeldMBString>* pLeftOut) try {
    LeftOut().Give(pLeftOut);
    std::vector<Tool> tools;
    if (!Scanner(text.View()).ReadAll(tools))
        return 0;
    LeftOut leftOut;
    QzStyle read = style;
    std::vector<const KindTool*> missing;
    for (const KindTool& tool : KindTools) {
        if (tool.kind == kind)
            missing.push_back(&tool);
    }
    const std::size_t needed = missing.size();
    for (const Tool& tool : tools) {
        const auto found = std::find_if(missing.begin(), missing.end(),
                                        [&](const KindTool* kindTool) { return tool.name == kindTool->name; });
        if (found == missing.end()) {
            leftOut.Add(tool.name);
            continue;
        }
        ToolReader reader(tool, leftOut);
        (*found)->read(reader, read);
        reader.MissUnknown();
        missing.erase(found);
    }
    if (missing.size() == needed)
        return 0;
    for (const KindTool* const tool : missing)
        tool->miss(read);
    leftOut.Give(pLeftOut);
    style = std::move(read);
    return 1;
} catch (const std::bad_alloc&) {
    return 0;
}

} // namespace Qzc
