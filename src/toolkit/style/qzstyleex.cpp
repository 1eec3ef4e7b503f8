#include "toolkit/qzstyleex.h"

#include <algorithm>
#include <cfloat>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "base/keldassert.h"
#include "toolkit/style/record.h"
#include "toolkit/style/stylexml.h"

namespace Qzc {

namespace {

constexpr std::int32_t VersionStamp = 0x20120514;
constexpr std::size_t Beginning = 4 + 4 + 8 + 8; // the bytes in front of the fields of the kind

// ---- Streams: one list of the fields, visited to write, to read and to measure them

// A block goes to the stream, and comes from it, in as few transfers as its names leave: most fit in one.
constexpr std::size_t BlockBytes = 320;

// No kind has more bytes between two names, so that fields need no check for room: a name leaves that much.
constexpr std::size_t LongestRun = 96;

class BlockWriter {
public:
    explicit BlockWriter(QzStream& stream) : m_stream(stream) {}

    template <class T>
    void operator()(const T& field) {
        PutBytes(m_bytes + m_size, field);
        m_size += sizeof(T);
    }
    void operator()(const QzColorValue3D& color) { (*this)(color.GetValue()); }
    void operator()(const KeldMBString& text) {
        (*this)(std::int32_t{text.GetLength()});
        const auto length = static_cast<std::size_t>(text.GetLength());
        if (length > sizeof(m_bytes) - LongestRun - m_size) {
            Flush();
            m_stream.Write(text.Cstr(), text.GetLength());
        } else {
            std::memcpy(m_bytes + m_size, text.Cstr(), length);
            m_size += length;
        }
    }
    void Flush() {
        m_stream.Write(m_bytes, static_cast<std::int64_t>(m_size));
        m_size = 0;
    }

private:
    QzStream& m_stream;
    std::size_t m_size = 0;
    unsigned char m_bytes[BlockBytes];
};

/// Reads fields until one is not wholly there.
class BlockReader {
public:
    explicit BlockReader(RecordSource& source) : m_source(source) {}

    template <class T>
    void operator()(T& field) {
        if (Has(sizeof(T)))
            field = Take<T>();
    }
    void operator()(unsigned char& flag) {
        if (Has(1))
            flag = Take<unsigned char>() != 0 ? 1 : 0;
    }
    void operator()(QzColorValue3D& color) {
        if (Has(4))
            color = QzColorValue3D(Take<std::uint32_t>());
    }
    void operator()(KeldMBString& text) {
        if (!Has(4))
            return;
        const auto size = Take<std::int32_t>();
        const auto ahead = static_cast<std::int64_t>(m_filled - m_next);
        // A count that the bytes do not cover is no end of an older block but a fault.
        if (size < 0 || size > ahead + m_source.GetLeft()) {
            m_isComplete = false;
            m_isSound = false;
            return;
        }
        const std::int64_t held = std::min<std::int64_t>(size, ahead);
        std::string bytes(reinterpret_cast<const char*>(m_bytes + m_next), static_cast<std::size_t>(held));
        m_next += static_cast<std::size_t>(held);
        if (held < size) {
            bytes.resize(static_cast<std::size_t>(size));
            m_isSound = m_source.Read(bytes.data() + held, size - held);
            m_isComplete = m_isSound;
        }
        text = KeldMBString(std::move(bytes));
    }

    /// The bytes that have been read ahead; all of them that the buffer takes, or that are left.
    const unsigned char* Ahead(std::size_t& count) {
        if (m_filled == m_next)
            Fill(0);
        count = m_filled - m_next;
        return m_bytes + m_next;
    }

