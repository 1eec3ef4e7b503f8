// QzStyle beside what one would otherwise write: a struct with Qt's QDataStream or Boost.Serialization for
// the records, and with pugixml for the XML.
//
// Records: a million records of the kinds 0, 1 and 2 in turn, saved and loaded again. Every contender writes
// the same fields in the same order, the symbols only where there are any (one style in four has one), into
// memory that was reserved before; each record is loaded into one and the same style. A record of QzStyle has
// its size word in front, which is checked; the others have none.
//
// The same with 3D attributes behind every record: a record of QzStyle is then loaded into a style that has
// them, as a layer that is read has.
//
// XML: one element with a child for each field, built, turned into text, parsed and read into a style.
// QzMarkup's text has line breaks, pugixml writes its own without any, its cheapest form.

#include <cstdint>
#include <cstdio>
#include <streambuf>
#include <string>
#include <vector>

#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <pugixml.hpp>
#include <QtCore/QBuffer>
#include <QtCore/QDataStream>

#include "ratio.h"
#include "stream/qzmemorystream.h"
#include "toolkit/qzstyle.h"

namespace {

constexpr int Records = 1000000;
constexpr int Styles = 999;
constexpr std::int64_t Room = 256LL * Records;

struct PlainSymbol {
    std::vector<unsigned char> bytes;
    std::uint32_t version = 0;

    bool operator==(const PlainSymbol& other) const {
        return bytes == other.bytes && (bytes.empty() || version == other.version);
    }
};

/// The fields of a QzStyle, as a program without the toolkit would keep them.
struct PlainStyle {
    std::int32_t markerStyle = 0;
    std::int32_t markerAngle = 0;
    std::int32_t markerSize = 24;
    std::int32_t markerWidth = 24;
    std::int32_t markerHeight = 24;
    std::int32_t lineStyle = 0;
    std::uint32_t lineColor = 0;
    std::int32_t lineWidth = 1;
    std::int32_t fillStyle = 0;
    std::uint32_t fillBackColor = 0xFFFFFF;
    std::uint32_t fillForeColor = 0xFFEBBD;
    std::int16_t fillAngle = 0;
    std::int16_t fillCenterOffsetX = 0;
    std::int16_t fillCenterOffsetY = 0;
    std::uint8_t fillBackOpaque = 1;
    std::uint8_t fillOpaqueRate = 100;
    std::uint8_t fillGradientType = 0;
    std::uint32_t fixedColor = 0xFFFFFF;
    std::uint8_t isFixedColor = 0;
    std::uint8_t scaleBySymbol = 0;
    PlainSymbol markerSymbol;
    PlainSymbol lineSymbol;
    PlainSymbol fillSymbol;

