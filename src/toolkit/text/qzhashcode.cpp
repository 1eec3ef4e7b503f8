#include "toolkit/qzhashcode.h"

#include <cstring>

#include "toolkit/text/converter.h"

namespace Qzc {

namespace {

// Wraps in 32 bits; the right shift is the one that keeps the sign.
std::uint32_t Step(std::uint32_t hash) {
    return (hash << 5) + hash + static_cast<std::uint32_t>(static_cast<std::int32_t>(hash) >> 27);
}

struct Lanes {
    std::uint32_t first = 0x15051505;
    std::uint32_t second = 0x15051505;

    int Join() const { return static_cast<int>(first + second * 0x5D588B65); }
};

} // namespace

int QzHashCode::ByteToHashCode(unsigned char value) {
    return value;
}

int QzHashCode::BoolToHashCode(unsigned char value) {
    return value != 0 ? 1 : 0;
}

int QzHashCode::ShortToHashCode(short value) {
    const auto extended = static_cast<std::uint32_t>(value);
    return static_cast<int>(extended | extended << 16);
}

int QzHashCode::LONGToHashCode(std::int64_t value) {
    return static_cast<int>(static_cast<std::uint32_t>(value));
}

int QzHashCode::PointerToHashCode(const void* value) {
    return static_cast<int>(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value)));
}

int QzHashCode::FloatToHashCode(float value) {
    if (value == 0.0F)
        return 0;
    std::uint32_t bits = 0;
    static_assert(sizeof(bits) == sizeof(value));
    std::memcpy(&bits, &value, sizeof(bits));
    return static_cast<int>(bits);
}

int QzHashCode::DoubleToHashCode(double value) {
    if (value == 0.0)
        return 0;
    std::uint64_t bits = 0;
    static_assert(sizeof(bits) == sizeof(value));
    std::memcpy(&bits, &value, sizeof(bits));
    return static_cast<int>(static_cast<std::uint32_t>(bits ^ bits >> 32));
}

int QzHashCode::FastStringToHashCode(const KeldMBString& text) {
    const std::string_view bytes = text.View();
    const auto extended = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<signed char>(bytes[i])); };
    Lanes lanes;
    std::size_t i = 0;
    for (; i + 1 < bytes.size(); i += 2) { // both lanes at a time, for neither waits for the other
        lanes.first = Step(lanes.first) ^ extended(i);
        lanes.second = Step(lanes.second) ^ extended(i + 1);
    }
    if (i < bytes.size())
        lanes.first = Step(lanes.first) ^ extended(i);
    return lanes.Join();
}

int QzHashCode::StringToHashCode(const KeldMBString& text) {
    // As QzStringUCS2LE converts it, but without keeping the units.
    Lanes lanes;
    bool isLater = false;
    const auto walk = [&](const char* bytes, std::size_t size) {
        for (std::size_t i = 0; i + 1 < size; i += 2) {
            const std::uint32_t unit =
                static_cast<unsigned char>(bytes[i]) | std::uint32_t{static_cast<unsigned char>(bytes[i + 1])} << 8;
            lanes.first = Step(lanes.first) ^ unit;
            // Not two units a step: stored codes depend on this overlapping walk.
            if (isLater)
                lanes.second = Step(lanes.second) ^ unit;
            isLater = true;
        }
    };
    const ConverterUse converter(KELDCharset::UCS2LE, KELDCharset::Current);
    if (!converter || !converter->ConvertPieces(
                          text.Cstr(), static_cast<std::size_t>(text.GetLength()), [](std::size_t) {}, walk)) {
        lanes = Lanes();
        isLater = false;
    }
    if (!isLater) // an empty text still takes a step, over its terminator
        lanes.first = Step(lanes.first);
    return lanes.Join();
}

} // namespace Qzc
