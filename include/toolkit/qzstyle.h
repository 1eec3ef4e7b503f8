#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

#include "base/keldcolor.h"
#include "base/keldmbstring.h"
#include "base/keldstyle.h"
#include "base/namespaces.h"
#include "stream/qzmemorystream.h"
#include "stream/qzstream.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzstyleex.h"

namespace Qzc {

class RecordSource;

/// How a geometry is drawn: the marker of a point, the stroke of a line, the fill of a region, with a symbol
/// of one's own for each, and three-dimensional attributes where they are needed. A value: copied, compared
/// and stored with every styled geometry; it owns its symbols and its 3D attributes.
///
/// Sizes, widths and angles are kept in tenths, rounded half away from zero, and cut to what the field holds:
/// 0.25 becomes 0.3. Sizes and widths have the unit of whoever draws; angles are degrees. Colours are KELDRGB
/// values. Flags are 1 or 0.
///
/// docs/styles.md has the records and the XML form as tables. No operation throws. An object is used by one
/// thread at a time; several threads may read one that nobody changes.
class MOTOOLKIT_API QzStyle {
public:
    // ---- Comparison

    /// Whether both draw alike, symbols and 3D attributes included. The fixed colour, its flag and the
    /// scaling by symbol are states of a drawing in progress and take no part.
    bool operator==(const QzStyle& other) const {
        return IsSameFillStyle(*this, other) && IsSameLineStyle(*this, other) && IsSameMarkerStyle(*this, other) &&
               IsSameMarkerSymbolStyle(*this, other) && IsSameLineSymbolStyle(*this, other) &&
               IsSameFillSymbolStyle(*this, other) && IsSame3DSymbolStyle(*this, other);
    }
    bool operator!=(const QzStyle& other) const { return !(*this == other); }

    // The fields of one kind, without symbol bytes.
    /// Whether the fields of the fill are equal, without symbol bytes.
    static unsigned char IsSameFillStyle(const QzStyle& a, const QzStyle& b) {
        return a.m_nFillBackColor == b.m_nFillBackColor && a.m_nFillForeColor == b.m_nFillForeColor &&
               a.m_nFillStyle == b.m_nFillStyle && a.m_bFillBackOpaque == b.m_bFillBackOpaque &&
               a.m_nFillOpaqueRate == b.m_nFillOpaqueRate && a.m_nFillGradientType == b.m_nFillGradientType &&
               a.m_nFillAngle == b.m_nFillAngle && a.m_nFillCenterOffsetX == b.m_nFillCenterOffsetX &&
               a.m_nFillCenterOffsetY == b.m_nFillCenterOffsetY;
    }
    /// Whether those of the line are.
    static unsigned char IsSameLineStyle(const QzStyle& a, const QzStyle& b) {
        return a.m_nLineColor == b.m_nLineColor && a.m_nLineStyle == b.m_nLineStyle && a.m_nLineWidth == b.m_nLineWidth;
    }
    /// The line colour included.
    static unsigned char IsSameMarkerStyle(const QzStyle& a, const QzStyle& b) {
        return a.m_nMarkerAngle == b.m_nMarkerAngle && a.m_nMarkerSize == b.m_nMarkerSize &&
               a.m_nMarkerStyle == b.m_nMarkerStyle && a.m_nMarkerWidth == b.m_nMarkerWidth &&
               a.m_nMarkerHeight == b.m_nMarkerHeight && a.m_nLineColor == b.m_nLineColor;
    }

    /// Whether both draw a geometry of this kind alike: 0 point (marker), 1 line, 2 region (line and fill),
    /// symbols and 3D attributes included. For any other kind the styles as a whole.
    static unsigned char IsSameDimensionStyle(const QzStyle& a, const QzStyle& b, int kind);

    /// Both without a symbol, or the same bytes and version.
    static unsigned char IsSameMarkerSymbolStyle(const QzStyle& a, const QzStyle& b) {
        return Symbol::AreSame(a.m_markerSymbol, b.m_markerSymbol);
    }
    /// The same for the symbols of the line.
    static unsigned char IsSameLineSymbolStyle(const QzStyle& a, const QzStyle& b) {
        return Symbol::AreSame(a.m_lineSymbol, b.m_lineSymbol);
    }
    /// The same for the symbols of the fill.
    static unsigned char IsSameFillSymbolStyle(const QzStyle& a, const QzStyle& b) {
        return Symbol::AreSame(a.m_fillSymbol, b.m_fillSymbol);
    }
    /// Both without 3D attributes, or with equal ones.
    static unsigned char IsSame3DSymbolStyle(const QzStyle& a, const QzStyle& b) {
        if (a.m_pStyleEx == nullptr || b.m_pStyleEx == nullptr)
            return a.m_pStyleEx.get() == b.m_pStyleEx.get();
        return *a.m_pStyleEx == *b.m_pStyleEx;
    }