    bool IsComplete() const { return m_isComplete; } ///< every field visited was there
    bool IsSound() const { return m_isSound; }       ///< no name's length was wrong
    /// To the stream, what was read ahead; `taken` bytes of it were.
    void GiveBack(std::size_t taken = 0) {
        m_next += taken;
        if (m_next != m_filled)
            m_source.GoBack(static_cast<std::int64_t>(m_filled - m_next));
    }

private:
    bool Has(std::size_t count) {
        m_isComplete = m_isComplete && (count <= m_filled - m_next || Fill(count));
        return m_isComplete;
    }
    bool Fill(std::size_t count) {
        std::memmove(m_bytes, m_bytes + m_next, m_filled - m_next);
        m_filled -= m_next;
        m_next = 0;
        const auto more = static_cast<std::size_t>(
            std::min<std::int64_t>(m_source.GetLeft(), static_cast<std::int64_t>(sizeof(m_bytes) - m_filled)));
        if (m_filled + more < count || !m_source.Read(m_bytes + m_filled, static_cast<std::int64_t>(more)))
            return false;
        m_filled += more;
        return true;
    }
    template <class T>
    T Take() {
        m_next += sizeof(T);
        return TakeBytes<T>(m_bytes + m_next - sizeof(T));
    }

    RecordSource& m_source;
    std::size_t m_next = 0;
    std::size_t m_filled = 0;
    bool m_isComplete = true;
    bool m_isSound = true;
    unsigned char m_bytes[BlockBytes];
};

/// Whether bytes begin with all the fields visited.
class BlockChecker {
public:
    BlockChecker(const unsigned char* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

    template <class T>
    void operator()(const T&) {
        m_at += sizeof(T);
    }
    void operator()(const QzColorValue3D&) { m_at += 4; }
    void operator()(const KeldMBString&) {
        m_at += 4;
        if (m_at <= m_size) // a negative count becomes one that is far too large
            m_at += TakeBytes<std::uint32_t>(m_bytes + m_at - 4);
    }
    bool AreThere() const { return m_at <= m_size; }
    std::size_t GetCount() const { return m_at; } ///< of the bytes of these fields

private:
    const unsigned char* m_bytes;
    std::size_t m_size;
    std::size_t m_at = 0;
};

/// Takes fields from bytes that are known to hold them.
class BlockTaker {
public:
    explicit BlockTaker(const unsigned char* bytes) : m_next(bytes) {}

    template <class T>
    void operator()(T& field) {
        field = Take<T>();
    }
    void operator()(unsigned char& flag) { flag = Take<unsigned char>() != 0 ? 1 : 0; }
    void operator()(QzColorValue3D& color) { color = QzColorValue3D(Take<std::uint32_t>()); }
    void operator()(KeldMBString& text) {
        const auto length = Take<std::uint32_t>();
        text = KeldMBString(std::string_view(reinterpret_cast<const char*>(m_next), length));
        m_next += length;
    }

private:
    template <class T>
    T Take() {
        m_next += sizeof(T);
        return TakeBytes<T>(m_next - sizeof(T));
    }

