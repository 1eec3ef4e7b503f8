// Bytes as a feature style and as a document of styled layers, for every kind of geometry.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "toolkit/qzstyleexport.h"

using namespace Qzc;

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

template <class Read, class Write>
void Check(const KeldMBString& text, int kind, Read read, Write write) {
    QzStyle style;
    KeldArray<KeldMBString> leftOut;
    if (!read(text, kind, style, &leftOut)) {
        Require(style == QzStyle() && leftOut.IsEmpty());
        return;
    }
    // What was read can be written, and what is written is read without a rest.
    const KeldMBString written = write(style, kind);
    QzStyle again;
    Require(read(written, kind, again, &leftOut) && leftOut.IsEmpty());
    Require(write(again, kind) == written);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KeldMBString text(reinterpret_cast<const char*>(data), static_cast<int>(size));
    for (int kind = 0; kind <= 2; ++kind) {
        Check(text, kind, FromFeatureStyle,
              [](const QzStyle& style, int drawn) { return ToFeatureStyle(style, drawn); });
        Check(text, kind, FromSld, [](const QzStyle& style, int drawn) { return ToSld(style, drawn, "layer"); });
    }
    return 0;
}