    /// Equal for equal styles, on every platform, and spread over all bits; std::hash<QzStyle> is made of it.
    /// Symbols and 3D attributes take no part. May differ between versions of this library.
    int GetHashCode() const;
    int GetHashCodeWithoutAngle() const; ///< the same for styles that differ in the marker angle only

    // ---- Drawing with one colour

    unsigned char IsFixedColor() const { return m_bFixedColor; } ///< whether all is drawn in the fixed colour
    void SetIsFixedColor(unsigned char isFixed) { m_bFixedColor = Flag(isFixed); }
    unsigned int GetFixedColor() const { return m_nFixedColor; } ///< instead of the style's own colours
    void SetFixedColor(unsigned int color) { m_nFixedColor = color; }

    // ---- Marker

    int GetMarkerStyle() const { return m_nMarkerStyle; } ///< symbol identifier, as all styles
    void SetMarkerStyle(int style) { m_nMarkerStyle = style; }
    double GetMarkerAngle() const { return m_nMarkerAngle / 10.0; } ///< degrees
    void SetMarkerAngle(double angle) { m_nMarkerAngle = Tenths(angle); }
    double GetMarkerSize() const { return m_nMarkerSize / 10.0; } ///< of the marker as a whole
    void SetMarkerSize(double size) { m_nMarkerSize = Tenths(size); }
    double GetMarkerWidth() const { return m_nMarkerWidth / 10.0; } ///< of the marker alone
    void SetMarkerWidth(double width) { m_nMarkerWidth = Tenths(width); }
    double GetMarkerHeight() const { return m_nMarkerHeight / 10.0; } ///< likewise
    void SetMarkerHeight(double height) { m_nMarkerHeight = Tenths(height); }
    /// A mark for who draws; nothing in this library asks for it.
    unsigned char IsScaleBySymbol() const { return m_bScaleBySymbol; }
    void SetScaleBySymbol(unsigned char scale) { m_bScaleBySymbol = Flag(scale); }

    // ---- Line

    int GetLineStyle() const { return m_nLineStyle; } ///< symbol identifier
    void SetLineStyle(int style) { m_nLineStyle = style; }
    /// The same with a 3D line style.
    void SetLineStyle(const QzLineStyle3D& style) { SetLineStyle(static_cast<int>(style)); }
    unsigned int GetLineColor() const { return m_nLineColor; } ///< also the marker's colour
    /// The line colour of the 3D attributes, if there are any, follows and keeps its alpha.
    void SetLineColor(unsigned int color);
    double GetLineWidth() const { return m_nLineWidth / 10.0; } ///< of the stroke
    void SetLineWidth(double width) { m_nLineWidth = Tenths(width); }

    // ---- Fill

    int GetFillStyle() const { return m_nFillStyle; } ///< symbol identifier
    void SetFillStyle(int style) { m_nFillStyle = style; }
    unsigned int GetFillBackColor() const { return m_nFillBackColor; } ///< behind a pattern
    void SetFillBackColor(unsigned int color) { m_nFillBackColor = color; }
    unsigned int GetFillForeColor() const { return m_nFillForeColor; } ///< of the pattern, or of the whole
    /// The fill colour of the 3D attributes, if there are any, follows and keeps its alpha.
    void SetFillForeColor(unsigned int color);
    /// Whether the back is painted. The record of a region keeps this in the top byte of the back colour, and
    /// a reader takes the whole word for the colour: a region whose back is not painted does not load back
    /// equal, and before its back is painted again the colour must be set again.
    unsigned char GetFillBackOpaque() const { return m_bFillBackOpaque; }
    void SetFillBackOpaque(unsigned char opaque) { m_bFillBackOpaque = Flag(opaque); }
    unsigned char GetFillOpaqueRate() const { return m_nFillOpaqueRate; } ///< percent
    void SetFillOpaqueRate(unsigned char percent) { m_nFillOpaqueRate = percent; }
    /// 0 none, 1 linear, 2 radial, 3 conical, 4 square.
    unsigned char GetFillGradientType() const { return m_nFillGradientType; }
    void SetFillGradientType(unsigned char type) { m_nFillGradientType = type; }
    double GetFillAngle() const { return m_nFillAngle / 10.0; } ///< of the gradient
    void SetFillAngle(double angle) { m_nFillAngle = static_cast<std::int16_t>(Tenths(angle)); }
    short GetFillCenterOffsetX() const { return m_nFillCenterOffsetX; } ///< of the gradient; no tenths
    void SetFillCenterOffsetX(short offset) { m_nFillCenterOffsetX = offset; }
    short GetFillCenterOffsetY() const { return m_nFillCenterOffsetY; }
    void SetFillCenterOffsetY(short offset) { m_nFillCenterOffsetY = offset; }