    bool operator==(const PlainStyle& other) const {
        return fillBackColor == other.fillBackColor && fillForeColor == other.fillForeColor &&
               fillStyle == other.fillStyle && lineColor == other.lineColor && lineStyle == other.lineStyle &&
               lineWidth == other.lineWidth && markerAngle == other.markerAngle && markerSize == other.markerSize &&
               markerStyle == other.markerStyle && fillBackOpaque == other.fillBackOpaque &&
               fillOpaqueRate == other.fillOpaqueRate && fillGradientType == other.fillGradientType &&
               fillAngle == other.fillAngle && fillCenterOffsetX == other.fillCenterOffsetX &&
               fillCenterOffsetY == other.fillCenterOffsetY && markerWidth == other.markerWidth &&
               markerHeight == other.markerHeight && markerSymbol == other.markerSymbol &&
               lineSymbol == other.lineSymbol && fillSymbol == other.fillSymbol;
    }
};

/// The fields of a record of that kind, in its order.
template <class Style, class Visitor>
void VisitRecord(Style& style, int kind, Visitor& visit) {
    const auto visitFill = [&] {
        visit(style.fillOpaqueRate);
        visit(style.fillGradientType);
        visit(style.fillAngle);
        visit(style.fillCenterOffsetX);
        visit(style.fillCenterOffsetY);
    };
    if (kind == 0) {
        visit(style.markerStyle);
        visit(style.markerSize);
        visit(style.markerAngle);
        visit(style.lineColor);
        visit(style.markerWidth);
        visit(style.markerHeight);
        visit(style.markerSymbol);
        visitFill();
        visit(style.fillBackColor);
        return;
    }
    visit(style.lineStyle);
    visit(style.lineWidth);
    visit(style.lineColor);
    if (kind == 2) {
        visit(style.fillStyle);
        visit(style.fillForeColor);
        visit(style.fillBackColor);
        visitFill();
    }
    visit(style.lineSymbol);
    if (kind == 2)
        visit(style.fillSymbol);
}

/// The 3D attributes that records hold.
struct Plain3D {
    std::int32_t stamp = 0;
    std::int32_t altitudeMode = 0;
    double bottomAltitude = 0;
    double extendHeight = 0;
    std::uint32_t pointColor = 0xFFFFFFFF;
    std::uint32_t lineColor = 0xFFFFFFFF;
    std::uint32_t fillColor = 0xFFFFFFFF;
    float pointSize = 4;
    std::string iconName;
    float iconScale = 1;
    double iconAnchor[2] = {0, 0};
    std::uint8_t isMarker3D = 0;
    std::int32_t billboardMode = 0;
    std::uint8_t fixedPixelSize = 1;
    double scaleAndRotation[6] = {1, 1, 1, 0, 0, 0};
    std::string sideTexture;
    std::string topTexture;
    float tiling[4] = {1, 1, 1, 1};
    std::int32_t fill3DMode = 1;
    std::uint32_t pipeSides = 20;
    std::uint8_t fillet = 0;
    std::uint8_t tessellate = 0;
};

template <class Block, class Visitor>
void VisitBlock(Block& block, int kind, Visitor& visit) {
    visit(block.stamp);
    visit(block.altitudeMode);
    visit(block.bottomAltitude);
    visit(block.extendHeight);
    if (kind == 0) {
        visit(block.pointColor);
        visit(block.pointSize);
        visit(block.iconName);
        visit(block.iconScale);
        visit(block.iconAnchor[0]);
        visit(block.iconAnchor[1]);
        visit(block.isMarker3D);
        visit(block.billboardMode);
        visit(block.fixedPixelSize);
        for (auto& value : block.scaleAndRotation)
            visit(value);
        return;
    }
    visit(block.lineColor);
    visit(block.fillColor);
    visit(block.sideTexture);
    if (kind == 2)
        visit(block.topTexture);
    for (int i = 0; i < 2 * kind; ++i)
        visit(block.tiling[i]);
    visit(block.fill3DMode);
    if (kind == 1) {
        visit(block.pipeSides);
        visit(block.fillet);
        visit(block.tessellate);
    }
}

std::uint32_t Length(const PlainSymbol& symbol) {
    return static_cast<std::uint32_t>(symbol.bytes.size());
}

// ---- The styles of every contender, made from the same numbers

Qzc::QzStyle MakeStyle(int i) {
    Qzc::QzStyle style;
    style.SetMarkerStyle(i);
    style.SetMarkerAngle(i % 360);
    style.SetMarkerSize(i % 50 / 10.0);
    style.SetLineStyle(i % 7);
    style.SetLineColor(static_cast<unsigned int>(i * 7919) & 0xFFFFFF);
    style.SetLineWidth(i % 30 / 10.0);
    style.SetFillStyle(i % 5);
    style.SetFillForeColor(static_cast<unsigned int>(i * 104729) & 0xFFFFFF);
    style.SetFillAngle(i % 90);
    std::string bytes(static_cast<std::size_t>(16 + i % 17), static_cast<char>(i));
    auto* const symbol = reinterpret_cast<unsigned char*>(bytes.data());
    const auto length = static_cast<unsigned int>(bytes.size());
    if (i % 4 == 0) {
        style.SetMarkSymbolStyle(symbol, length, 1, 1);
        style.SetLineSymbolStyle(symbol, length, 1, 1);
    }
    return style;
}

void Set3D(Qzc::QzStyle& style) {
    style.SetIconName("lighthouse.png");
    style.SetSideTexture("bricks.png");
    style.SetTopTexture("tiles.png");
    style.SetExtendHeight(12.5F);
    style.SetPointColor(Qzc::QzColorValue3D::Red);
}

Plain3D ToPlain3D(const Qzc::QzStyle& style) {
    Plain3D plain;
    plain.iconName = style.GetIconName().Cstr();
    plain.sideTexture = style.GetSideTexture().Cstr();
    plain.topTexture = style.GetTopTexture().Cstr();
    plain.extendHeight = style.GetExtendHeight();
    plain.pointColor = style.GetPointColor().GetValue();
    return plain;
}

PlainStyle ToPlain(const Qzc::QzStyle& style) {
    KELD::KeldStyle fields;
    style.ToKeldStyle(fields);
    PlainStyle plain;
    plain.markerStyle = fields.nMarkerStyle;
    plain.markerAngle = fields.nMarkerAngle;
    plain.markerSize = fields.nMarkerSize;
    plain.lineStyle = fields.nLineStyle;
    plain.lineColor = fields.nLineColor;
    plain.lineWidth = fields.nLineWidth;
    plain.fillStyle = fields.nFillStyle;
    plain.fillForeColor = fields.nFillForeColor;
    plain.fillAngle = fields.nFillAngle;
    const unsigned char* const symbol = style.GetMarkSymbolStyle();
    if (symbol != nullptr) {
        plain.markerSymbol = {{symbol, symbol + style.GetMarkerSymbolLength()}, 1};
        plain.lineSymbol = plain.markerSymbol;
    }
    return plain;
}

const std::vector<Qzc::QzStyle>& QzStyles() {
    static const std::vector<Qzc::QzStyle> s_styles = [] {
        std::vector<Qzc::QzStyle> styles;
        for (int i = 0; i < Styles; ++i)
            styles.push_back(MakeStyle(i));
        return styles;
    }();
    return s_styles;
}

const std::vector<Qzc::QzStyle>& QzStyles3D() {
    static const std::vector<Qzc::QzStyle> s_styles = [] {
        std::vector<Qzc::QzStyle> styles = QzStyles();
        for (Qzc::QzStyle& style : styles)
            Set3D(style);
        return styles;
    }();
    return s_styles;
}

const std::vector<PlainStyle>& PlainStyles() {
    static const std::vector<PlainStyle> s_styles = [] {
        std::vector<PlainStyle> styles;
        for (const Qzc::QzStyle& style : QzStyles())
            styles.push_back(ToPlain(style));
        return styles;
    }();
    return s_styles;
}

// ---- Records

void SaveQz(benchmark::State& state, const std::vector<Qzc::QzStyle>& styles) {
    Qzc::QzMemoryStream stream;
    stream.Reserve(Room);
    for (auto _ : state) {
        stream.Seek(0);
        for (int i = 0; i < Records; ++i)
            styles[static_cast<std::size_t>(i % Styles)].Save(stream, i % 3);
        stream.Seek(0);
        Qzc::QzStyle style;
        for (int i = 0; i < Records; ++i)
            Qzc::QzStyle::LoadNext(stream, i % 3, style);
        benchmark::DoNotOptimize(style);
        if (stream.GetRemaining() != 0)
            state.SkipWithError("the records do not load");
    }
}
BENCHMARK_CAPTURE(SaveQz, plain, QzStyles())->Name("records/save and load/QzStyle")->Unit(benchmark::kMillisecond);

struct QtWriter {
    QDataStream& stream;

