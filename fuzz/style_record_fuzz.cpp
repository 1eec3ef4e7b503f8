// Bytes as the record of a style, of every kind and form.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "stream/qzmemorystream.h"
#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// Whatever was read can be used: what is saved now loads, and is then saved to the same bytes.
void CheckUsable(const QzStyle& style, std::int64_t inputSize) {
    Require(style.GetMarkerSymbolLength() <= inputSize && style.GetLineSymbolLength() <= inputSize &&
            style.GetFillSymbolLength() <= inputSize);
    QzStyle copy = style;
    copy.GetHashCode();
    for (int kind = 0; kind <= 5; ++kind) {
        QzMemoryStream saved;
        style.Save(saved, kind);
        Require(saved.GetLength() ==
                (kind <= 4 ? static_cast<std::int64_t>(style.GetStyleSize(kind)) : saved.GetLength()));
        QzMemoryStream record(saved.GetData() + 4, saved.GetLength() - 4);
        const int size = copy.Load(record, kind);
        Require(record.IsGood() && size == saved.GetLength() - 4);
        QzMemoryStream again;
        copy.Save(again, kind);
        Require(again.GetLength() == saved.GetLength() &&
                std::memcmp(again.GetData(), saved.GetData(), static_cast<std::size_t>(saved.GetLength())) == 0);
    }
}

} // namespace

// The first byte chooses the kind; then the record, without its size word.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    const int kind = data[0] % 8 - 1;
    const auto length = static_cast<std::int64_t>(size) - 1;

    QzStyle style;
    QzMemoryStream record(data + 1, length);
    style.Load(record, kind);
    CheckUsable(style, length);
    QzMemoryStream over(data + 1, length);
    style.Load(over, (kind + 1) % 5); // into a style that holds something
    CheckUsable(style, length);

    QzMemoryStream fields(data + 1, length);
    Require(style.LoadAll(fields, static_cast<int>(size)) == (size >= 36));
    CheckUsable(style, length);

    QzStyleEx extended;
    QzMemoryStream block(data + 1, length);
    extended.Load(block, kind);
    QzMemoryStream saved;
    extended.Save(saved, kind);
    Require(saved.GetLength() == static_cast<std::int64_t>(extended.GetStyleSize(kind)));
    return 0;
}