    // ---- Symbols of one's own: bytes that the style keeps and does not look into
    //
    // A null pointer raises the assertion. It, a length of 0, one of 2^31 and more, and one that no memory can
    // be had for give false and change nothing. With `copy` the bytes are copied; without it the style takes over the
    // buffer, which `new unsigned char[]` made, when the result is true. A stream gives all of its bytes, wherever its
    // position is, and stays as it is. What the getters point to is valid until the symbol changes.

    /// The symbol of a marker.
    unsigned char SetMarkSymbolStyle(unsigned char* pMarkerSymbolBuffer, unsigned int length, unsigned int version,
                                     unsigned char copy);
    unsigned char SetMarkSymbolStyle(const QzMemoryStream* pMarkerSymbolStream, unsigned int version);
    const unsigned char* GetMarkSymbolStyle() const { return m_markerSymbol.pBytes.get(); } ///< null: none
    unsigned int GetMarkerSymbolLength() const { return m_markerSymbol.nLength; }           ///< in bytes
    unsigned int GetMarkerSymbolVersion() const { return m_markerSymbol.nVersion; }         ///< as it was set
    void ClearMarkSymbolStyle() { m_markerSymbol.Clear(); }                                 ///< drops the symbol

    /// The symbol of a line.
    unsigned char SetLineSymbolStyle(unsigned char* pLineSymbolBuffer, unsigned int length, unsigned int version,
                                     unsigned char copy);
    unsigned char SetLineSymbolStyle(const QzMemoryStream* pLineSymbolStream, unsigned int version);
    const unsigned char* GetLineSymbolStyle() const { return m_lineSymbol.pBytes.get(); } ///< null: none
    unsigned int GetLineSymbolLength() const { return m_lineSymbol.nLength; }             ///< in bytes
    unsigned int GetLineSymbolVersion() const { return m_lineSymbol.nVersion; }           ///< as it was set
    void ClearLineSymbolStyle() { m_lineSymbol.Clear(); }                                 ///< drops the symbol

    /// The symbol of a fill.
    unsigned char SetFillSymbolStyle(unsigned char* pFillSymbolBuffer, unsigned int length, unsigned int version,
                                     unsigned char copy);
    unsigned char SetFillSymbolStyle(const QzMemoryStream* pFillSymbolStream, unsigned int version);
    const unsigned char* GetFillSymbolStyle() const { return m_fillSymbol.pBytes.get(); } ///< null: none
    unsigned int GetFillSymbolLength() const { return m_fillSymbol.nLength; }             ///< in bytes
    unsigned int GetFillSymbolVersion() const { return m_fillSymbol.nVersion; }           ///< as it was set
    void ClearFillSymbolStyle() { m_fillSymbol.Clear(); }                                 ///< drops the symbol

    void ClearSymbolStyle3D() { m_pStyleEx.reset(); } ///< drops the 3D attributes
    void ClearSymbolStyle();                          ///< drops the symbols and the 3D attributes

    // ---- Three-dimensional attributes: made by the first setter called, whatever it sets (so also by
    // SetModifiedFlag(0)); until then getters give the defaults. Pointers and references that the getters give
    // end with ClearSymbolStyle3D, ClearSymbolStyle, an assignment to the style, and the style.

    const QzStyleEx* GetStyleEx() const { return m_pStyleEx.get(); } ///< null: none; the style owns them
    QzStyleEx* GetStyleEx() { return m_pStyleEx.get(); }

