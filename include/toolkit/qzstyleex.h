#pragma once

#include <cstdint>

#include "base/keldmbstring.h"
#include "base/keldpoint2d.h"
#include "base/namespaces.h"
#include "stream/qzstream.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzcolorvalue3d.h"

namespace Qzc {

// What a record holds beyond these values is kept and written back as it is.

/// What of a face is drawn: the face, its outline, or both.
enum QzFill3DMode : std::int32_t { FILL_FACE = 1, FILL_LINE = 2, FILL_FACEANDLINE = 3 };
/// What heights are measured from.
enum AltitudeMode : std::int32_t { ClampToGround = 0, RelativeToGround = 1, Absolute = 2, RelativeToUnderground = 3 };
/// What the tiling of a texture counts.
enum QzTextureRepeatMode : std::int32_t { RepeatTimes = 0, RealSize = 1 };
/// How an icon turns to the one who looks.
enum QzBillBoardMode : std::int32_t { SCREEN_ALIGNED = 0, AUTO_Z_AXIAL = 1, FIXED_ANGLE = 2 };
/// A line, or a pipe around it.
enum QzLineStyle3D : std::int32_t { LINE_SIMPLE = 0, LINE_PIPELINE = 1 };

/// The three-dimensional attributes of a drawing style: a value, copied and compared by value. A QzStyle owns
/// one when it needs it; a reference to it ends with that style's ClearSymbolStyle3D, with its assignment and
/// with the style.
///
/// Setters raise the modified flag when the value differs from the one held, except those of the 3D marker,
/// of the fillet and of the tessellation, which never do. Reading a record or XML leaves the flag alone.
/// docs/styles.md has the record and the XML form as tables. An object is used by one thread at a time.
class MOTOOLKIT_API QzStyleEx {
public:
    QzStyleEx() = default;
    QzStyleEx(const QzStyleEx&) = default;
    QzStyleEx(QzStyleEx&&) noexcept = default;
    QzStyleEx& operator=(const QzStyleEx&) = default;
    QzStyleEx& operator=(QzStyleEx&&) noexcept = default;
    virtual ~QzStyleEx();

    /// Whether both draw alike: everything but the modified flag. What is no number is equal to itself, so that
    /// a copy is always equal.
    bool operator==(const QzStyleEx& other) const;
    bool operator!=(const QzStyleEx& other) const { return !(*this == other); }

