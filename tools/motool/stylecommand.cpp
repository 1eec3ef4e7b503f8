#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

#include "commands.h"
#include "stream/qzfile.h"
#include "stream/qzmemorystream.h"
#include "stylesource.h"
#include "svgdrawing.h"
#include "system.h"
#include "toolkit/qzstyle.h"
#include "toolkit/qzstyleexport.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace Motool {

namespace {

struct StyleOptions {
    std::string file;
    std::string kind;
    std::string to;
    std::string output;
    std::string name;
    std::int64_t number = 0;
};

using Put = std::function<bool(std::string_view)>; ///< takes output; false when it cannot be written

std::string Text(const KeldMBString& text) {
    return std::string(text.View());
}

// ---- The table

std::string Decimal(double value) {
    KeldMBString text;
    text.Format("%.10g", value);
    return Text(text);
}

std::string Symbol(const unsigned char* bytes, unsigned int length) {
    return bytes == nullptr ? "none" : Plural(length, "byte", "bytes");
}

const char* GradientName(unsigned char type) {
    constexpr const char* Names[] = {"none", "linear", "radial", "conical", "square"};
    return type < std::size(Names) ? Names[type] : "unknown";
}

const char* YesNo(unsigned char flag) {
    return flag != 0 ? "yes" : "no";
}

std::string Colour3D(const QzColorValue3D& colour) {
    KeldMBString alpha;
    alpha.Format("%.3g", colour.alpha);
    return Text(QzStyle::ConvertRGBColor(colour.GetValue())) + ", alpha " + Text(alpha);
}

/// One style, a field a row.
void PrintFields(const QzStyle& style, int kind) {
    const bool isWhole = kind == NoKind || kind == AllFields;
    Table table({"FIELD", "VALUE"});
    const auto add = [&](const char* field, const std::string& value) { table.Add({field, value}); };
    if (isWhole || kind == Point) {
        add("marker style", Number(style.GetMarkerStyle()));
        add("marker size", Decimal(style.GetMarkerSize()));
        add("marker width", Decimal(style.GetMarkerWidth()));
        add("marker height", Decimal(style.GetMarkerHeight()));
        add("marker angle", Decimal(style.GetMarkerAngle()));
        add("marker symbol", Symbol(style.GetMarkSymbolStyle(), style.GetMarkerSymbolLength()));
    }
    if (isWhole || kind == Line || kind == Region) {
        add("line style", Number(style.GetLineStyle()));
        add("line width", Decimal(style.GetLineWidth()));
    }
    if (kind != Model)
        add("line colour", Text(QzStyle::ConvertRGBColor(style.GetLineColor())));
    if (isWhole || kind == Line || kind == Region)
        add("line symbol", Symbol(style.GetLineSymbolStyle(), style.GetLineSymbolLength()));
    if (isWhole || kind == Region) {
        add("fill style", Number(style.GetFillStyle()));
        add("fill fore colour", Text(QzStyle::ConvertRGBColor(style.GetFillForeColor())));
        add("fill symbol", Symbol(style.GetFillSymbolStyle(), style.GetFillSymbolLength()));
    }
    if (isWhole || kind == Region || kind == Point) {
        add("fill back colour", Text(QzStyle::ConvertRGBColor(style.GetFillBackColor())));
        add("fill back painted", YesNo(style.GetFillBackOpaque()));
        add("fill opaque rate", Number(style.GetFillOpaqueRate()) + " %");
        add("fill gradient", GradientName(style.GetFillGradientType()));
        add("fill angle", Decimal(style.GetFillAngle()));
        add("fill centre", Number(style.GetFillCenterOffsetX()) + ", " + Number(style.GetFillCenterOffsetY()));
    }
    if (style.GetStyleEx() != nullptr) {
        add("3D altitude mode", Number(style.GetAltitudeMode()));
        add("3D bottom altitude", Decimal(static_cast<double>(style.GetBottomAltitude())));
        add("3D extend height", Decimal(static_cast<double>(style.GetExtendHeight())));
        add("3D point colour", Colour3D(style.GetPointColor()));
        add("3D line colour", Colour3D(style.GetLineColor3D()));
        add("3D fill colour", Colour3D(style.GetFillColor()));
        add("3D icon", Text(style.GetIconName()));
        add("3D side texture", Text(style.GetSideTexture()));
        add("3D top texture", Text(style.GetTopTexture()));
    }
    table.Print();
}

/// Several, a style a row.
class StyleTable {
public:
    void Add(const QzStyle& style) {
        const std::string fill = Number(style.GetFillStyle()) + ' ' +
                                 Text(QzStyle::ConvertRGBColor(style.GetFillForeColor())) + ' ' +
                                 Number(style.GetFillOpaqueRate()) + '%';
        m_table.Add({Number(++m_count), Number(style.GetMarkerStyle()) + ' ' + Decimal(style.GetMarkerSize()),
                     Number(style.GetLineStyle()) + ' ' + Decimal(style.GetLineWidth()) + ' ' +
                         Text(QzStyle::ConvertRGBColor(style.GetLineColor())),
                     fill, GradientName(style.GetFillGradientType()), SymbolsOf(style),
                     YesNo(style.GetStyleEx() != nullptr)});
        constexpr int Batch = 1000;
        if (m_count % Batch == 0)
            m_table.Print();
    }
    void Print() { m_table.Print(); }

private:
    static std::string SymbolsOf(const QzStyle& style) {
        std::string symbols;
        symbols += style.GetMarkSymbolStyle() != nullptr ? "marker " : "";
        symbols += style.GetLineSymbolStyle() != nullptr ? "line " : "";
        symbols += style.GetFillSymbolStyle() != nullptr ? "fill " : "";
        return symbols.empty() ? "none" : symbols;
    }