    template <class T>
    void operator()(const T& value) {
        stream << value;
    }
    void operator()(const PlainSymbol& symbol) {
        stream << Length(symbol);
        if (!symbol.bytes.empty()) {
            stream.writeRawData(reinterpret_cast<const char*>(symbol.bytes.data()),
                                static_cast<int>(symbol.bytes.size()));
            stream << symbol.version;
        }
    }
    void operator()(const std::string& text) {
        stream << static_cast<quint32>(text.size());
        stream.writeRawData(text.data(), static_cast<int>(text.size()));
    }
    void operator()(float value) {
        stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
        stream << value;
    }
    void operator()(double value) {
        stream.setFloatingPointPrecision(QDataStream::DoublePrecision);
        stream << value;
    }
};

struct QtReader {
    QDataStream& stream;

    template <class T>
    void operator()(T& value) {
        stream >> value;
    }
    void operator()(PlainSymbol& symbol) {
        quint32 length = 0;
        stream >> length;
        symbol.bytes.resize(length);
        if (length != 0) {
            stream.readRawData(reinterpret_cast<char*>(symbol.bytes.data()), static_cast<int>(length));
            stream >> symbol.version;
        }
    }
    void operator()(std::string& text) {
        quint32 length = 0;
        stream >> length;
        text.resize(length);
        stream.readRawData(text.data(), static_cast<int>(length));
    }
    void operator()(float& value) {
        stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
        stream >> value;
    }
    void operator()(double& value) {
        stream.setFloatingPointPrecision(QDataStream::DoublePrecision);
        stream >> value;
    }
};

void SaveQt(benchmark::State& state) {
    QByteArray bytes;
    bytes.reserve(static_cast<int>(Room));
    for (auto _ : state) {
        {
            QDataStream stream(&bytes, QIODevice::WriteOnly);
            stream.setByteOrder(QDataStream::LittleEndian);
            QtWriter writer{stream};
            for (int i = 0; i < Records; ++i)
                VisitRecord(PlainStyles()[static_cast<std::size_t>(i % Styles)], i % 3, writer);
        }
        QDataStream stream(bytes);
        stream.setByteOrder(QDataStream::LittleEndian);
        QtReader reader{stream};
        PlainStyle style;
        for (int i = 0; i < Records; ++i)
            VisitRecord(style, i % 3, reader);
        benchmark::DoNotOptimize(style);
        if (stream.status() != QDataStream::Ok || !stream.atEnd())
            state.SkipWithError("the records do not load");
    }
}
BENCHMARK(SaveQt)->Name("records/save and load/QDataStream")->Unit(benchmark::kMillisecond);

void SaveQt3D(benchmark::State& state) {
    QByteArray bytes;
    bytes.reserve(static_cast<int>(Room));
    std::vector<Plain3D> blocks;
    for (const Qzc::QzStyle& style : QzStyles3D())
        blocks.push_back(ToPlain3D(style));
    for (auto _ : state) {
        {
            QDataStream stream(&bytes, QIODevice::WriteOnly);
            stream.setByteOrder(QDataStream::LittleEndian);
            QtWriter writer{stream};
            for (int i = 0; i < Records; ++i) {
                VisitRecord(PlainStyles()[static_cast<std::size_t>(i % Styles)], i % 3, writer);
                VisitBlock(blocks[static_cast<std::size_t>(i % Styles)], i % 3, writer);
            }
        }
        QDataStream stream(bytes);
        stream.setByteOrder(QDataStream::LittleEndian);
        QtReader reader{stream};
        PlainStyle style;
        Plain3D block;
        for (int i = 0; i < Records; ++i) {
            VisitRecord(style, i % 3, reader);
            VisitBlock(block, i % 3, reader);
        }
        benchmark::DoNotOptimize(style);
        benchmark::DoNotOptimize(block);
        if (stream.status() != QDataStream::Ok || !stream.atEnd())
            state.SkipWithError("the records do not load");
    }
}
BENCHMARK_CAPTURE(SaveQz, with3D, QzStyles3D())
    ->Name("records/save and load with 3D/QzStyle")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SaveQt3D)->Name("records/save and load with 3D/QDataStream")->Unit(benchmark::kMillisecond);

