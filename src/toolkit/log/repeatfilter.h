#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/qzhashcode.h"

namespace Qzc {

/// Tells repeats among what the log records: the item of just before, and one that has been recorded 5 times
/// among the last 1000 of those that were none. One thread at a time.
class RepeatFilter {
public:
    static std::uint32_t Hash(const KeldMBString& text) {
        return static_cast<std::uint32_t>(QzHashCode::FastStringToHashCode(text));
    }

    /// Whether this is a repeat; what is none counts from now on. The message's hash is the caller's, who may
    /// take it outside the lock.
    bool IsFilterRepeat(std::string_view message, std::uint32_t messageHash, std::string_view codeFile, int codeLine) {
        if (m_hasLast && m_lastLine == codeLine && m_lastMessage == message && m_lastFile == codeFile)
            return true;
        if (m_hashedFile != codeFile) {
            m_fileHash = Hash(KeldMBString(codeFile));
            m_hashedFile = codeFile;
        }
        const std::uint32_t key = m_fileHash + messageHash + static_cast<std::uint32_t>(codeLine);
        if (Count(key) >= MaxCount)
            return true;
        if (m_used == MaxKeys)
            --Bucket(m_keys[m_next]);
        else
            ++m_used;
        m_keys[m_next] = key;
        m_next = (m_next + 1) % MaxKeys;
        ++Bucket(key);
        return false;
    }

    /// The item was recorded, be it with the filter on or off.
    void SetLast(std::string_view message, std::string_view codeFile, int codeLine) {
        constexpr int WorthKeeping = 1 << 16; // bytes that the copy of a long message may hold on to
        if (m_lastMessage.capacity() > WorthKeeping)
            m_lastMessage = std::string();
        m_lastMessage = message;
        m_lastFile = codeFile;
        m_lastLine = codeLine;
        m_hasLast = true;
    }

private:
    static constexpr std::size_t MaxKeys = 1000;
    static constexpr int MaxCount = 5;
    static constexpr int BucketBits = 12;

    std::uint16_t& Bucket(std::uint32_t key) {
        constexpr std::uint32_t GoldenRatio = 0x9E3779B9;
        return m_buckets[key * GoldenRatio >> (32 - BucketBits)];
    }
    // The buckets, where few keys meet, spare nearly every item the walk along the keys.
    int Count(std::uint32_t key) {
        if (Bucket(key) < MaxCount)
            return 0;
        return static_cast<int>(std::count(m_keys.begin(), m_keys.begin() + static_cast<int>(m_used), key));
    }

    std::array<std::uint32_t, MaxKeys> m_keys = {}; ///< the newest keys, in a ring
    std::size_t m_used = 0;
    std::size_t m_next = 0;
    std::array<std::uint16_t, std::size_t{1} << BucketBits> m_buckets = {}; ///< the keys in the ring, by hash

    bool m_hasLast = false;
    std::string m_lastMessage;
    std::string m_lastFile;
    int m_lastLine = 0;

    std::string m_hashedFile; ///< many items of one source file follow each other
    std::uint32_t m_fileHash = Hash(KeldMBString());
};

} // namespace Qzc