    const unsigned char* m_next;
};

class BlockMeter {
public:
    template <class T>
    void operator()(const T&) {
        static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>);
        m_size += sizeof(T);
    }
    void operator()(const QzColorValue3D&) { m_size += 4; }
    void operator()(const KeldMBString& text) { m_size += 4 + static_cast<std::uint64_t>(text.GetLength()); }
    std::uint64_t Get() const { return m_size; }

private:
    std::uint64_t m_size = 0;
};

// ---- Names in XML

template <class Enum>
struct EnumName {
    Enum value;
    const char* name;
};

// The first of each is what stands for a value beyond the table.
constexpr EnumName<QzFill3DMode> Fill3DModeNames[] = {
    {FILL_FACE, "FILL_FACE"}, {FILL_LINE, "FILL_LINE"}, {FILL_FACEANDLINE, "FILL_FACEANDLINE"}};
constexpr EnumName<AltitudeMode> AltitudeModeNames[] = {{ClampToGround, "ClampToGround"},
                                                        {RelativeToGround, "RelativeToGround"},
                                                        {Absolute, "Absolute"},
                                                        {RelativeToUnderground, "RelativeToUnderground"}};
constexpr EnumName<QzTextureRepeatMode> TextureRepeatModeNames[] = {{RepeatTimes, "RepeatTimes"},
                                                                    {RealSize, "RealSize"}};
constexpr EnumName<QzBillBoardMode> BillBoardModeNames[] = {
    {SCREEN_ALIGNED, "SCREEN_ALIGNED"}, {AUTO_Z_AXIAL, "AUTO_Z_AXIAL"}, {FIXED_ANGLE, "FIXED_ANGLE"}};
constexpr EnumName<QzLineStyle3D> LineStyle3DNames[] = {{LINE_SIMPLE, "LINE_SIMPLE"}, {LINE_PIPELINE, "LINE_PIPELINE"}};

template <class Enum, std::size_t N>
const char* NameOf(const EnumName<Enum> (&names)[N], Enum value) {
    const auto* const found =
        std::find_if(names, names + N, [=](const EnumName<Enum>& entry) { return entry.value == value; });
    return found != names + N ? found->name : names[0].name;
}

template <class Enum, std::size_t N>
void ReadName(StyleXmlReader& reader, const char* element, const EnumName<Enum> (&names)[N], Enum& value) {
    reader.Read(element, [&](const KeldMBString& text) {
        for (const EnumName<Enum>& entry : names) {
            if (text.CompareNoCase(entry.name) == 0)
                value = entry.value;
        }
    });
}

KeldMBString ColorText(const QzColorValue3D& color) {
    KeldMBString text("RGBA(");
    const double parts[] = {color.red, color.green, color.blue, color.alpha};
    for (const double& part : parts) {
        if (&part != parts)
            text += ',';
        text += NumberText::Fixed(part, 6).Cstr();
    }
    return text += "))"; // documents have always had both
}

void ReadColor(StyleXmlReader& reader, const char* element, QzColorValue3D& color) {
    reader.Read(element, [&](const KeldMBString& text) { color = QzStyleEx::ConvertRGBAColor(text); });
}

void ReadFloat(StyleXmlReader& reader, const char* element, float& value) {
    reader.Read(element, [&](const KeldMBString& text) {
        value = static_cast<float>(std::clamp<double>(qzatof(text.Cstr()), -FLT_MAX, FLT_MAX));
    });
}

} // namespace

QzStyleEx::~QzStyleEx() = default;

bool QzStyleEx::operator==(const QzStyleEx& other) const {
    const auto same = [&](auto... fields) { return (IsSame(this->*fields, other.*fields) && ...); };
    using S = QzStyleEx;
    const auto sameNumbers = [](const double(&a)[3], const double(&b)[3]) {
        return std::equal(a, a + 3, b, [](double x, double y) { return IsSame(x, y); });
    };
    return same(&S::m_eFill3DMode, &S::m_eAltitudeMode, &S::m_strIconName, &S::m_fIconScale, &S::m_fPointSize,
                &S::m_colorPoint, &S::m_dLineWidth, &S::m_colorLine, &S::m_colorFill, &S::m_dBottomAltitude,
                &S::m_dExtendHeight, &S::m_strSideTexture, &S::m_strTopTexture, &S::m_fTilingU, &S::m_fTilingV,
                &S::m_eTextureRepeatMode, &S::m_fTopTilingU, &S::m_fTopTilingV, &S::m_eTopTextureRepeatMode,
                &S::m_pntIconAnchor, &S::m_bMarker3D, &S::m_nMarkerStyle, &S::m_bFixedPixelSize, &S::m_bFiletEnable,
                &S::m_eBillBoardMode, &S::m_eLineStyle, &S::m_nPipeSides, &S::m_bTessellate) &&
           sameNumbers(m_dScale, other.m_dScale) && sameNumbers(m_dRotate, other.m_dRotate);
}

// ---- Streams

template <class Style, class Visitor>
void QzStyleEx::VisitKind(Style& style, int kind, Visitor& visit) {
    const auto visitMarker3D = [&] {
        for (auto& scale : style.m_dScale)
            visit(scale);
        for (auto& angle : style.m_dRotate)
            visit(angle);
    };
    switch (kind) {
    case 0:
        visit(style.m_colorPoint);
        visit(style.m_fPointSize);
        visit(style.m_strIconName);
        visit(style.m_fIconScale);
        visit(style.m_pntIconAnchor.x);
        visit(style.m_pntIconAnchor.y);
        visit(style.m_bMarker3D);
        visit(style.m_eBillBoardMode);
        visit(style.m_bFixedPixelSize);
        visitMarker3D();
        break;
    case 1:
        visit(style.m_colorLine);
        visit(style.m_colorFill);
        visit(style.m_strSideTexture);
        visit(style.m_fTilingU);
        visit(style.m_fTilingV);
        visit(style.m_eFill3DMode);
        visit(style.m_nPipeSides);
        visit(style.m_bFiletEnable);
        visit(style.m_bTessellate);
        break;
    case 2:
        visit(style.m_colorLine);
        visit(style.m_colorFill);
        visit(style.m_strSideTexture);
        visit(style.m_strTopTexture);
        visit(style.m_fTilingU);
        visit(style.m_fTilingV);
        visit(style.m_fTopTilingU);
        visit(style.m_fTopTilingV);
        visit(style.m_eFill3DMode);
        break;
    case 3:
        visit(style.m_strIconName);
        visit(style.m_eBillBoardMode);
        visit(style.m_colorFill);
        visit(style.m_bFixedPixelSize);
        visitMarker3D();
        break;
    case 4: break;
    default: {
        std::int32_t nothing = 0;
        visit(nothing);
    }
    }
}

void QzStyleEx::Save(QzStream& stream, int kind) const {
    BlockWriter writer(stream);
    writer(VersionStamp);
    writer(m_eAltitudeMode);
    writer(m_dBottomAltitude);
    writer(m_dExtendHeight);
    VisitKind(*this, kind, writer);
    writer.Flush();
}

int QzStyleEx::Load(QzStream& stream, int kind) {
    LoadBlock(stream, stream.GetLength(), kind);
    return IntSize(BlockSize(kind));
}

bool QzStyleEx::LoadBlock(QzStream& stream, std::int64_t end, int kind) {
    RecordSource source(stream, end);
    BlockReader reader(source);
    if (TakeWhole(reader, kind))
        return true;
    bool isWhole = false;
    try {
        QzStyleEx loaded(*this);
        isWhole = loaded.ReadBlock(reader, kind);
        if (isWhole)
            *this = std::move(loaded);
    } catch (const std::bad_alloc&) { // names may be as long as the stream
        isWhole = false;
    }
    reader.GiveBack();
    if (!isWhole)
        stream.SetFailed();
    return isWhole;
}

// What nearly all blocks are: of today's form, and short enough to be looked through before anything is set.
template <class Reader>
bool QzStyleEx::TakeWhole(Reader& reader, int kind) {
    std::size_t count = 0;
    const unsigned char* const bytes = reader.Ahead(count);
    if (count < Beginning || TakeBytes<std::int32_t>(bytes) != VersionStamp)
        return false;
    BlockChecker checker(bytes + Beginning, count - Beginning);
    VisitKind(*this, kind, checker);
    if (!checker.AreThere())
        return false;
    BlockTaker taker(bytes + sizeof(VersionStamp));
    taker(m_eAltitudeMode);
    taker(m_dBottomAltitude);
    taker(m_dExtendHeight);
    VisitKind(*this, kind, taker);
    reader.GiveBack(Beginning + checker.GetCount());
    return true;
}

template <class Reader>
bool QzStyleEx::ReadBlock(Reader& reader, int kind) {
    std::int32_t first = 0;
    reader(first);
    const bool isStamped = first == VersionStamp;
    if (isStamped)
        reader(m_eAltitudeMode);
    else
        m_eAltitudeMode = static_cast<AltitudeMode>(first);
    reader(m_dBottomAltitude);
    reader(m_dExtendHeight);
    const bool hasBeginning = reader.IsComplete();
    if (isStamped || (kind >= 0 && kind <= 3))
        VisitKind(*this, kind, reader);
    // Without a stamp the block may end early: see docs/styles.md.
    return hasBeginning && reader.IsSound() && (reader.IsComplete() || !isStamped);
}

std::uint64_t QzStyleEx::BlockSize(int kind) const {
    BlockMeter meter;
    VisitKind(*this, kind, meter);
    return Beginning + meter.Get();
}

unsigned int QzStyleEx::GetStyleSize(int kind) const {
    return SizeWord(BlockSize(kind));
}

// ---- XML

KeldMBString QzStyleEx::ToXML(int nVersion, const KeldMBString& tag) const {
    KELDASSERT(nVersion == 0 || nVersion >= 20031211);
    StyleXmlWriter writer(tag.IsEmpty() ? "zpl:Style" : tag);
    const auto add = [&](const char* name, double value, int decimals) {
        writer.Add(name, NumberText::Fixed(value, decimals));
    };
    add("zpl:PointSize", m_fPointSize, 1);
    writer.Add("zpl:ColorPoint", ColorText(m_colorPoint));
    writer.Add("zpl:LineWidth", NumberText::Shortest(m_dLineWidth));
    writer.Add("zpl:Fill3DMode", NameOf(Fill3DModeNames, m_eFill3DMode));
    writer.Add("zpl:ColorFill", ColorText(m_colorFill));
    writer.Add("zpl:LineColor", ColorText(m_colorLine));
    add("zpl:IconScale", m_fIconScale, 1);
    add("zpl:TilingU", m_fTilingU, 6);
    add("zpl:TilingV", m_fTilingV, 6);
    writer.Add("zpl:TextureRepeatMode", NameOf(TextureRepeatModeNames, m_eTextureRepeatMode));
    add("zpl:TopTilingU", m_fTopTilingU, 6);
    add("zpl:TopTilingV", m_fTopTilingV, 6);
    writer.Add("zpl:TopTextureRepeatMode", NameOf(TextureRepeatModeNames, m_eTopTextureRepeatMode));
    writer.Add("zpl:IconName", m_strIconName);
    writer.Add("zpl:SideTextureName", m_strSideTexture);
    writer.Add("zpl:TopTextureName", m_strTopTexture);
    writer.Add("zpl:BottomAltitude", NumberText::General(m_dBottomAltitude));
    writer.Add("zpl:ExtendHeight", NumberText::General(m_dExtendHeight));
    writer.Add("zpl:AltitudeMode", NameOf(AltitudeModeNames, m_eAltitudeMode));
    writer.Into("zpl:IconAnchor");
    add("zpl:x", m_pntIconAnchor.x, 10);
    add("zpl:y", m_pntIconAnchor.y, 10);
    writer.Out();
    writer.AddFlag("zpl:FixedPixelSize", m_bFixedPixelSize);
    writer.Add("zpl:BillboardMode", NameOf(BillBoardModeNames, m_eBillBoardMode));
    writer.AddFlag("zpl:IsMarker3D", m_bMarker3D);
    writer.Add("zpl:LineStyle3D", NameOf(LineStyle3DNames, m_eLineStyle));
    writer.AddUnsigned("zpl:PipeSides", m_nPipeSides);
    writer.AddFlag("zpl:IsFiletEnable", m_bFiletEnable);
    writer.AddFlag("zpl:IsTessellate", m_bTessellate);
    add("zpl:ScaleX", m_dScale[0], 6);
    add("zpl:ScaleY", m_dScale[1], 6);
    add("zpl:ScaleZ", m_dScale[2], 6);
    add("zpl:RotateX", m_dRotate[0], 6);
    add("zpl:RotateY", m_dRotate[1], 6);
    add("zpl:RotateZ", m_dRotate[2], 6);
    return writer.Text();
}

unsigned char QzStyleEx::FromXML(const KeldMBString& xml, int nVersion) {
    KELDASSERT(nVersion == 0 || nVersion >= 20031211);
    if (xml.IsEmpty())
        return 0;
    StyleXmlReader reader(xml, StyleXmlReader::Order::Any);
    ReadFloat(reader, "zpl:PointSize", m_fPointSize);
    ReadColor(reader, "zpl:ColorPoint", m_colorPoint);
    reader.ReadDecimal("zpl:LineWidth", m_dLineWidth);
    ReadName(reader, "zpl:Fill3DMode", Fill3DModeNames, m_eFill3DMode);
    ReadColor(reader, "zpl:ColorFill", m_colorFill);
    ReadColor(reader, "zpl:LineColor", m_colorLine);
    ReadFloat(reader, "zpl:IconScale", m_fIconScale);
    ReadFloat(reader, "zpl:TilingU", m_fTilingU);
    ReadFloat(reader, "zpl:TilingV", m_fTilingV);
    ReadName(reader, "zpl:TextureRepeatMode", TextureRepeatModeNames, m_eTextureRepeatMode);
    ReadFloat(reader, "zpl:TopTilingU", m_fTopTilingU);
    ReadFloat(reader, "zpl:TopTilingV", m_fTopTilingV);
    ReadName(reader, "zpl:TopTextureRepeatMode", TextureRepeatModeNames, m_eTopTextureRepeatMode);
    reader.ReadText("zpl:IconName", m_strIconName);
    reader.ReadText("zpl:SideTextureName", m_strSideTexture);
    reader.ReadText("zpl:TopTextureName", m_strTopTexture);
    reader.ReadDecimal("zpl:BottomAltitude", m_dBottomAltitude);
    reader.ReadDecimal("zpl:ExtendHeight", m_dExtendHeight);
    ReadName(reader, "zpl:AltitudeMode", AltitudeModeNames, m_eAltitudeMode);
    if (reader.Find("zpl:IconAnchor")) {
        reader.Into();
        reader.ReadDecimal("zpl:x", m_pntIconAnchor.x);
        reader.ReadDecimal("zpl:y", m_pntIconAnchor.y);
        reader.Out();
    }
    reader.ReadFlag("zpl:FixedPixelSize", m_bFixedPixelSize);
    ReadName(reader, "zpl:BillboardMode", BillBoardModeNames, m_eBillBoardMode);
    reader.ReadFlag("zpl:IsMarker3D", m_bMarker3D);
    ReadName(reader, "zpl:LineStyle3D", LineStyle3DNames, m_eLineStyle);
    reader.ReadUnsigned("zpl:PipeSides", m_nPipeSides);
    reader.ReadFlag("zpl:IsFiletEnable", m_bFiletEnable);
    reader.ReadFlag("zpl:IsTessellate", m_bTessellate);
    const char* const scales[] = {"zpl:ScaleX", "zpl:ScaleY", "zpl:ScaleZ"};
    const char* const angles[] = {"zpl:RotateX", "zpl:RotateY", "zpl:RotateZ"};
    for (int i = 0; i < 3; ++i)
        reader.ReadDecimal(scales[i], m_dScale[i]);
    for (int i = 0; i < 3; ++i)
        reader.ReadDecimal(angles[i], m_dRotate[i]);
    return 1;
}

QzColorValue3D QzStyleEx::ConvertRGBAColor(const KeldMBString& text) {
    double parts[4] = {0, 0, 0, 0};
    int at = text.Find('(');
    for (double& part : parts) {
        if (at < 0)
            break;
        part = qzatof(text.Cstr() + at + 1);
        at = text.Find(',', at + 1);
    }
    return QzColorValue3D(parts[0], parts[1], parts[2], parts[3]);
}

} // namespace Qzc
