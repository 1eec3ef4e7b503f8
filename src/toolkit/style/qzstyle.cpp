#include "toolkit/qzstyle.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "base/keldassert.h"
#include "stream/qzwincolor.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/style/numbertext.h"
#include "toolkit/style/record.h"

namespace Qzc {

namespace {

constexpr std::uint32_t MaxSymbolLength = std::numeric_limits<std::int32_t>::max();

// The back colour's word in a region's record has the place of the top byte for this.
constexpr std::uint32_t TransparentBack = 0xFF;

// The back colour in the record of all fields when the back is not painted.
constexpr std::uint32_t NoBackColor = 0xFFFFFFFF;

} // namespace

// ---- Symbols

bool QzStyle::Symbol::Allocate(std::uint32_t length) {
    if (pBytes == nullptr || nLength != length) {
        Clear();
        pBytes.reset(new (std::nothrow) unsigned char[length]);
        nLength = pBytes != nullptr ? length : 0;
    }
    return pBytes != nullptr;
}

void QzStyle::Symbol::CopyBytes(const Symbol& other) {
    if (other.pBytes == nullptr)
        Clear();
    else if (this != &other && Allocate(other.nLength))
        std::memcpy(pBytes.get(), other.pBytes.get(), nLength);
}

unsigned char QzStyle::Symbol::Set(unsigned char* buffer, std::uint32_t length, std::uint32_t version, bool copy) {
    if (length == 0 || length > MaxSymbolLength)
        return 0;
    if (copy) {
        // Into new memory, not Allocate's: the bytes may be those of this very symbol.
        unsigned char* const bytes = new (std::nothrow) unsigned char[length];
        if (bytes == nullptr)
            return 0;
        std::memcpy(bytes, buffer, length);
        pBytes.reset(bytes);
    } else if (buffer != pBytes.get()) {
        pBytes.reset(buffer);
    }
    nLength = length;
    nVersion = version;
    return 1;
}

unsigned char QzStyle::Symbol::Set(const QzMemoryStream& stream, std::uint32_t version) {
    if (stream.GetLength() > MaxSymbolLength)
        return 0;
    return Set(const_cast<unsigned char*>(stream.GetData()), static_cast<std::uint32_t>(stream.GetLength()), version,
               true);
}

// Behind the length.
void QzStyle::Symbol::Save(QzStream& stream) const {
    if (pBytes == nullptr)
        return;
    stream.Write(pBytes.get(), nLength);
    stream << nVersion;
}

// Behind the length. False when the bytes are not there, or no memory for them.
bool QzStyle::Symbol::Load(RecordSource& source, std::uint32_t length) {
    if (length == 0)
        return true;
    if (length > MaxSymbolLength || length > source.GetLeft() || !Allocate(length))
        return false;
    RecordPart<4> version;
    if (!source.Read(pBytes.get(), length) || !version.Read(source))
        return false;
    nVersion = version.Last();
    return true;
}

unsigned char QzStyle::SetMarkSymbolStyle(unsigned char* pMarkerSymbolBuffer, unsigned int length, unsigned int version,
                                          unsigned char copy) {
    if (!KELDASSERT(pMarkerSymbolBuffer))
        return 0;
    return m_markerSymbol.Set(pMarkerSymbolBuffer, length, version, copy != 0);
}

unsigned char QzStyle::SetMarkSymbolStyle(const QzMemoryStream* pMarkerSymbolStream, unsigned int version) {
    if (!KELDASSERT(pMarkerSymbolStream))
        return 0;
    return m_markerSymbol.Set(*pMarkerSymbolStream, version);
}

unsigned char QzStyle::SetLineSymbolStyle(unsigned char* pLineSymbolBuffer, unsigned int length, unsigned int version,
                                          unsigned char copy) {
    if (!KELDASSERT(pLineSymbolBuffer))
        return 0;
    return m_lineSymbol.Set(pLineSymbolBuffer, length, version, copy != 0);
}

unsigned char QzStyle::SetLineSymbolStyle(const QzMemoryStream* pLineSymbolStream, unsigned int version) {
    if (!KELDASSERT(pLineSymbolStream))
        return 0;
    return m_lineSymbol.Set(*pLineSymbolStream, version);
}

unsigned char QzStyle::SetFillSymbolStyle(unsigned char* pFillSymbolBuffer, unsigned int length, unsigned int version,
                                          unsigned char copy) {
    if (!KELDASSERT(pFillSymbolBuffer))
        return 0;
    return m_fillSymbol.Set(pFillSymbolBuffer, length, version, copy != 0);
}

unsigned char QzStyle::SetFillSymbolStyle(const QzMemoryStream* pFillSymbolStream, unsigned int version) {
    if (!KELDASSERT(pFillSymbolStream))
        return 0;
    return m_fillSymbol.Set(*pFillSymbolStream, version);
}

void QzStyle::ClearSymbolStyle() {
    ClearMarkSymbolStyle();
    ClearLineSymbolStyle();
    ClearFillSymbolStyle();
    ClearSymbolStyle3D();
}

// ---- Comparison

unsigned char QzStyle::IsSameDimensionStyle(const QzStyle& a, const QzStyle& b, int kind) {
    switch (kind) {
    case 0: return IsSameMarkerStyle(a, b) && IsSameMarkerSymbolStyle(a, b) && IsSame3DSymbolStyle(a, b);
    case 1: return IsSameLineStyle(a, b) && IsSameLineSymbolStyle(a, b) && IsSame3DSymbolStyle(a, b);
    case 2:
        return IsSameLineStyle(a, b) && IsSameFillStyle(a, b) && IsSameLineSymbolStyle(a, b) &&
               IsSameFillSymbolStyle(a, b) && IsSame3DSymbolStyle(a, b);
    default: return a == b;
    }
}

namespace {

// Spreads what differs in any bit over all of them: tables use the low ones.
int Mixed(std::uint32_t hash) {
    hash ^= hash >> 16;
    hash *= 0x85EBCA6B;
    hash ^= hash >> 13;
    hash *= 0xC2B2AE35;
    hash ^= hash >> 16;
    return static_cast<int>(hash);
}

} // namespace

int QzStyle::GetHashCode() const {
    return Mixed(HashWithoutAngle() ^ static_cast<std::uint32_t>(QzHashCode::DoubleToHashCode(m_nMarkerAngle / 10.0)));
}

int QzStyle::GetHashCodeWithoutAngle() const {
    return Mixed(HashWithoutAngle());
}

std::uint32_t QzStyle::HashWithoutAngle() const {
    std::uint32_t hash = 0;
    std::uint32_t scale = 1; // another odd number for each field, so that equal fields do not cancel out
    const auto add = [&](std::uint32_t field) {
        hash ^= field * scale;
        scale *= 0x9E3779B1;
    };
    add(static_cast<std::uint32_t>(m_nMarkerStyle));
    add(static_cast<std::uint32_t>(m_nMarkerSize));
    add(static_cast<std::uint32_t>(m_nLineStyle));
    add(m_nLineColor);
    add(static_cast<std::uint32_t>(m_nLineWidth));
    add(static_cast<std::uint32_t>(m_nFillStyle));
    add(m_nFillForeColor);
    add(m_nFillBackColor);
    add(m_bFillBackOpaque);
    return hash;
}

// ---- Fields

std::int32_t QzStyle::Tenths(double value) {
    const double tenths = value * 10.0;
    return Truncated(tenths > 0 ? tenths + 0.5 : tenths - 0.5);
}

void QzStyle::SetLineColor(unsigned int color) {
    m_nLineColor = color;
    if (m_pStyleEx != nullptr) {
        QzColorValue3D color3D(color);
        color3D.alpha = m_pStyleEx->GetLineColor().alpha;
        m_pStyleEx->SetLineColor(color3D);
    }
}

void QzStyle::SetFillForeColor(unsigned int color) {
    m_nFillForeColor = color;
    if (m_pStyleEx != nullptr) {
        QzColorValue3D color3D(color);
        color3D.alpha = m_pStyleEx->GetFillColor().alpha;
        m_pStyleEx->SetFillColor(color3D);
    }
}

// ---- Three-dimensional attributes

const QzStyleEx& QzStyle::DefaultStyleEx() {
    static const QzStyleEx s_default;
    return s_default;
}

QzStyleEx& QzStyle::NeedStyleEx() {
    if (m_pStyleEx == nullptr)
        m_pStyleEx.reset(new QzStyleEx);
    return *m_pStyleEx;
}

void QzStyle::Convert2DTo3DStyle() {
    constexpr std::uint32_t Opaque = 0xFF000000;
    SetLineColor3D(QzColorValue3D(m_nLineColor | Opaque));
    SetPointColor(QzColorValue3D(m_nLineColor | Opaque));
    SetFillColor(QzColorValue3D(m_nFillForeColor | Opaque));
}

void QzStyle::Convert3DTo2DStyle() {
    if (m_pStyleEx == nullptr)
        return;
    const auto withoutAlpha = [](const QzColorValue3D& color) {
        const std::uint32_t value = color.GetValue();
        return KELDRGB(KELDREDVAL(value), KELDGREENVAL(value), KELDBLUEVAL(value));
    };
    m_nFillForeColor = withoutAlpha(m_pStyleEx->GetFillColor());
    m_nLineColor = withoutAlpha(m_pStyleEx->GetLineColor());
}

void QzStyle::UpdateStyleAttribute() {
    if (m_pStyleEx == nullptr)
        return;
    SetMarkerStyle(m_pStyleEx->GetMarkerStyle());
    SetLineWidth(m_pStyleEx->GetLineWidth());
    SetLineStyle(m_pStyleEx->GetLineStyle());
}

// ---- The base library's record

void QzStyle::ToKeldStyle(KeldStyle& style) const {
    style.bFixedColor = m_bFixedColor != 0;
    style.nFixedColor = m_nFixedColor;
    style.nMarkerStyle = m_nMarkerStyle;
    style.nMarkerAngle = m_nMarkerAngle;
    style.nMarkerSize = m_nMarkerSize;
    style.nMarkerWidth = m_nMarkerWidth;
    style.nMarkerHeight = m_nMarkerHeight;
    style.nLineStyle = m_nLineStyle;
    style.nLineColor = m_nLineColor;
    style.nLineWidth = m_nLineWidth;
    style.nFillStyle = m_nFillStyle;
    style.nFillBackColor = m_nFillBackColor;
    style.nFillForeColor = m_nFillForeColor;
    style.bFillBackOpaque = m_bFillBackOpaque != 0;
    style.nFillOpaqueRate = m_nFillOpaqueRate;
    style.nFillGradientType = m_nFillGradientType;
    style.nFillAngle = m_nFillAngle;
    style.nFillCenterOffsetX = m_nFillCenterOffsetX;
    style.nFillCenterOffsetY = m_nFillCenterOffsetY;
    style.bScaleBySymbol = m_bScaleBySymbol != 0;
}

void QzStyle::FromKeldStyle(const KeldStyle& style) {
    m_bFixedColor = style.bFixedColor ? 1 : 0;
    m_nFixedColor = style.nFixedColor;
    m_nMarkerStyle = style.nMarkerStyle;
    m_nMarkerAngle = style.nMarkerAngle;
    m_nMarkerSize = style.nMarkerSize;
    m_nMarkerWidth = style.nMarkerWidth;
    m_nMarkerHeight = style.nMarkerHeight;
    m_nLineStyle = style.nLineStyle;
    SetLineColor(style.nLineColor);
    m_nLineWidth = style.nLineWidth;
    m_nFillStyle = style.nFillStyle;
    m_nFillBackColor = style.nFillBackColor;
    SetFillForeColor(style.nFillForeColor);
    m_bFillBackOpaque = style.bFillBackOpaque ? 1 : 0;
    m_nFillOpaqueRate = style.nFillOpaqueRate;
    m_nFillGradientType = style.nFillGradientType;
    m_nFillAngle = style.nFillAngle;
    m_nFillCenterOffsetX = style.nFillCenterOffsetX;
    m_nFillCenterOffsetY = style.nFillCenterOffsetY;
    m_bScaleBySymbol = style.bScaleBySymbol ? 1 : 0;
}

// ---- Streams

std::uint64_t QzStyle::RecordSize(int kind) const {
    std::uint64_t size = 4; // the size word itself
    switch (kind) {
    case 0: size += 40 + m_markerSymbol.GetStoreSize(); break;
    case 1: size += 16 + m_lineSymbol.GetStoreSize(); break;
    case 2: size += 40 + m_lineSymbol.GetStoreSize() + m_fillSymbol.GetStoreSize(); break;
    default: break;
    }
    return m_pStyleEx != nullptr ? size + m_pStyleEx->BlockSize(kind) : size;
}

unsigned int QzStyle::GetStyleSize(int kind) const {
    return SizeWord(RecordSize(kind));
}

void QzStyle::Save(QzStream& stream, int kind) const {
    const std::uint32_t size = GetStyleSize(kind);
    if (size == 0) {
        stream.SetFailed();
        return;
    }
    const std::uint32_t lineColor = QzCurrentColortoWinColor(m_nLineColor);
    switch (kind) {
    case 0:
        WriteFields(stream, size, m_nMarkerStyle, m_nMarkerSize, m_nMarkerAngle, lineColor, m_nMarkerWidth,
                    m_nMarkerHeight, m_markerSymbol.nLength);
        m_markerSymbol.Save(stream);
        WriteFields(stream, m_nFillOpaqueRate, m_nFillGradientType, m_nFillAngle, m_nFillCenterOffsetX,
                    m_nFillCenterOffsetY, QzCurrentColortoWinColor(m_nFillBackColor));
        break;
    case 1:
        WriteFields(stream, size, m_nLineStyle, m_nLineWidth, lineColor, m_lineSymbol.nLength);
        m_lineSymbol.Save(stream);
        break;
    case 2:
        WriteFields(
            stream, size, m_nLineStyle, m_nLineWidth, lineColor, m_nFillStyle,
            QzCurrentColortoWinColor(m_nFillForeColor),
            KELDRGB(KELDREDVAL(m_nFillBackColor), KELDGREENVAL(m_nFillBackColor), KELDBLUEVAL(m_nFillBackColor)) |
                (m_bFillBackOpaque ? 0 : TransparentBack << 24),
            m_nFillOpaqueRate, m_nFillGradientType, m_nFillAngle, m_nFillCenterOffsetX, m_nFillCenterOffsetY,
            m_lineSymbol.nLength);
        m_lineSymbol.Save(stream);
        WriteFields(stream, m_fillSymbol.nLength);
        m_fillSymbol.Save(stream);
        break;
    case 3:
    case 4: stream << size; break;
    default: stream << std::int32_t{0};
    }
    if (m_pStyleEx != nullptr)
        m_pStyleEx->Save(stream, kind);
}

int QzStyle::Load(QzStream& stream, int kind) {
    LoadRecord(stream, stream.GetLength(), kind);
    return IntSize(std::max<std::uint64_t>(RecordSize(kind), 4) - 4);
}

// Everything is read before anything is set, so that a record that is not whole changes nothing.
bool QzStyle::LoadRecord(QzStream& stream, std::int64_t end, int kind) {
    RecordSource source(stream, end);
    bool isWhole = false;
    switch (kind) {
    case 0: {
        RecordPart<28> head;
        RecordPart<12> tail;
        Symbol marker = m_markerSymbol.Next();
        isWhole =
            head.Read(source) && marker.Load(source, head.Last()) && tail.Read(source) && LoadBlock(stream, end, kind);
        if (!isWhole)
            break;
        head >> m_nMarkerStyle >> m_nMarkerSize >> m_nMarkerAngle;
        m_nLineColor = QzWinColortoCurrentColor(head.Take<std::uint32_t>());
        head >> m_nMarkerWidth >> m_nMarkerHeight;
        m_markerSymbol = std::move(marker);
        tail >> m_nFillOpaqueRate >> m_nFillGradientType >> m_nFillAngle >> m_nFillCenterOffsetX >>
            m_nFillCenterOffsetY;
        m_nFillBackColor = QzWinColortoCurrentColor(tail.Take<std::uint32_t>());
        break;
    }
    case 1: {
        RecordPart<16> head;
        Symbol line = m_lineSymbol.Next();
        isWhole = head.Read(source) && line.Load(source, head.Last()) && LoadBlock(stream, end, kind);
        if (!isWhole)
            break;
        head >> m_nLineStyle >> m_nLineWidth;
        m_nLineColor = QzWinColortoCurrentColor(head.Take<std::uint32_t>());
        m_lineSymbol = std::move(line);
        break;
    }
    case 2: {
        RecordPart<36> head;
        RecordPart<4> fillLength;
        Symbol line = m_lineSymbol.Next();
        Symbol fill = m_fillSymbol.Next();
        isWhole = head.Read(source) && line.Load(source, head.Last()) && fillLength.Read(source) &&
                  fill.Load(source, fillLength.Last()) && LoadBlock(stream, end, kind);
        if (!isWhole)
            break;
        head >> m_nLineStyle >> m_nLineWidth;
        m_nLineColor = QzWinColortoCurrentColor(head.Take<std::uint32_t>());
        head >> m_nFillStyle;
        m_nFillForeColor = QzWinColortoCurrentColor(head.Take<std::uint32_t>());
        const auto back = head.Take<std::uint32_t>();
        m_bFillBackOpaque = back >> 24 == TransparentBack ? 0 : 1;
        m_nFillBackColor = QzWinColortoCurrentColor(back);
        head >> m_nFillOpaqueRate >> m_nFillGradientType >> m_nFillAngle >> m_nFillCenterOffsetX >>
            m_nFillCenterOffsetY;
        m_lineSymbol = std::move(line);
        m_fillSymbol = std::move(fill);
        break;
    }
    default: isWhole = LoadBlock(stream, end, kind);
    }
    if (!isWhole)
        stream.SetFailed();
    return isWhole;
}

// What is left of a record is 3D attributes.
bool QzStyle::LoadBlock(QzStream& stream, std::int64_t end, int kind) {
    if (stream.GetPosition() == end)
        return true;
    if (m_pStyleEx != nullptr)
        return m_pStyleEx->LoadBlock(stream, end, kind);
    StyleExPtr loaded;
    loaded.reset(new QzStyleEx);
    if (!loaded->LoadBlock(stream, end, kind))
        return false;
    m_pStyleEx = std::move(loaded);
    return true;
}

namespace {

// Steps over the size word, where there is one that fits; `end` is then the record's. Without one the stream
// stays where it was, and is good only when it had ended.
bool EnterRecord(QzStream& stream, std::int64_t& end) {
    constexpr std::int64_t SizeWordBytes = 4;
    const std::int64_t start = stream.GetPosition();
    const std::int64_t left = stream.GetLength() - start;
    if (left == 0)
        return false;
    std::uint32_t size = 0;
    if (left >= SizeWordBytes)
        stream >> size;
    if (size < SizeWordBytes || size > left) {
        stream.Seek(start);
        stream.SetFailed();
        return false;
    }
    end = start + size;
    return true;
}

} // namespace

unsigned char QzStyle::LoadNext(QzStream& stream, int kind, QzStyle& style) {
    std::int64_t end = 0;
    if (!EnterRecord(stream, end))
        return 0;
    const bool isWhole = style.LoadRecord(stream, end, kind);
    if (stream.GetPosition() != end)
        stream.Seek(end);
    return isWhole ? 1 : 0;
}

unsigned char QzStyle::SkipNext(QzStream& stream) {
    std::int64_t end = 0;
    return EnterRecord(stream, end) && stream.Seek(end) ? 1 : 0;
}

void QzStyle::SaveAll(QzStream& stream) const {
    WriteFields(stream, m_nMarkerStyle, m_nMarkerSize, m_nMarkerAngle, m_nLineStyle, m_nLineWidth,
                QzCurrentColortoWinColor(m_nLineColor), m_nFillStyle, QzCurrentColortoWinColor(m_nFillForeColor),
                m_bFillBackOpaque ? QzCurrentColortoWinColor(m_nFillBackColor) : NoBackColor, m_nFillOpaqueRate,
                m_nFillGradientType, m_nFillAngle, m_nFillCenterOffsetX, m_nFillCenterOffsetY);
}

unsigned char QzStyle::LoadAll(QzStream& stream, int size) {
    if (size < 36)
        return 0;
    RecordSource source(stream, stream.GetLength());
    RecordPart<36> head;
    RecordPart<8> fill;
    const bool hasFill = size >= 44;
    if (!head.Read(source) || (hasFill && !fill.Read(source))) {
        stream.SetFailed();
        return 1;
    }
    head >> m_nMarkerStyle >> m_nMarkerSize >> m_nMarkerAngle >> m_nLineStyle >> m_nLineWidth;
    m_nLineColor = QzWinColortoCurrentColor(head.Take<std::uint32_t>());
    head >> m_nFillStyle;
    m_nFillForeColor = QzWinColortoCurrentColor(head.Take<std::uint32_t>());
    const auto back = head.Take<std::uint32_t>();
    m_nFillBackColor = QzWinColortoCurrentColor(back);
    if (back == NoBackColor)
        m_bFillBackOpaque = 0;
    if (hasFill)
        fill >> m_nFillOpaqueRate >> m_nFillGradientType >> m_nFillAngle >> m_nFillCenterOffsetX >>
            m_nFillCenterOffsetY;
    return 1;
}

} // namespace Qzc