struct BoostWriter {
    boost::archive::binary_oarchive& archive;

    template <class T>
    void operator()(const T& value) {
        archive << value;
    }
    void operator()(const PlainSymbol& symbol) {
        archive << Length(symbol);
        if (!symbol.bytes.empty()) {
            archive.save_binary(symbol.bytes.data(), symbol.bytes.size());
            archive << symbol.version;
        }
    }
};

struct BoostReader {
    boost::archive::binary_iarchive& archive;

    template <class T>
    void operator()(T& value) {
        archive >> value;
    }
    void operator()(PlainSymbol& symbol) {
        std::uint32_t length = 0;
        archive >> length;
        symbol.bytes.resize(length);
        if (length != 0) {
            archive.load_binary(symbol.bytes.data(), length);
            archive >> symbol.version;
        }
    }
};

/// Memory as the streams of the standard library see it.
class MemoryBuffer : public std::streambuf {
public:
    explicit MemoryBuffer(std::vector<char>& bytes) {
        setp(bytes.data(), bytes.data() + bytes.size());
        setg(bytes.data(), bytes.data(), bytes.data() + bytes.size());
    }
    std::ptrdiff_t Written() const { return pptr() - pbase(); }
    std::ptrdiff_t WasRead() const { return gptr() - eback(); }
};

