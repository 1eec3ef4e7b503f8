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
        Require(kind > 4 || saved.GetLength() == static_cast<std::int64_t>(style.GetStyleSize(kind)));
        if (kind > 4) // no record that can be read
            continue;
        saved.Seek(0);
        Require(QzStyle::LoadNext(saved, kind, copy) && saved.IsGood() && saved.GetRemaining() == 0);
        QzMemoryStream again;
        copy.Save(again, kind);
        Require(again.GetLength() == saved.GetLength() &&
                std::memcmp(again.GetData(), saved.GetData(), static_cast<std::size_t>(saved.GetLength())) == 0);
    }
}

// A record without its size word: read whole, or nothing of it.
void Load(QzStyle& style, const std::uint8_t* data, std::int64_t length, int kind) {
    const QzStyle before = style;
    QzMemoryStream record(data, length);
    style.Load(record, kind);
    Require(record.IsGood() || style == before);
    CheckUsable(style, length);
}

} // namespace

// The first byte chooses the kind; then a record without its size word, or records with theirs.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    const int kind = data[0] % 8 - 1;
    const auto length = static_cast<std::int64_t>(size) - 1;

    QzStyle style;
    Load(style, data + 1, length, kind);
    Load(style, data + 1, length, (kind + 1) % 5); // into a style that holds something

    // As records in a row; skipping goes the same way, but for what is not whole, which it does not see.
    QzMemoryStream records(data + 1, length);
    QzMemoryStream skipped(data + 1, length);
    QzStyle next;
    while (QzStyle::LoadNext(records, kind, next)) {
        Require(QzStyle::SkipNext(skipped) && skipped.GetPosition() == records.GetPosition());
        CheckUsable(next, length);
    }
    Require(!records.IsGood() || records.GetRemaining() == 0);

    QzMemoryStream fields(data + 1, length);
    Require(style.LoadAll(fields, static_cast<int>(size)) == (size >= 36));
    CheckUsable(style, length);

    QzStyleEx extended;
    QzMemoryStream block(data + 1, length);
    extended.Load(block, kind);
    Require(block.IsGood() || extended == QzStyleEx());
    QzMemoryStream saved;
    extended.Save(saved, kind);
    Require(saved.GetLength() == static_cast<std::int64_t>(extended.GetStyleSize(kind)));
    return 0;
}
