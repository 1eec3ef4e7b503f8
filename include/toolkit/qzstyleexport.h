#pragma once

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzstyle.h"

namespace Qzc {

// Drawing styles in the languages of other programs: feature style strings as OGR knows them, and symbolizers
// of OGC's Styled Layer Descriptor. They hold what the programs have in common: colours, widths, sizes, angles,
// opacity, and the identifiers of symbols, which come back and which others take for a plain line, fill or
// circle. docs/styles.md tells which field becomes what.
//
// Units: a style's sizes and widths are taken for millimetres, and a pixel for 0.28 of them. Angles are passed
// on as they are.
//
// The second result, where it is asked for, is replaced by the names of what was left out, none of them twice:
// - of an export, the fields that reading the text into a new style would not give back ("fill gradient");
// - of an import, what the text has and the style cannot hold, by its name there ("PEN p", "Filter").
//
// Kinds as in QzStyle::Save: 0 point, 1 line, 2 region. Texts are in the current charset. Without memory the result is
// that of a failure. Any thread.

/// "SYMBOL(...)" for a point, "PEN(...)" for a line, "BRUSH(...);PEN(...)" for a region; empty for other kinds.
MOTOOLKIT_API KeldMBString ToFeatureStyle(const QzStyle& style, int kind, KeldArray<KeldMBString>* pLeftOut = nullptr);

/// Takes from such a string what a geometry of that kind is drawn with. What a tool does not tell keeps its
/// value; but without an identifier it draws plainly (0), and a region without a brush is not filled (opacity
/// 0), without a pen has no outline (width 0). False when the text is none, or has no tool for the kind: the
/// style is then as it was, and nothing was left out.
MOTOOLKIT_API unsigned char FromFeatureStyle(const KeldMBString& text, int kind, QzStyle& style,
                                             KeldArray<KeldMBString>* pLeftOut = nullptr);

/// The versions of Styled Layer Descriptor.
enum class QzSldVersion {
    Sld10, ///< SLD 1.0.0
    Se11   ///< SLD 1.1.0 with the symbolizers of Symbology Encoding 1.1.0
};

/// A document with one rule for all features of the layer `name`, and in it the symbolizer of the kind. Empty
/// for other kinds, and for a name that XML cannot hold (a zero byte, or more than QzMarkup::MaxValueLength).
MOTOOLKIT_API KeldMBString ToSld(const QzStyle& style, int kind, const KeldMBString& name,
                                 QzSldVersion version = QzSldVersion::Sld10,
                                 KeldArray<KeldMBString>* pLeftOut = nullptr);

/// Takes the first symbolizer of the kind from a document of either version, or from an element of one, down
/// to the symbolizer itself. What it does not tell has the standard's default (a black line of one pixel, a
/// grey fill). A region without a fill gets an opacity of 0, without a stroke a width of 0. False when the text
/// is not well formed or has no such symbolizer: the style is then as it was, and nothing was left out.
MOTOOLKIT_API unsigned char FromSld(const KeldMBString& xml, int kind, QzStyle& style,
                                    KeldArray<KeldMBString>* pLeftOut = nullptr);

} // namespace Qzc