void SaveBoost(benchmark::State& state) {
    std::vector<char> bytes(static_cast<std::size_t>(Room));
    for (auto _ : state) {
        MemoryBuffer buffer(bytes);
        {
            boost::archive::binary_oarchive archive(buffer, boost::archive::no_header);
            BoostWriter writer{archive};
            for (int i = 0; i < Records; ++i)
                VisitRecord(PlainStyles()[static_cast<std::size_t>(i % Styles)], i % 3, writer);
        }
        boost::archive::binary_iarchive archive(buffer, boost::archive::no_header);
        BoostReader reader{archive};
        PlainStyle style;
        for (int i = 0; i < Records; ++i)
            VisitRecord(style, i % 3, reader);
        benchmark::DoNotOptimize(style);
        if (buffer.WasRead() != buffer.Written())
            state.SkipWithError("the records do not load");
    }
}
BENCHMARK(SaveBoost)->Name("records/save and load/Boost.Serialization")->Unit(benchmark::kMillisecond);

// ---- Values

template <class Style>
void Copy(benchmark::State& state, const std::vector<Style>& styles) {
    std::vector<Style> copies(styles.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < styles.size(); ++i)
            copies[i] = styles[styles.size() - 1 - i];
        benchmark::DoNotOptimize(copies.data());
        benchmark::ClobberMemory();
    }
}

template <class Style>
void Construct(benchmark::State& state, const std::vector<Style>& styles) {
    for (auto _ : state) {
        std::vector<Style> copies(styles);
        benchmark::DoNotOptimize(copies.data());
    }
}

template <class Style>
void Compare(benchmark::State& state, const std::vector<Style>& styles) {
    const std::vector<Style> copies(styles);
    for (auto _ : state) {
        std::size_t equal = 0;
        for (std::size_t i = 0; i < styles.size(); ++i)
            equal += styles[i] == copies[i] ? 1 : 0;
        benchmark::DoNotOptimize(equal);
    }
}

BENCHMARK_CAPTURE(Copy, qz, QzStyles())->Name("values/assign/QzStyle");
BENCHMARK_CAPTURE(Copy, plain, PlainStyles())->Name("values/assign/struct");
BENCHMARK_CAPTURE(Construct, qz, QzStyles())->Name("values/copy/QzStyle");
BENCHMARK_CAPTURE(Construct, plain, PlainStyles())->Name("values/copy/struct");
BENCHMARK_CAPTURE(Compare, qz, QzStyles())->Name("values/compare/QzStyle");
BENCHMARK_CAPTURE(Compare, plain, PlainStyles())->Name("values/compare/struct");

