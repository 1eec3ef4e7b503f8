#include "toolkit/xml/qzmarkupstops.h"

#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "toolkit/xml/bits.h"

// Functions for processors that not every one of the architecture is; with ELF, for there the stack is aligned for
// what they may put on it.
#if defined(__x86_64__) && defined(__ELF__)
#define MOTOOLKIT_XML_WIDE
#endif

namespace Qzc::MarkupScan {

StopFinder::List StopFinder::ListNext() {
    for (;;) {
        const char* const start = m_text + m_listed;
        const auto rest = static_cast<std::size_t>(m_length - m_listed);
        const std::size_t blocks = std::min(m_blocks, rest / BlockSize);
        m_blocks = std::min(2 * m_blocks, MostBlocks);
        if (blocks == 0) { // what is behind the text must not be read; the zeros stand for the terminator
            char tail[BlockSize] = {};
            std::memcpy(tail, start, rest);
            return {m_stops.data(), ListBlocks(tail, 1)};
        }
        const Offset* const end = ListBlocks(start, blocks);
        m_listed += static_cast<Offset>(blocks * BlockSize);
        if (end != m_stops.data())
            return {m_stops.data(), end};
    }
}

StopFinder::Offset* StopFinder::ListBlocks(const char* text, std::size_t blocks) {
    Masks masks;
#if defined(MOTOOLKIT_XML_WIDE)
    if (__builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi") != 0 &&
        __builtin_cpu_supports("popcnt") != 0) {
        FindStopsWide(text, blocks, masks);
        return ListFoundWide(masks, blocks, m_listed, m_stops.data());
    }
#endif
    FindStops(text, blocks, masks);
    return ListFound(masks, blocks, m_listed, m_stops.data());
}

void StopFinder::FindStops(const char* text, std::size_t blocks, Masks& masks) {
    for (std::size_t block = 0; block < blocks; ++block) {
        const char* const start = text + block * BlockSize;
        std::uint64_t stops = 0;
#if defined(__SSE2__)
        for (std::size_t i = 0; i < BlockSize; i += 16) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(start + i));
            __m128i found = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('<'));
            for (const char c : {'>', '"', '\'', '\0'})
                found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)));
            stops |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(found))) << i;
        }
#else
        for (std::size_t i = 0; i < BlockSize; ++i) {
            const char c = start[i];
            const bool isStop = c == '<' || c == '>' || c == '"' || c == '\'' || c == '\0';
            stops |= static_cast<std::uint64_t>(isStop) << i;
        }
#endif
        masks[block] = stops;
    }
}

StopFinder::Offset* StopFinder::ListFound(const Masks& masks, std::size_t blocks, Offset offset, Offset* last) {
    for (std::size_t block = 0; block < blocks; ++block) {
        for (std::uint64_t stops = masks[block]; stops != 0; stops &= stops - 1)
            *last++ = offset + TrailingZeros(stops);
        offset += Offset{BlockSize};
    }
    return last;
}

#if defined(MOTOOLKIT_XML_WIDE)
[[gnu::target("avx2")]] void StopFinder::FindStopsWide(const char* text, std::size_t blocks, Masks& masks) {
    for (std::size_t block = 0; block < blocks; ++block) {
        const char* const start = text + block * BlockSize;
        std::uint64_t stops = 0;
        for (std::size_t i = 0; i < BlockSize; i += 32) {
            const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(start + i));
            __m256i found = _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('<'));
            for (const char c : {'>', '"', '\'', '\0'})
                found = _mm256_or_si256(found, _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(c)));
            stops |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm256_movemask_epi8(found))) << i;
        }
        masks[block] = stops;
    }
}

// Eight at a time without asking how many there are: what is too much is written over by the next block's.
[[gnu::target("bmi,popcnt")]] StopFinder::Offset* StopFinder::ListFoundWide(const Masks& masks, std::size_t blocks,
                                                                            Offset offset, Offset* last) {
    constexpr int Batch = 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        std::uint64_t stops = masks[block];
        const int found = __builtin_popcountll(stops);
        for (int done = 0; done < found; done += Batch) {
            for (int i = 0; i < Batch; ++i) {
                last[done + i] = offset + static_cast<Offset>(_tzcnt_u64(stops));
                stops &= stops - 1;
            }
        }
        last += found;
        offset += Offset{BlockSize};
    }
    return last;
}
#endif

} // namespace Qzc::MarkupScan
