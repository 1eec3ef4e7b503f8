// Bytes as style XML of either dialect, as the XML of 3D attributes, and as colour texts.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

void CheckStyle(const KeldMBString& xml, int version) {
    QzStyle style;
    Require(style.FromXML(xml, version) == !xml.IsEmpty());
    const std::uint32_t limit = static_cast<std::uint32_t>(xml.GetLength()) + 65536;
    Require(style.GetMarkerSymbolLength() <= limit && style.GetLineSymbolLength() <= limit &&
            style.GetFillSymbolLength() <= limit);
    const KeldMBString text = style.ToXML(version, "");
    const auto holdsZero = [](const KeldMBString& name) { return name.View().find('\0') != std::string_view::npos; };
    if (version == 0 &&
        (holdsZero(style.GetIconName()) || holdsZero(style.GetSideTexture()) || holdsZero(style.GetTopTexture()))) {
        Require(text.IsEmpty()); // which no text can hold
        return;
    }
    Require(!text.IsEmpty());
    // Text holds less than a style does, so only what has been through it once must come back.
    QzStyle read;
    Require(read.FromXML(text, version));
    const KeldMBString settled = read.ToXML(version, "");
    QzStyle again;
    Require(again.FromXML(settled, version) && again.ToXML(version, "") == settled);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KeldMBString text(reinterpret_cast<const char*>(data), static_cast<int>(size));
    CheckStyle(text, 0);
    CheckStyle(text, 20031211);

    QzStyleEx extended;
    extended.FromXML(text, 0);
    extended.ToXML(0, "zpl:Style3D");
    return 0;
}