    QzFill3DMode GetFill3DMode() const { return StyleEx().GetFill3DMode(); }
    void SetFill3DMode(QzFill3DMode mode) { NeedStyleEx().SetFill3DMode(mode); }
    AltitudeMode GetAltitudeMode() const { return StyleEx().GetAltitudeMode(); }
    void SetAltitudeMode(AltitudeMode mode) { NeedStyleEx().SetAltitudeMode(mode); }
    const KeldMBString& GetIconName() const { return StyleEx().GetIconName(); }
    void SetIconName(const KeldMBString& name) { NeedStyleEx().SetIconName(name); }
    float GetIconScale() const { return StyleEx().GetIconScale(); }
    void SetIconScale(float scale) { NeedStyleEx().SetIconScale(scale); }
    float GetPointSize() const { return StyleEx().GetPointSize(); }
    void SetPointSize(float size) { NeedStyleEx().SetPointSize(size); }
    const QzColorValue3D& GetPointColor() const { return StyleEx().GetPointColor(); }
    void SetPointColor(const QzColorValue3D& color) { NeedStyleEx().SetPointColor(color); }
    const QzColorValue3D& GetLineColor3D() const { return StyleEx().GetLineColor(); }
    void SetLineColor3D(const QzColorValue3D& color) { NeedStyleEx().SetLineColor(color); }
    const QzColorValue3D& GetFillColor() const { return StyleEx().GetFillColor(); }
    void SetFillColor(const QzColorValue3D& color) { NeedStyleEx().SetFillColor(color); }
    float GetBottomAltitude() const { return StyleEx().GetBottomAltitude(); }
    void SetBottomAltitude(float altitude) { NeedStyleEx().SetBottomAltitude(altitude); }
    float GetExtendHeight() const { return StyleEx().GetExtendHeight(); }
    void SetExtendHeight(float height) { NeedStyleEx().SetExtendHeight(height); }
    const KeldMBString& GetSideTexture() const { return StyleEx().GetSideTexture(); }
    void SetSideTexture(const KeldMBString& name) { NeedStyleEx().SetSideTexture(name); }
    const KeldMBString& GetTopTexture() const { return StyleEx().GetTopTexture(); }
    void SetTopTexture(const KeldMBString& name) { NeedStyleEx().SetTopTexture(name); }
    float GetTilingU() const { return StyleEx().GetTilingU(); }
    void SetTilingU(float tiling) { NeedStyleEx().SetTilingU(tiling); }
    float GetTilingV() const { return StyleEx().GetTilingV(); }
    void SetTilingV(float tiling) { NeedStyleEx().SetTilingV(tiling); }
    float GetTopTilingU() const { return StyleEx().GetTopTilingU(); }
    void SetTopTilingU(float tiling) { NeedStyleEx().SetTopTilingU(tiling); }
    float GetTopTilingV() const { return StyleEx().GetTopTilingV(); }
    void SetTopTilingV(float tiling) { NeedStyleEx().SetTopTilingV(tiling); }
    QzTextureRepeatMode GetTextureRepeatMode() const { return StyleEx().GetTextureRepeatMode(); }
    void SetTextureRepeatMode(QzTextureRepeatMode mode) { NeedStyleEx().SetTextureRepeatMode(mode); }
    QzTextureRepeatMode GetTopTextureRepeatMode() const { return StyleEx().GetTopTextureRepeatMode(); }
    void SetTopTextureRepeatMode(QzTextureRepeatMode mode) { NeedStyleEx().SetTopTextureRepeatMode(mode); }
    const KeldPoint2D& GetIconAnchorPoint() const { return StyleEx().GetIconAnchorPoint(); }
    void SetIconAnchorPoint(const KeldPoint2D& anchor) { NeedStyleEx().SetIconAnchorPoint(anchor); }
    unsigned char GetFixedPixelSize() const { return StyleEx().GetFixedPixelSize(); }
    void SetFixedPixelSize(unsigned char fixed) { NeedStyleEx().SetFixedPixelSize(fixed); }
    QzBillBoardMode GetBillBoardMode() const { return StyleEx().GetBillBoardMode(); }
    void SetBillBoardMode(QzBillBoardMode mode) { NeedStyleEx().SetBillBoardMode(mode); }
    unsigned int GetPipeSides() const { return StyleEx().GetPipeSides(); }
    void SetPipeSides(unsigned int sides) { NeedStyleEx().SetPipeSides(sides); }
    unsigned char IsModified() const { return StyleEx().IsModified(); } ///< the 3D attributes
    void SetModifiedFlag(unsigned char modified = 1) { NeedStyleEx().SetModifiedFlag(modified); }
    unsigned char IsMarker3D() const { return StyleEx().IsMarker3D(); }
    void SetMarker3D(unsigned char is3D) { NeedStyleEx().SetMarker3D(is3D); }
    double GetMarker3DScaleX() const { return StyleEx().GetMarker3DScaleX(); }
    void SetMarker3DScaleX(double scale) { NeedStyleEx().SetMarker3DScaleX(scale); }
    double GetMarker3DScaleY() const { return StyleEx().GetMarker3DScaleY(); }
    void SetMarker3DScaleY(double scale) { NeedStyleEx().SetMarker3DScaleY(scale); }
    double GetMarker3DScaleZ() const { return StyleEx().GetMarker3DScaleZ(); }
    void SetMarker3DScaleZ(double scale) { NeedStyleEx().SetMarker3DScaleZ(scale); }
    double GetMarker3DRotateX() const { return StyleEx().GetMarker3DRotateX(); }
    void SetMarker3DRotateX(double angle) { NeedStyleEx().SetMarker3DRotateX(angle); }
    double GetMarker3DRotateY() const { return StyleEx().GetMarker3DRotateY(); }
    void SetMarker3DRotateY(double angle) { NeedStyleEx().SetMarker3DRotateY(angle); }
    double GetMarker3DRotateZ() const { return StyleEx().GetMarker3DRotateZ(); }
    void SetMarker3DRotateZ(double angle) { NeedStyleEx().SetMarker3DRotateZ(angle); }
    unsigned char IsFiletEnable() const { return StyleEx().IsFiletEnable(); }
    void SetFiletEnable(unsigned char enable) { NeedStyleEx().SetFiletEnable(enable); }
    unsigned char IsTessellate() const { return StyleEx().IsTessellate(); }
    void SetTessellate(unsigned char tessellate) { NeedStyleEx().SetTessellate(tessellate); }