// ---- XML

void XmlQz(benchmark::State& state) {
    Qzc::QzStyle style;
    std::size_t i = 1; // without a symbol
    for (auto _ : state) {
        const Qzc::QzStyle& source = QzStyles()[i];
        style.FromXML(source.ToXML(0, ""), 0);
        if (style != source)
            state.SkipWithError("the text does not read back");
        i = i + 4 < Styles ? i + 4 : 1;
    }
}
BENCHMARK(XmlQz)->Name("xml/out and in/QzStyle");

struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

std::string ToPugi(const PlainStyle& style) {
    pugi::xml_document document;
    pugi::xml_node root = document.append_child("zpl:Style");
    const auto addText = [&](const char* name, const char* value) {
        root.append_child(name).append_child(pugi::node_pcdata).set_value(value);
    };
    const auto add = [&](const char* name, int value) { root.append_child(name).text().set(value); };
    const auto addTenths = [&](const char* name, int tenths) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.2f", tenths / 10.0);
        addText(name, text);
    };
    const auto addColor = [&](const char* name, std::uint32_t color) {
        char text[32];
        std::snprintf(text, sizeof(text), "RGB(%u,%u,%u)", color & 0xFF, color >> 8 & 0xFF, color >> 16 & 0xFF);
        addText(name, text);
    };
    add("zpl:MarkerStyle", style.markerStyle);
    addTenths("zpl:MarkerSize", style.markerSize);
    addTenths("zpl:MarkerAngle", style.markerAngle);
    add("zpl:MarkerWidth", style.markerWidth);
    add("zpl:MarkerHeight", style.markerHeight);
    add("zpl:LineStyle", style.lineStyle);
    addTenths("zpl:LineWidth", style.lineWidth);
    addColor("zpl:LineColor", style.lineColor);
    add("zpl:FillStyle", style.fillStyle);
    addColor("zpl:FillForeColor", style.fillForeColor);
    addColor("zpl:FillBackColor", style.fillBackColor);
    addText("zpl:FillBackOpaque", style.fillBackOpaque != 0 ? "TRUE" : "FALSE");
    add("zpl:FillOpaqueRate", style.fillOpaqueRate);
    addText("zpl:FillGradientType", "None");
    addTenths("zpl:FillAngle", style.fillAngle);
    add("zpl:FillCenterOffsetX", style.fillCenterOffsetX);
    add("zpl:FillCenterOffsetY", style.fillCenterOffsetY);
    StringWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
    return std::move(writer.text);
}

void FromPugi(const std::string& text, PlainStyle& style) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size()))
        return;
    const pugi::xml_node root = document.first_child();
    const auto read = [&](const char* name, auto& value) {
        value = static_cast<std::decay_t<decltype(value)>>(root.child(name).text().as_int());
    };
    const auto readTenths = [&](const char* name, auto& value) {
        const double tenths = root.child(name).text().as_double() * 10;
        value = static_cast<std::decay_t<decltype(value)>>(tenths > 0 ? tenths + 0.5 : tenths - 0.5);
    };
    const auto readColor = [&](const char* name, std::uint32_t& value) {
        unsigned int red = 0;
        unsigned int green = 0;
        unsigned int blue = 0;
        std::sscanf(root.child(name).text().get(), "RGB(%u,%u,%u)", &red, &green, &blue);
        value = red | green << 8 | blue << 16;
    };
    read("zpl:MarkerStyle", style.markerStyle);
    readTenths("zpl:MarkerSize", style.markerSize);
    readTenths("zpl:MarkerAngle", style.markerAngle);
    read("zpl:MarkerWidth", style.markerWidth);
    read("zpl:MarkerHeight", style.markerHeight);
    read("zpl:LineStyle", style.lineStyle);
    readTenths("zpl:LineWidth", style.lineWidth);
    readColor("zpl:LineColor", style.lineColor);
    read("zpl:FillStyle", style.fillStyle);
    readColor("zpl:FillForeColor", style.fillForeColor);
    readColor("zpl:FillBackColor", style.fillBackColor);
    style.fillBackOpaque = root.child("zpl:FillBackOpaque").text().as_bool() ? 1 : 0;
    read("zpl:FillOpaqueRate", style.fillOpaqueRate);
    style.fillGradientType = 0;
    readTenths("zpl:FillAngle", style.fillAngle);
    read("zpl:FillCenterOffsetX", style.fillCenterOffsetX);
    read("zpl:FillCenterOffsetY", style.fillCenterOffsetY);
}