    QzFill3DMode GetFill3DMode() const { return m_eFill3DMode; } ///< what of a face is drawn
    void SetFill3DMode(QzFill3DMode mode) { Change(m_eFill3DMode, mode); }
    AltitudeMode GetAltitudeMode() const { return m_eAltitudeMode; } ///< what heights are measured from
    void SetAltitudeMode(AltitudeMode mode) { Change(m_eAltitudeMode, mode); }
    const KeldMBString& GetIconName() const { return m_strIconName; } ///< of the picture that stands for a point
    void SetIconName(const KeldMBString& name) { Change(m_strIconName, name); }
    float GetIconScale() const { return m_fIconScale; } ///< its size, 1 as it is
    void SetIconScale(float scale) { Change(m_fIconScale, scale); }
    float GetPointSize() const { return m_fPointSize; } ///< of a point without an icon
    void SetPointSize(float size) { Change(m_fPointSize, size); }
    const QzColorValue3D& GetPointColor() const { return m_colorPoint; } ///< of a point without an icon
    void SetPointColor(const QzColorValue3D& color) { Change(m_colorPoint, color); }
    float GetLineWidth() const { return static_cast<float>(m_dLineWidth); } ///< of the line
    void SetLineWidth(float width) { Change<double>(m_dLineWidth, width); }
    const QzColorValue3D& GetLineColor() const { return m_colorLine; } ///< of the line
    void SetLineColor(const QzColorValue3D& color) { Change(m_colorLine, color); }
    const QzColorValue3D& GetFillColor() const { return m_colorFill; } ///< of the face
    void SetFillColor(const QzColorValue3D& color) { Change(m_colorFill, color); }
    float GetBottomAltitude() const { return static_cast<float>(m_dBottomAltitude); } ///< where the body starts
    void SetBottomAltitude(float altitude) { Change<double>(m_dBottomAltitude, altitude); }
    float GetExtendHeight() const { return static_cast<float>(m_dExtendHeight); } ///< how high the body is
    void SetExtendHeight(float height) { Change<double>(m_dExtendHeight, height); }
    const KeldMBString& GetSideTexture() const { return m_strSideTexture; } ///< the file of the picture on its sides
    void SetSideTexture(const KeldMBString& name) { Change(m_strSideTexture, name); }
    const KeldMBString& GetTopTexture() const { return m_strTopTexture; } ///< the same for its top
    void SetTopTexture(const KeldMBString& name) { Change(m_strTopTexture, name); }
    float GetTilingU() const { return m_fTilingU; } ///< of the sides, across
    void SetTilingU(float tiling) { Change(m_fTilingU, tiling); }
    float GetTilingV() const { return m_fTilingV; } ///< of the sides, upward
    void SetTilingV(float tiling) { Change(m_fTilingV, tiling); }
    QzTextureRepeatMode GetTextureRepeatMode() const { return m_eTextureRepeatMode; } ///< of the sides
    void SetTextureRepeatMode(QzTextureRepeatMode mode) { Change(m_eTextureRepeatMode, mode); }
    float GetTopTilingU() const { return m_fTopTilingU; } ///< of the top, in the one direction
    void SetTopTilingU(float tiling) { Change(m_fTopTilingU, tiling); }
    float GetTopTilingV() const { return m_fTopTilingV; } ///< of the top, in the other
    void SetTopTilingV(float tiling) { Change(m_fTopTilingV, tiling); }
    QzTextureRepeatMode GetTopTextureRepeatMode() const { return m_eTopTextureRepeatMode; } ///< of the top
    void SetTopTextureRepeatMode(QzTextureRepeatMode mode) { Change(m_eTopTextureRepeatMode, mode); }
    /// The point of the icon that stands on the place.
    const KeldPoint2D& GetIconAnchorPoint() const { return m_pntIconAnchor; }
    void SetIconAnchorPoint(const KeldPoint2D& anchor) { Change(m_pntIconAnchor, anchor); }
    /// Whether the icon keeps its size whatever its distance.
    unsigned char GetFixedPixelSize() const { return m_bFixedPixelSize; }
    void SetFixedPixelSize(unsigned char fixed) { Change(m_bFixedPixelSize, Flag(fixed)); }
    QzBillBoardMode GetBillBoardMode() const { return m_eBillBoardMode; } ///< how the icon turns
    void SetBillBoardMode(QzBillBoardMode mode) { Change(m_eBillBoardMode, mode); }
    QzLineStyle3D GetLineStyle() const { return m_eLineStyle; } ///< a line or a pipe
    void SetLineStyle(QzLineStyle3D style) { Change(m_eLineStyle, style); }
    unsigned int GetPipeSides() const { return m_nPipeSides; } ///< of a pipeline's cross-section
    void SetPipeSides(unsigned int sides) { Change(m_nPipeSides, sides); }
    int GetMarkerStyle() const { return m_nMarkerStyle; } ///< symbol identifier
    void SetMarkerStyle(int style) { Change(m_nMarkerStyle, style); }

    unsigned char IsMarker3D() const { return m_bMarker3D; } ///< whether the marker is a body
    void SetMarker3D(unsigned char is3D) { m_bMarker3D = Flag(is3D); }
    double GetMarker3DScaleX() const { return m_dScale[0]; } ///< along each axis, 1 as it is
    void SetMarker3DScaleX(double scale) { m_dScale[0] = scale; }
    double GetMarker3DScaleY() const { return m_dScale[1]; } ///< as X
    void SetMarker3DScaleY(double scale) { m_dScale[1] = scale; }
    double GetMarker3DScaleZ() const { return m_dScale[2]; } ///< as X
    void SetMarker3DScaleZ(double scale) { m_dScale[2] = scale; }
    double GetMarker3DRotateX() const { return m_dRotate[0]; } ///< about each axis
    void SetMarker3DRotateX(double angle) { m_dRotate[0] = angle; }
    double GetMarker3DRotateY() const { return m_dRotate[1]; } ///< as X
    void SetMarker3DRotateY(double angle) { m_dRotate[1] = angle; }
    double GetMarker3DRotateZ() const { return m_dRotate[2]; } ///< as X
    void SetMarker3DRotateZ(double angle) { m_dRotate[2] = angle; }
    unsigned char IsFiletEnable() const { return m_bFiletEnable; } ///< pipelines have rounded corners
    void SetFiletEnable(unsigned char enable) { m_bFiletEnable = Flag(enable); }
    /// A mark for who draws; nothing in this library asks for it.
    unsigned char IsTessellate() const { return m_bTessellate; }
    void SetTessellate(unsigned char tessellate) { m_bTessellate = Flag(tessellate); }
    unsigned char IsModified() const { return m_bModified; } ///< whether a setter has changed anything
    /// An owner that has stored the style sets it to 0.
    void SetModifiedFlag(unsigned char modified = 1) { m_bModified = Flag(modified); }