    /// Sets the 3D colours from the 2D ones, opaque: line and point from the line colour, fill from the fill
    /// fore colour.
    void Convert2DTo3DStyle();
    /// Sets line colour and fill fore colour from the 3D ones, if there are any, without their alpha.
    void Convert3DTo2DStyle();

    // ---- The base library's record: all fields but the symbols and the 3D attributes

    void ToKeldStyle(KeldStyle& style) const;   ///< all its fields
    void FromKeldStyle(const KeldStyle& style); ///< symbols stay; 3D colours follow as with the setters

    // ---- Streams. Failed transfers are remembered by the stream (IsGood); a style that is not wholly there, in
    // whatever form, changes nothing.

    /// Appends the record of a geometry kind (0 point, 1 line, 2 region, 3 and 4 model: 3D attributes only),
    /// which starts with its size in bytes, then the 3D attributes if there are any. Only the fields that the
    /// kind draws with are in it. Any other kind gives a size of 0, and no record that can be read. A record
    /// of 4 GiB and more is not written: the stream fails.
    void Save(QzStream& stream, int kind) const;

    /// Reads the record of a kind that the stream stands at, as Save wrote it, and leaves the stream behind it:
    ///     QzStyle style;
    ///     while (QzStyle::LoadNext(stream, kind, style))
    ///         Draw(style);
    ///     if (!stream.IsGood())
    ///         Report("a record is damaged");
    /// Fields that are not in the record keep their values. 1; 0 at the end of the stream, which is then still
    /// good. 0 also for a failed read, where the style stays as it was: a size that cannot be (below 4, or
    /// beyond the stream's end) leaves the stream before it; a record that does not hold what its kind needs
    /// is passed, so that after ClearFailure the next one can be read.
    static unsigned char LoadNext(QzStream& stream, int kind, QzStyle& style);
    /// Passes a record of any kind without looking into it; 0 where LoadNext finds the end or no possible size.
    static unsigned char SkipNext(QzStream& stream);

    /// Reads the record of a kind from a stream that stands behind the size word and holds nothing behind the
    /// record: whatever follows the kind's fields is taken for 3D attributes. LoadNext does that for records
    /// in a row. Fields that are not in the record keep their values. A record that is not wholly there, or
    /// has a symbol or a name longer than what the stream still holds, is a failed read and changes nothing.
    /// The size of the record as Save would now write it, without the size word; at most 2^31-1.
    int Load(QzStream& stream, int kind);

