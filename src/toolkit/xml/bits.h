#pragma once

/// What C++17 has no words for, and compilers do.

/// A condition that seldom holds: what it leads to may be out of the way.
#if defined(__GNUC__)
#define MOTOOLKIT_SELDOM(condition) (__builtin_expect(condition, 0) != 0)
#else
#define MOTOOLKIT_SELDOM(condition) (condition)
#endif

namespace Qzc {

/// How many zeros stand below the lowest one of an unsigned number that is not 0.
template <class Bits>
int TrailingZeros(Bits bits) {
#if defined(__GNUC__)
    if constexpr (sizeof(Bits) <= sizeof(unsigned))
        return __builtin_ctz(bits);
    else
        return __builtin_ctzll(bits);
#else
    int count = 0;
    for (; (bits & 0xFF) == 0; bits >>= 8)
        count += 8;
    for (; (bits & 1) == 0; bits >>= 1)
        ++count;
    return count;
#endif
}

} // namespace Qzc