    Table m_table{{"#", "MARKER", "LINE", "FILL", "GRADIENT", "SYMBOLS", "3D"}};
    std::int64_t m_count = 0;
};

// ---- A drawing

bool IsMadeOf(const unsigned char* bytes, unsigned int length, std::string_view characters) {
    constexpr unsigned int Longest = 100000;
    return bytes == nullptr || (length <= Longest && std::all_of(bytes, bytes + length, [&](unsigned char byte) {
                                    return characters.find(static_cast<char>(byte)) != std::string_view::npos;
                                }));
}

/// What can be drawn: symbols that are paths, and lines and markers that leave room for others.
QzStyle Drawable(QzStyle style) {
    constexpr std::string_view Path = "MmLlHhVvCcSsQqTtAaZz0123456789+-.,eE \t\r\n";
    constexpr double Largest = 24;
    const auto leaveOut = [](const char* what) { Warn(std::string("left out: ") + what + ", which is no path"); };
    if (!IsMadeOf(style.GetMarkSymbolStyle(), style.GetMarkerSymbolLength(), Path)) {
        style.ClearMarkSymbolStyle();
        leaveOut("marker symbol");
    }
    if (!IsMadeOf(style.GetLineSymbolStyle(), style.GetLineSymbolLength(), "0123456789. ")) {
        style.ClearLineSymbolStyle();
        leaveOut("line symbol");
    }
    if (!IsMadeOf(style.GetFillSymbolStyle(), style.GetFillSymbolLength(), Path)) {
        style.ClearFillSymbolStyle();
        leaveOut("fill symbol");
    }
    const double larger = std::max(std::abs(style.GetMarkerWidth()), std::abs(style.GetMarkerHeight()));
    if (larger > Largest) {
        style.SetMarkerWidth(style.GetMarkerWidth() * Largest / larger);
        style.SetMarkerHeight(style.GetMarkerHeight() * Largest / larger);
    }
    style.SetLineWidth(std::clamp(style.GetLineWidth(), 0.0, Largest));
    return style;
}

class Samples {
public:
    void Add(const QzStyle& whole, int kind) {
        const QzStyle style = Drawable(whole);
        const double top = m_count++ * Height;
        double left = 0;
        const auto isAsked = [&](int one) { return kind == one || kind == NoKind || kind == AllFields; };
        if (isAsked(Point)) {
            m_drawing.Marker(style, left + Width / 2.0, top + Height / 2.0);
            left += Width;
        }
        if (isAsked(Line)) {
            m_drawing.Line(style, At(left + 20, top + 80) + "l40 -40l40 40l40 -40");
            left += Width;
        }
        if (isAsked(Region)) {
            m_drawing.Region(style, At(left + 20, top + 20) + "h120v80h-120z", {left + 20, top + 20, 120, 80});
            left += Width;
        }
        m_width = std::max(m_width, left);
    }
    std::string Document() const { return m_drawing.Document(static_cast<int>(m_width), m_count * Height); }

private:
    static constexpr int Width = 160;
    static constexpr int Height = 120;