void XmlPugi(benchmark::State& state) {
    PlainStyle style;
    std::size_t i = 1;
    for (auto _ : state) {
        const PlainStyle& source = PlainStyles()[i];
        FromPugi(ToPugi(source), style);
        if (!(style == source))
            state.SkipWithError("the text does not read back");
        i = i + 4 < Styles ? i + 4 : 1;
    }
}
BENCHMARK(XmlPugi)->Name("xml/out and in/pugixml");

// ---- A symbol of 1 MiB

Qzc::QzStyle WithLargeSymbol() {
    constexpr std::size_t Length = (1 << 20) - 1; // no multiple of 4, so that all of it is in the text
    std::vector<unsigned char> bytes(Length);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
    Qzc::QzStyle style;
    style.SetMarkSymbolStyle(bytes.data(), static_cast<unsigned int>(Length), 1, 1);
    return style;
}

void SymbolXmlQz(benchmark::State& state) {
    const Qzc::QzStyle source = WithLargeSymbol();
    Qzc::QzStyle style;
    for (auto _ : state) {
        style.FromXML(source.ToXML(0, ""), 0);
        if (style != source)
            state.SkipWithError("the text does not read back");
    }
}
BENCHMARK(SymbolXmlQz)->Name("xml/out and in, symbol of 1 MiB/QzStyle")->Unit(benchmark::kMillisecond);

int HexDigit(char c) {
    return c <= '9' ? c - '0' : c - 'A' + 10;
}

void SymbolXmlPugi(benchmark::State& state) {
    const PlainStyle source = ToPlain(WithLargeSymbol());
    PlainStyle style;
    for (auto _ : state) {
        std::string hex;
        hex.reserve(2 * source.markerSymbol.bytes.size());
        for (const unsigned char byte : source.markerSymbol.bytes) {
            hex += "0123456789ABCDEF"[byte >> 4];
            hex += "0123456789ABCDEF"[byte & 15];
        }
        pugi::xml_document out;
        pugi::xml_node block = out.append_child("zpl:Style").append_child("zpl:CustomMarkerSymbol");
        block.append_child("zpl:MarkerSymbolString").text().set(hex.c_str());
        StringWriter writer;
        out.save(writer, "", pugi::format_raw | pugi::format_no_declaration);

        pugi::xml_document in;
        in.load_buffer(writer.text.data(), writer.text.size());
        const char* const text = in.first_child().first_child().first_child().text().get();
        style.markerSymbol.bytes.clear();
        style.markerSymbol.version = 1;
        for (const char* c = text; *c != 0 && c[1] != 0; c += 2)
            style.markerSymbol.bytes.push_back(static_cast<unsigned char>(HexDigit(c[0]) << 4 | HexDigit(c[1])));
        if (!(style.markerSymbol == source.markerSymbol))
            state.SkipWithError("the text does not read back");
    }
}
BENCHMARK(SymbolXmlPugi)->Name("xml/out and in, symbol of 1 MiB/pugixml")->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    return Bench::Run(argc, argv);
}
