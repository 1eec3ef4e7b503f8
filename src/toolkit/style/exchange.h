#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "base/keldarray.h"
#include "toolkit/qzstyleexport.h"

namespace Qzc {

// What the languages of other programs have in common.

/// The geometries that have a symbolizer in them.
enum DrawnKind { PointKind = 0, LineKind = 1, RegionKind = 2 };

/// Unit of a style's sizes, in a pixel.
constexpr double MillimetresPerPixel = 0.28;

/// Names of what was left out, each once, in the order in which it was met.
class LeftOut {
public:
    void Add(std::string_view name);
    void Give(KeldArray<KeldMBString>* pLeftOut) const; ///< replaces what it held; null: nobody asks

private:
    KeldArray<KeldMBString> m_names;
    std::unordered_set<std::string> m_held; // texts from outside may name any number of things
};

/// Tells what a written text does not hold: the fields, of those that a geometry of that kind has, in which what `read`
/// makes of it differs from what was written.
void TellLeftOut(const QzStyle& written, int kind, const KeldMBString& text, decltype(&FromFeatureStyle) read,
                 KeldArray<KeldMBString>* pLeftOut);

/// "#rrggbb"
std::string WebColor(std::uint32_t color);
/// Of "#rrggbb", or "#rrggbbaa" with the alpha, which else is 255.
struct ColorAndAlpha {
    std::uint32_t color;
    int alpha;
};
std::optional<ColorAndAlpha> ParseWebColor(std::string_view text);

/// The number with at most that many decimals and no zeros at the end.
std::string Decimal(double value, int decimals);
/// The whole of the text is a number, but for blanks around it and for a unit behind it where one is asked for.
std::optional<double> ParseDecimal(std::string_view text, std::string_view* unit = nullptr);

/// The name of a symbol that only this toolkit knows: "motoolkit-pen-5" for the pen 5.
std::string SymbolName(const char* tool, int identifier);
std::optional<int> ParseSymbolName(std::string_view text, const char* tool);

/// From percent to parts of `whole` (so that every percent comes back), and from 0 to 1 to percent.
int FromPercent(unsigned char percent, int whole);
unsigned char ToPercent(double part);

std::string_view Trimmed(std::string_view text);

} // namespace Qzc
