// Bytes as the text of a colour, with and without alpha, and as the text of a symbol.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KeldMBString text(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const unsigned int color = QzStyle::ConvertRGBColor(text) & 0xFFFFFF;
    Require(QzStyle::ConvertRGBColor(QzStyle::ConvertRGBColor(color)) == color);
    const QzColorValue3D rgba = QzStyleEx::ConvertRGBAColor(text);
    Require(rgba == rgba); // no part is "not a number"
    Require(QzColorValue3D(rgba.GetValue()).GetValue() == rgba.GetValue());

    std::vector<unsigned char> bytes(size + 2);
    unsigned char* start = bytes.data();
    Require(QzStyle::StringConver2Byte(start, static_cast<int>(bytes.size()), text));
    KeldMBString hex;
    Require(QzStyle::ByteConver2String(start, static_cast<int>(bytes.size()), hex));
    Require(hex.GetLength() ==
            static_cast<int>(bytes.size() % 4 != 0 ? bytes.size() / 4 + 1 : bytes.size() / 4 - 1) * 8);
    return 0;
}
