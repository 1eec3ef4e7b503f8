#include "toolkit/style/exchange.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "toolkit/style/numbertext.h"

namespace Qzc {

namespace {

constexpr std::string_view Vendor = "motoolkit-";

struct Field {
    const char* name;
    const char* kinds;
    bool (*isSame)(const QzStyle& a, const QzStyle& b);
};

template <auto... Getters>
bool Same(const QzStyle& a, const QzStyle& b) {
    return (((a.*Getters)() == (b.*Getters)()) && ...);
}
template <auto Getter>
bool SameColor(const QzStyle& a, const QzStyle& b) {
    return (((a.*Getter)() ^ (b.*Getter)()) & 0xFFFFFF) == 0;
}
template <auto Compare>
bool SameBy(const QzStyle& a, const QzStyle& b) {
    return Compare(a, b) != 0;
}

using S = QzStyle;
constexpr Field Fields[] = {
    {"marker style", "0", Same<&S::GetMarkerStyle>},
    {"marker size", "0", Same<&S::GetMarkerSize>},
    {"marker width", "0", Same<&S::GetMarkerWidth>},
    {"marker height", "0", Same<&S::GetMarkerHeight>},
    {"marker angle", "0", Same<&S::GetMarkerAngle>},
    {"scale by symbol", "0", Same<&S::IsScaleBySymbol>},
    {"marker symbol", "0", SameBy<&S::IsSameMarkerSymbolStyle>},
    {"line style", "12", Same<&S::GetLineStyle>},
    {"line width", "12", Same<&S::GetLineWidth>},
    {"line colour", "012", SameColor<&S::GetLineColor>},
    {"line symbol", "12", SameBy<&S::IsSameLineSymbolStyle>},
    {"fill style", "2", Same<&S::GetFillStyle>},
    {"fill fore colour", "2", SameColor<&S::GetFillForeColor>},
    {"fill back colour", "02", SameColor<&S::GetFillBackColor>},
    {"fill back opaque", "2", Same<&S::GetFillBackOpaque>},
    {"fill opacity", "02", Same<&S::GetFillOpaqueRate>},
    {"fill gradient", "02", Same<&S::GetFillGradientType>},
    {"fill angle", "02", Same<&S::GetFillAngle>},
    {"fill centre", "02", Same<&S::GetFillCenterOffsetX, &S::GetFillCenterOffsetY>},
    {"fill symbol", "2", SameBy<&S::IsSameFillSymbolStyle>},
    {"fixed colour", "012", Same<&S::IsFixedColor>},
    {"3D attributes", "01234", SameBy<&S::IsSame3DSymbolStyle>},
};

template <class Integer>
bool ParseWhole(std::string_view text, Integer& value, int base) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, base);
    return result.ec == std::errc() && result.ptr == end;
}

} // namespace

void LeftOut::Add(std::string_view name) {
    if (m_held.emplace(name).second)
        m_names.Add(KeldMBString(name));
}

void LeftOut::Give(KeldArray<KeldMBString>* pLeftOut) const {
    if (pLeftOut != nullptr)
        *pLeftOut = m_names;
}

void TellLeftOut(const QzStyle& written, int kind, const KeldMBString& text, decltype(&FromFeatureStyle) read,
                 KeldArray<KeldMBString>* pLeftOut) {
    if (pLeftOut == nullptr)
        return;
    QzStyle readBack;
    read(text, kind, readBack, nullptr);
    LeftOut leftOut;
    for (const Field& field : Fields) {
        const bool has = kind >= 0 && kind <= 4 &&
                         std::string_view(field.kinds).find(static_cast<char>('0' + kind)) != std::string_view::npos;
        if (has && !field.isSame(written, readBack))
            leftOut.Add(field.name);
    }
    leftOut.Give(pLeftOut);
}

std::string WebColor(std::uint32_t color) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text = "#";
    for (const int part : {KELDREDVAL(color), KELDGREENVAL(color), KELDBLUEVAL(color)}) {
        text += Digits[part >> 4];
        text += Digits[part & 0x0F];
    }
    return text;
}

std::optional<ColorAndAlpha> ParseWebColor(std::string_view text) {
    text = Trimmed(text);
    std::uint32_t value = 0;
    if ((text.size() != 7 && text.size() != 9) || text[0] != '#' || !ParseWhole(text.substr(1), value, 16))
        return std::nullopt;
    const int alpha = text.size() == 9 ? static_cast<int>(value & 0xFF) : 0xFF;
    const auto color = static_cast<int>(text.size() == 9 ? value >> 8 : value);
    return ColorAndAlpha{KELDRGB(color >> 16, color >> 8, color), alpha};
}

std::string Decimal(double value, int decimals) {
    std::string text(NumberText::Fixed(value, decimals).View());
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.')
        text.pop_back();
    return text == "-0" ? "0" : text;
}

std::optional<double> ParseDecimal(std::string_view text, std::string_view* unit) {
    text = Trimmed(text);
    if (!text.empty() && text[0] == '+')
        text.remove_prefix(1);
    double value = 0;
    const auto result = ReadDouble(text, value);
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    if (result.ec != std::errc() || !std::isfinite(value) || (unit == nullptr && !text.empty()))
        return std::nullopt;
    if (unit != nullptr)
        *unit = Trimmed(text);
    return value;
}

std::string SymbolName(const char* tool, int identifier) {
    return std::string(Vendor) + tool + '-' + NumberText::Integer(identifier).Cstr();
}

std::optional<int> ParseSymbolName(std::string_view text, const char* tool) {
    const std::string beginning = std::string(Vendor) + tool + '-';
    std::int32_t identifier = 0;
    if (text.substr(0, beginning.size()) != beginning || !ParseWhole(text.substr(beginning.size()), identifier, 10))
        return std::nullopt;
    return identifier;
}

int FromPercent(unsigned char percent, int whole) {
    return (std::min<int>(percent, 100) * whole + 50) / 100;
}

unsigned char ToPercent(double part) {
    return static_cast<unsigned char>(std::lround(std::clamp(part, 0.0, 1.0) * 100));
}

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

} // namespace Qzc