    /// Appends the record of fixed size: marker, line and fill, without the marker's width and height,
    /// symbols and 3D attributes.
    void SaveAll(QzStream& stream) const;
    /// Reads that record. From a size of 36, which older writers wrote, to 43 bytes the fill's opacity and
    /// gradient keep their values; below 36 nothing is read, and the result is false. It tells nothing of what
    /// the stream held: ask the stream.
    unsigned char LoadAll(QzStream& stream, int size);
    static unsigned int GetStoreSize() { return 44; } ///< the bytes that SaveAll writes

    /// The bytes that Save writes, for the kinds 0 to 4; 0 for 4 GiB and more.
    unsigned int GetStyleSize(int kind) const;

    // ---- XML

    /// One element named `tag`, in the current charset, in one of two dialects: version 20031211, with the
    /// element "zpl:GeoStyle", or version 0 and all newer ones, with "zpl:Style". The older dialect has neither
    /// the marker's width and height nor 3D attributes; both keep decimals with the precision of their text,
    /// and symbols as ByteConver2String does: docs/styles.md lists what is lost. Empty, for what cannot be
    /// written: a `tag` that is neither empty nor an XML name, a symbol of more than
    /// QzMarkup::MaxValueLength / 2 bytes, 3D attributes whose ToXML is empty.
    KeldMBString ToXML(int nVersion, const KeldMBString& tag) const;

    /// Reads such an element; its name does not matter. Children are found in the order in which ToXML writes
    /// them, with anything in between; what is missing keeps its value. In the newer dialect a child
    /// "zpl:PointSize" makes the whole text one of 3D attributes, whose line and marker the style then takes.
    /// A symbol of a negative length, or one that exceeds its text by more than 64 KiB, is dropped. False for
    /// an empty text.
    unsigned char FromXML(const KeldMBString& xml, int nVersion);

    static KeldMBString ConvertRGBColor(unsigned int color); ///< "RGB(red,green,blue)"
    /// From that text, or from the colour value as a decimal number.
    static unsigned int ConvertRGBColor(const KeldMBString& text);

    /// Appends bytes as hexadecimal text, in groups of four, the last one filled up with zeros. When the
    /// length is a multiple of 4 the last four bytes are left out: existing documents were written so.
    static unsigned char ByteConver2String(const unsigned char* bytes, int length, KeldMBString& out);
    /// Fills `length` bytes at `bytes` from such a text, with zeros where it has no digits or has ended.
    static unsigned char StringConver2Byte(unsigned char*& bytes, const int& length, const KeldMBString& text);

protected:
    /// Takes marker style, line width and line style from the 3D attributes, if there are any.
    void UpdateStyleAttribute();

private:
    /// Owned bytes with a version; copied deeply. Without bytes the length is 0.
    struct MOTOOLKIT_API Symbol {
        Symbol() = default;
        Symbol(const Symbol& other) { *this = other; }
        Symbol(Symbol&& other) noexcept { *this = std::move(other); }
        Symbol& operator=(const Symbol& other) {
            if (pBytes != nullptr || other.pBytes != nullptr)
                CopyBytes(other);
            nVersion = other.nVersion;
            return *this;
        }
        Symbol& operator=(Symbol&& other) noexcept {
            pBytes = std::move(other.pBytes);
            nLength = std::exchange(other.nLength, 0);
            nVersion = other.nVersion;
            return *this;
        }
        ~Symbol() = default;

        bool Allocate(std::uint32_t length); ///< frees what there was; false: no memory, no symbol
        unsigned char Set(unsigned char* buffer, std::uint32_t length, std::uint32_t version, bool copy);
        unsigned char Set(const QzMemoryStream& stream, std::uint32_t version);
        void Clear() {
            pBytes.reset();
            nLength = 0;
        }
        void Save(QzStream& stream) const;
        bool Load(RecordSource& source, std::uint32_t length);
        Symbol Next() const { ///< empty, to load into; a record without bytes has no version either
            Symbol next;
            next.nVersion = nVersion;
            return next;
        }
        std::uint64_t GetStoreSize() const { return pBytes != nullptr ? std::uint64_t{nLength} + 4 : 0; }
        static bool AreSame(const Symbol& a, const Symbol& b) {
            if (a.pBytes == nullptr || b.pBytes == nullptr)
                return a.pBytes == b.pBytes;
            return a.nLength == b.nLength && a.nVersion == b.nVersion &&
                   std::memcmp(a.pBytes.get(), b.pBytes.get(), a.nLength) == 0;
        }