    /// Appends the block of a geometry kind: 0 point, 1 line, 2 region, 3 or 4 model; any other kind has only
    /// the fields that all share. The texture repeat modes, line width, line style, marker style and modified
    /// flag are not in it.
    void Save(QzStream& stream, int kind) const;

    /// Reads such a block, or one of the older form without the version stamp (see docs/styles.md), and never
    /// past the end of the stream. A block that is not wholly there changes nothing and is a failed read of
    /// the stream (IsGood); but one of the older form may end behind any field of its kind, and those that are
    /// missing keep their values. GetStyleSize of what is then held, at most 2^31-1.
    int Load(QzStream& stream, int kind);

    unsigned int GetStyleSize(int kind) const; ///< the bytes that Save writes; 0 for 4 GiB and more

    /// One element named `tag` ("zpl:Style" when empty), in the current charset. All fields but the modified
    /// flag and the marker style are in it, with the precision of their text; what is no number is written as
    /// "nan" or "inf" and read as 0. The version is 0 or at least 20031211. Empty when `tag` is no XML name,
    /// or when a name or a texture holds a zero byte or is too long for a text (see
    /// QzMarkup::MaxValueLength).
    KeldMBString ToXML(int nVersion, const KeldMBString& tag) const;

    /// Reads such an element, its children in any order; what is missing keeps its value, and so does a mode
    /// whose name is not known (names are compared without regard to case). False for an empty text.
    unsigned char FromXML(const KeldMBString& xml, int nVersion);

    /// The colour of "RGBA(red,green,blue,alpha)", whatever stands behind: the numbers that follow the first
    /// bracket and the first three commas; what is missing or no number is 0.
    static QzColorValue3D ConvertRGBAColor(const KeldMBString& text);

private:
    friend class QzStyle;

    static unsigned char Flag(unsigned char value) { return value != 0 ? 1 : 0; }
    template <class T>
    static bool IsSame(const T& a, const T& b) {
        return a == b;
    }
    static bool IsSame(double a, double b) { return a == b || (a != a && b != b); } // NaN differs from itself
    static bool IsSame(float a, float b) { return IsSame(double{a}, double{b}); }
    static bool IsSame(const KeldPoint2D& a, const KeldPoint2D& b) { return IsSame(a.x, b.x) && IsSame(a.y, b.y); }
    template <class T>
    void Change(T& field, const T& value) {
        const bool changes = !IsSame(field, value);
        field = value;
        if (changes)
            SetModifiedFlag(1);
    }
    template <class Style, class Visitor>
    static void VisitKind(Style& style, int kind, Visitor& visit);
    std::uint64_t BlockSize(int kind) const;
    bool LoadBlock(QzStream& stream, std::int64_t end, int kind); ///< up to a position in the stream
    template <class Reader>
    bool TakeWhole(Reader& reader, int kind);
    template <class Reader>
    bool ReadBlock(Reader& reader, int kind);

    QzFill3DMode m_eFill3DMode = FILL_FACE;
    AltitudeMode m_eAltitudeMode = ClampToGround;
    KeldMBString m_strIconName;
    float m_fIconScale = 1;
    float m_fPointSize = 4;
    QzColorValue3D m_colorPoint;
    double m_dLineWidth = 1;
    QzColorValue3D m_colorLine;
    QzColorValue3D m_colorFill;
    double m_dBottomAltitude = 0;
    double m_dExtendHeight = 0;
    KeldMBString m_strSideTexture;
    KeldMBString m_strTopTexture;
    float m_fTilingU = 1;
    float m_fTilingV = 1;
    QzTextureRepeatMode m_eTextureRepeatMode = RepeatTimes;
    float m_fTopTilingU = 1;
    float m_fTopTilingV = 1;
    QzTextureRepeatMode m_eTopTextureRepeatMode = RepeatTimes;
    KeldPoint2D m_pntIconAnchor;
    unsigned char m_bMarker3D = 0;
    std::int32_t m_nMarkerStyle = 0;
    double m_dScale[3] = {1, 1, 1};
    double m_dRotate[3] = {0, 0, 0};
    unsigned char m_bFixedPixelSize = 1;
    unsigned char m_bFiletEnable = 0;
    unsigned char m_bModified = 0;
    QzBillBoardMode m_eBillBoardMode = SCREEN_ALIGNED;
    QzLineStyle3D m_eLineStyle = LINE_SIMPLE;
    std::uint32_t m_nPipeSides = 20;
    unsigned char m_bTessellate = 0;
};

} // namespace Qzc