    static std::string At(double x, double y) { return 'M' + Decimal(x) + ' ' + Decimal(y); }

    SvgDrawing m_drawing;
    int m_count = 0;
    double m_width = 0;
};

// ---- Conversions

void TellLeftOut(const KeldArray<KeldMBString>& leftOut) {
    std::string names;
    for (const KeldMBString& name : leftOut)
        names += (names.empty() ? "" : ", ") + Text(name);
    if (!names.empty())
        Warn("left out: " + Escaped(names));
}

std::string Record(const QzStyle& style, int kind) {
    QzMemoryStream stream;
    if (kind == AllFields)
        style.SaveAll(stream);
    else
        style.Save(stream, kind);
    return std::string(reinterpret_cast<const char*>(stream.GetData()), static_cast<std::size_t>(stream.GetLength()));
}

std::string Converted(const QzStyle& style, const StyleOptions& options, int kind) {
    KeldArray<KeldMBString> leftOut;
    KeldMBString text;
    if (options.to == "record")
        return Record(style, kind);
    if (options.to == "xml")
        text = style.ToXML(0, KeldMBString());
    else if (options.to == "xml2003")
        text = style.ToXML(20031211, KeldMBString());
    else if (options.to == "ogr")
        text = ToFeatureStyle(style, kind, &leftOut);
    else
        text = ToSld(style, kind, KeldMBString(options.name), QzSldVersion::Sld10, &leftOut);
    TellLeftOut(leftOut);
    if (!text.IsEmpty() && text[text.GetLength() - 1] != '\n')
        text += '\n';
    return Text(text);
}

// Shows the styles that are asked for; the number of them, below 0 when one cannot be read, or taken.
std::int64_t VisitChosen(const StyleSource& source, std::int64_t number,
                         const std::function<bool(const QzStyle&)>& take) {
    std::int64_t position = 0;
    std::int64_t taken = 0;
    bool isTaken = true;
    const bool isRead = source.Visit([&](const QzStyle& style) {
        ++position;
        if (number != 0 && position != number)
            return true;
        ++taken;
        isTaken = take(style);
        return isTaken && number == 0;
    });
    return isRead && isTaken ? taken : -1;
}

int Convert(const StyleSource& source, const StyleOptions& options, int kind, bool areMany, const Put& put) {
    const bool isXml = options.to == "xml" || options.to == "xml2003";
    std::int64_t count = 0;
    if (options.to == "svg") {
        constexpr std::int64_t Most = 1000;
        Samples samples;
        std::int64_t drawn = 0;
        count = VisitChosen(source, options.number, [&](const QzStyle& style) {
            if (++drawn <= Most)
                samples.Add(style, kind);
            return true;
        });
        if (drawn > Most)
            Warn("left out: all styles but the first " + Number(Most));
        return count > 0 && put(samples.Document()) ? Done : Failed;
    }
    std::string head;
    if (isXml)
        head = Text(QzToolkit::GetXmlFileHeader(QzToolkit::GetCurCharset())) + '\n' + (areMany ? "<zpl:Styles>\n" : "");
    if (!put(head))
        return Failed;
    count = VisitChosen(source, options.number, [&](const QzStyle& style) {
        const std::string text = Converted(style, options, kind);
        if (text.empty())
            Warn("a style cannot be written as " + options.to);
        return !text.empty() && put(text);
    });
    return count > 0 && put(isXml && areMany ? "</zpl:Styles>\n" : "") ? Done : Failed;
}

int Show(const StyleSource& source, const StyleOptions& options, bool areMany) {
    StyleTable table;
    const std::int64_t count = VisitChosen(source, options.number, [&](const QzStyle& style) {
        if (areMany)
            table.Add(style);
        else
            PrintFields(style, source.Kind());
        return true;
    });
    if (areMany)
        table.Print();
    return count > 0 ? Done : Failed;
}

int RunStyle(const StyleOptions& given) {
    StyleOptions options = given;
    const int asked = KindOf(options.kind);
    StyleSource source;
    const int status = source.Open(options.file, asked);
    if (status != Done)
        return status;
    const int kind = asked != NoKind ? asked : source.Kind();
    std::int64_t there = 0;
    const std::int64_t enough = std::max<std::int64_t>(options.number, 2);
    source.Visit([&](const QzStyle&) { return ++there < enough; });
    if (there < std::max<std::int64_t>(options.number, 1))
        return Fail(Shown(options.file) + ": there is no style " + Number(std::max<std::int64_t>(options.number, 1)));
    const bool areMany = options.number == 0 && there > 1;
    if (options.to.empty())
        return options.output.empty() ? Show(source, options, areMany) : FailUsage("-o wants --to");

    const bool wantsKind = options.to == "record" || options.to == "ogr" || options.to == "sld";
    if (wantsKind && (kind == NoKind || (options.to != "record" && kind > Region)))
        return FailUsage("--to " + options.to + " wants --kind point, line or region");
    if (options.to == "sld" && areMany)
        return FailUsage("an SLD holds one style: choose one of them with --number");
    if (options.name.empty()) {
        KeldMBString directory;
        KeldMBString name;
        KeldMBString extension;
        QzFile::SplitPath(FromTerminal(options.file), directory, name, extension);
        options.name = Text(name);
    } else {
        options.name = Text(FromTerminal(options.name));
    }
    if (options.output.empty()) {
        if (options.to == "record" && IsTerminal(Channel::Output))
            return FailUsage("records are no text for a terminal: choose a file with -o");
        return Convert(source, options, kind, areMany, [](std::string_view bytes) {
            PrintBytes(bytes);
            return true;
        });
    }
    KeldMBString error;
    int result = Failed;
    const bool isWritten = QzFile::ReplaceAll(
        PathOf(options.output),
        [&](QzFile& file) {
            result = Convert(source, options, kind, areMany, [&](std::string_view bytes) {
                const auto size = static_cast<std::int64_t>(bytes.size());
                return file.Write(bytes.data(), size) == size;
            });
            return result == Done;
        },
        error);
    if (!isWritten)
        return Fail(Shown(options.output) + " was not written" + (error.IsEmpty() ? "" : ": " + Escaped(error.View())));
    return result;
}

} // namespace

