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

// Behind the length. False when the bytes are not there, with the stream failed and no symbol held.
bool QzStyle::Symbol::Load(QzStream& stream, std::uint32_t length) {
    if (length == 0) {
        Clear();
        return true;
    }
    if (length > MaxSymbolLength || length > stream.GetRemaining() || !Allocate(length)) {
        Clear();
        stream.SetFailed();
        return false;
    }
    stream.Read(pBytes.get(), length);
    stream >> nVersion;
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

int QzStyle::GetHashCode() const {
    return GetHashCodeWithoutAngle() ^ QzHashCode::DoubleToHashCode(m_nMarkerAngle / 10.0);
}

int QzStyle::GetHashCodeWithoutAngle() const {
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
    return static_cast<int>(hash);
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
    SetLineColor3D(QzColorValue3D(m_nLineColor));
    SetPointColor(QzColorValue3D(m_nLineColor));
    SetFillColor(QzColorValue3D(m_nFillForeColor));
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

unsigned int QzStyle::GetStyleSize(int kind) const {
    unsigned int size = 4; // the size word itself
    switch (kind) {
    case 0: size += 40 + m_markerSymbol.GetStoreSize(); break;
    case 1: size += 16 + m_lineSymbol.GetStoreSize(); break;
    case 2: size += 40 + m_lineSymbol.GetStoreSize() + m_fillSymbol.GetStoreSize(); break;
    default: break;
    }
    return m_pStyleEx != nullptr ? size + m_pStyleEx->GetStyleSize(kind) : size;
}

void QzStyle::Save(QzStream& stream, int kind) const {
    const std::uint32_t size = GetStyleSize(kind);
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
    bool complete = true;
    switch (kind) {
    case 0: {
        RecordReader<28> record(stream);
        record >> m_nMarkerStyle >> m_nMarkerSize >> m_nMarkerAngle;
        m_nLineColor = QzWinColortoCurrentColor(record.Take<std::uint32_t>());
        record >> m_nMarkerWidth >> m_nMarkerHeight;
        complete = m_markerSymbol.Load(stream, record.Take<std::uint32_t>());
        if (!complete)
            break;
        RecordReader<12> rest(stream);
        rest >> m_nFillOpaqueRate >> m_nFillGradientType >> m_nFillAngle >> m_nFillCenterOffsetX >>
            m_nFillCenterOffsetY;
        m_nFillBackColor = QzWinColortoCurrentColor(rest.Take<std::uint32_t>());
        break;
    }
    case 1: {
        RecordReader<16> record(stream);
        record >> m_nLineStyle >> m_nLineWidth;
        m_nLineColor = QzWinColortoCurrentColor(record.Take<std::uint32_t>());
        complete = m_lineSymbol.Load(stream, record.Take<std::uint32_t>());
        break;
    }
    case 2: {
        RecordReader<36> record(stream);
        record >> m_nLineStyle >> m_nLineWidth;
        m_nLineColor = QzWinColortoCurrentColor(record.Take<std::uint32_t>());
        record >> m_nFillStyle;
        m_nFillForeColor = QzWinColortoCurrentColor(record.Take<std::uint32_t>());
        const auto back = record.Take<std::uint32_t>();
        m_bFillBackOpaque = back >> 24 == TransparentBack ? 0 : 1;
        m_nFillBackColor = QzWinColortoCurrentColor(back);
        record >> m_nFillOpaqueRate >> m_nFillGradientType >> m_nFillAngle >> m_nFillCenterOffsetX >>
            m_nFillCenterOffsetY;
        complete = m_lineSymbol.Load(stream, record.Take<std::uint32_t>());
        if (complete)
            complete = m_fillSymbol.Load(stream, RecordReader<4>(stream).Take<std::uint32_t>());
        break;
    }
    default: break;
    }
    if (complete && stream.GetPosition() != stream.GetLength())
        NeedStyleEx().Load(stream, kind);
    return static_cast<int>(GetStyleSize(kind)) - 4;
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
    RecordReader<36> record(stream);
    record >> m_nMarkerStyle >> m_nMarkerSize >> m_nMarkerAngle >> m_nLineStyle >> m_nLineWidth;
    m_nLineColor = QzWinColortoCurrentColor(record.Take<std::uint32_t>());
    record >> m_nFillStyle;
    m_nFillForeColor = QzWinColortoCurrentColor(record.Take<std::uint32_t>());
    const auto back = record.Take<std::uint32_t>();
    m_nFillBackColor = QzWinColortoCurrentColor(back);
    if (back == NoBackColor)
        m_bFillBackOpaque = 0;
    if (size >= 44) {
        RecordReader<8> fill(stream);
        fill >> m_nFillOpaqueRate >> m_nFillGradientType >> m_nFillAngle >> m_nFillCenterOffsetX >>
            m_nFillCenterOffsetY;
    }
    return 1;
}

} // namespace Qzc
