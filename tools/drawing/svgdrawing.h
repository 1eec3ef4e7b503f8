#pragma once

#include <string>
#include <unordered_map>

#include "toolkit/qzstyle.h"

// What a style's identifiers mean is for the program that draws.
namespace MarkerStyle {
enum { Ring, Lighthouse, Turbine, Church, Station, Peak, Tent, View };
}
namespace LineStyle {
enum { Solid, Dashed, Dotted };
}
namespace FillStyle {
enum { Solid, Diagonal, Horizontal, Waves, Dots };
}

/// Draws with drawing styles, as text in SVG. A unit of a style's size is `Scale` pixels.
class SvgDrawing {
public:
    static constexpr double Scale = 4;

    struct Box {
        double x, y, width, height;
    };

    /// `zoom` makes a marker larger or smaller than its style says.
    void Marker(const Qzc::QzStyle& style, double x, double y, double zoom = 1);
    /// Along a path, in the language of SVG's `d`.
    void Line(const Qzc::QzStyle& style, const std::string& path);
    /// A closed path, and the box around it, which gradients are laid into.
    void Region(const Qzc::QzStyle& style, const std::string& path, const Box& box);
    /// A block on a base of that size, as high as the style extends it.
    void Block(const Qzc::QzStyle& style, double x, double y, double width, double depth);
    void Text(double x, double y, const std::string& text, const char* attributes);

    // What stands around all of it.
    void OpenGroup(const char* attributes) { m_body += "<g " + std::string(attributes) + ">\n"; }
    void CloseGroup() { m_body += "</g>\n"; }
    void AddMarkup(const std::string& markup) { m_body += markup; }
    void AddDefinition(const std::string& markup) { m_definitions += markup; }
    std::string Document(int width, int height) const;

private:
    std::string Paint(const Qzc::QzStyle& style);
    std::string Pattern(const Qzc::QzStyle& style);

    std::string m_definitions;
    std::string m_body;
    std::unordered_map<Qzc::QzStyle, std::string> m_paints; ///< a gradient stands there once, however often it is used
    std::unordered_map<Qzc::QzStyle, std::string> m_patterns;
    int m_count = 0; ///< of all that has an id
};