void AddStyleCommand(CLI::App& program, Chosen& chosen) {
    const auto options = std::make_shared<StyleOptions>();
    CLI::App& command = AddCommand(
        program, chosen, "style", "Look at drawing styles, and convert them",
        "FILE is style XML, or a stream of records of one kind. What another form cannot hold is told on standard\n"
        "error. An SVG has samples: a marker, a line and an area, or that of the kind.\n\n"
        "Examples:\n"
        "  motool style road.xml\n"
        "  motool style road.xml --to svg -o road.svg\n"
        "  motool style styles.bin --kind line --number 3 --to sld",
        options, RunStyle);
    command.add_option("FILE", options->file, "the styles")->required();
    command
        .add_option("--kind", options->kind,
                    "the kind of geometry: that of the records, if they do not tell, and that to write; all is the\n"
                    "record of all fields")
        ->check(CLI::IsMember({"point", "line", "region", "model", "all"}))
        ->type_name("KIND");
    command.add_option("--to", options->to, "write them in this form instead of a table")
        ->check(CLI::IsMember({"record", "xml", "xml2003", "ogr", "sld", "svg"}))
        ->type_name("FORM");
    command.add_option("--number", options->number, "only the style of this number, from 1 on")
        ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()).description(""))
        ->type_name("N");
    command.add_option("--name", options->name, "the layer in an SLD, the file's name if not given")->type_name("NAME");
    command.add_option("-o,--output", options->output, "write to this file")->type_name("OUT");
}

} // namespace Motool