        std::unique_ptr<unsigned char[]> pBytes;
        std::uint32_t nLength = 0;
        std::uint32_t nVersion = 0;

    private:
        void CopyBytes(const Symbol& other);
    };

    /// A QzStyleEx or none, copied deeply.
    class StyleExPtr {
    public:
        StyleExPtr() = default;
        StyleExPtr(const StyleExPtr& other) : m_style(other != nullptr ? new QzStyleEx(*other) : nullptr) {}
        StyleExPtr(StyleExPtr&&) noexcept = default;
        StyleExPtr& operator=(const StyleExPtr& other) {
            if (other == nullptr)
                m_style.reset();
            else if (m_style == nullptr)
                m_style.reset(new QzStyleEx(*other));
            else
                *m_style = *other;
            return *this;
        }
        StyleExPtr& operator=(StyleExPtr&&) noexcept = default;
        ~StyleExPtr() = default;

        void reset(QzStyleEx* style = nullptr) { m_style.reset(style); } ///< takes ownership
        QzStyleEx* get() const { return m_style.get(); }
        QzStyleEx& operator*() const { return *m_style; }
        QzStyleEx* operator->() const { return m_style.get(); }
        friend bool operator==(const StyleExPtr& pointer, std::nullptr_t) { return pointer.m_style == nullptr; }
        friend bool operator!=(const StyleExPtr& pointer, std::nullptr_t) { return pointer.m_style != nullptr; }

    private:
        std::unique_ptr<QzStyleEx> m_style;
    };

    static unsigned char Flag(unsigned char value) { return value != 0 ? 1 : 0; }
    static std::int32_t Tenths(double value);
    static const QzStyleEx& DefaultStyleEx();
    const QzStyleEx& StyleEx() const { return m_pStyleEx != nullptr ? *m_pStyleEx : DefaultStyleEx(); }
    QzStyleEx& NeedStyleEx();
    std::uint32_t HashWithoutAngle() const;
    std::uint64_t RecordSize(int kind) const;
    bool LoadRecord(QzStream& stream, std::int64_t end, int kind); ///< up to a position in the stream
    bool LoadBlock(QzStream& stream, std::int64_t end, int kind);
    KeldMBString ToXML2003(const KeldMBString& tag) const;
    void FromXML2003(const KeldMBString& xml);

    std::uint32_t m_nFixedColor = KELDRGB(255, 255, 255);
    std::int32_t m_nMarkerStyle = 0;
    std::int32_t m_nMarkerAngle = 0;
    std::int32_t m_nMarkerSize = 24;
    std::int32_t m_nMarkerWidth = 24;
    std::int32_t m_nMarkerHeight = 24;
    std::int32_t m_nLineStyle = 0;
    std::uint32_t m_nLineColor = KELDRGB(0, 0, 0);
    std::int32_t m_nLineWidth = 1;
    std::int32_t m_nFillStyle = 0;
    std::uint32_t m_nFillBackColor = KELDRGB(255, 255, 255);
    std::uint32_t m_nFillForeColor = KELDRGB(189, 235, 255);
    std::int16_t m_nFillAngle = 0;
    std::int16_t m_nFillCenterOffsetX = 0;
    std::int16_t m_nFillCenterOffsetY = 0;
    unsigned char m_bFillBackOpaque = 1;
    unsigned char m_nFillOpaqueRate = 100;
    unsigned char m_nFillGradientType = 0;
    unsigned char m_bFixedColor = 0;
    unsigned char m_bScaleBySymbol = 0;
    Symbol m_markerSymbol;
    Symbol m_lineSymbol;
    Symbol m_fillSymbol;
    StyleExPtr m_pStyleEx;
};

} // namespace Qzc

/// For unordered tables keyed by style.
template <>
struct std::hash<Qzc::QzStyle> {
    std::size_t operator()(const Qzc::QzStyle& style) const noexcept {
        return static_cast<std::size_t>(static_cast<std::uint32_t>(style.GetHashCode()));
    }
};
