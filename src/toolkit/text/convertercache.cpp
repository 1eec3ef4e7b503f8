// Where a thread's converters are while nobody uses them.

#include <array>
#include <functional>
#include <new>

#include "base/keldsystem.h"
#include "platform/threadslot.h"
#include "toolkit/text/converter.h"

namespace Qzc {

using Charset = KELDCharset::Charset;

/// What one thread keeps for its next texts.
class ConverterCache {
public:
    /// The calling thread's, made when there is none. Null when it can have none (any more).
    static ConverterCache* OfThread();

    /// The first in the key's row that `matches`; taken out.
    template <class Matches>
    Converter* Take(std::uint64_t key, Matches matches) {
        Converter** const at = Find(key, matches);
        return at != nullptr ? Remove(*at) : nullptr;
    }
    /// One with that key, which stays.
    Converter* Borrow(std::uint64_t key) {
        Converter* converter = m_recent;
        if (converter == nullptr || converter->m_key != key || converter->m_isBorrowed) {
            Converter** const at = Find(key, [](const Converter&) { return true; });
            if (at == nullptr)
                return nullptr;
            converter = m_recent = *at;
        }
        converter->m_isBorrowed = true;
        return converter;
    }
    void Return(Converter& converter) {
        converter.m_isBorrowed = false;
        converter.m_lastUse = ++m_uses;
    }
    void Add(Converter& converter) {
        if (m_count >= MaxCount)
            CloseOldest();
        converter.m_cache = this;
        converter.m_lastUse = ++m_uses;
        Converter*& row = Row(converter.m_key);
        converter.m_next = row;
        row = &converter;
        ++m_count;
    }
    static void CloseAll(void* cache) {
        auto* const self = static_cast<ConverterCache*>(cache);
        for (Converter*& row : self->m_rows) {
            while (row != nullptr)
                self->Remove(row)->Close();
        }
        delete self;
    }

private:
    // Every charset of the table in both directions with room to spare. A converter is some 30 to 60 KiB.
    static constexpr unsigned int MaxCount = 128;

    Converter*& Row(std::uint64_t key) {
        return m_rows[static_cast<std::uint32_t>(key * 0x9E3779B97F4A7C15 >> 32) % m_rows.size()];
    }

    // A borrowed one is not there for anybody else: whoever has it may come here again, by a handler.
    template <class Matches>
    Converter** Find(std::uint64_t key, Matches matches) {
        for (Converter** at = &Row(key); *at != nullptr; at = &(*at)->m_next) {
            if ((*at)->m_key == key && !(*at)->m_isBorrowed && matches(**at))
                return at;
        }
        return nullptr;
    }
    Converter* Remove(Converter*& at) {
        Converter* const converter = at;
        at = converter->m_next;
        converter->m_cache = nullptr;
        if (m_recent == converter)
            m_recent = nullptr;
        --m_count;
        return converter;
    }
    void CloseOldest() {
        Converter** oldest = nullptr;
        for (Converter*& row : m_rows) {
            for (Converter** at = &row; *at != nullptr; at = &(*at)->m_next) {
                const bool isOlder = oldest == nullptr || m_uses - (*at)->m_lastUse > m_uses - (*oldest)->m_lastUse;
                if (isOlder && !(*at)->m_isBorrowed)
                    oldest = at;
            }
        }
        if (oldest != nullptr)
            Remove(*oldest)->Close();
    }

    Converter* m_recent = nullptr; // which the next text very likely needs again
    std::array<Converter*, 64> m_rows = {};
    unsigned int m_count = 0;
    unsigned int m_uses = 0;
};

namespace {

// Until it is made, and when it is gone, nothing is kept.
Platform::ThreadSlot s_cache(&ConverterCache::CloseAll);

// Numbers and hashes of names never meet: charset numbers leave the top bit free.
std::uint64_t KeyOf(Charset to, Charset from) {
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(to)) << 32 | static_cast<std::uint32_t>(from);
}
std::uint64_t KeyOf(std::string_view to, std::string_view from) {
    const std::hash<std::string_view> hash;
    return (hash(to) * 31 + hash(from)) | std::uint64_t{1} << 63;
}

} // namespace

ConverterCache* ConverterCache::OfThread() {
    auto* cache = static_cast<ConverterCache*>(s_cache.Get());
    if (cache == nullptr) {
        cache = new (std::nothrow) ConverterCache;
        if (cache != nullptr && !s_cache.Set(cache)) {
            delete cache;
            cache = nullptr;
        }
    }
    return cache;
}

Converter* Converter::Take(Charset to, Charset from) {
    if (to < 0 || from < 0)
        return nullptr;
    const std::uint64_t key = KeyOf(to, from);
    ConverterCache* const cache = ConverterCache::OfThread();
    Converter* const kept = cache != nullptr ? cache->Take(key, [](const Converter&) { return true; }) : nullptr;
    return kept != nullptr ? kept : Open(KeldSystem::GetCharsetNameView(to), KeldSystem::GetCharsetNameView(from), key);
}

Converter* Converter::Take(std::string_view to, std::string_view from) {
    const std::uint64_t key = KeyOf(to, from);
    ConverterCache* const cache = ConverterCache::OfThread();
    const auto matches = [&](const Converter& kept) { return kept.Is(to, from); };
    Converter* const kept = cache != nullptr ? cache->Take(key, matches) : nullptr;
    return kept != nullptr ? kept : Open(to, from, key);
}

void Converter::Give(Converter* converter) {
    if (converter == nullptr)
        return;
    ConverterCache* const cache = ConverterCache::OfThread();
    if (cache != nullptr)
        cache->Add(*converter);
    else
        converter->Close();
}

Converter* Converter::Borrow(Charset to, Charset from, bool& isMemoryShort) {
    ConverterCache* const cache = ConverterCache::OfThread();
    const std::uint64_t key = KeyOf(to, from);
    Converter* converter = cache != nullptr ? cache->Borrow(key) : nullptr;
    if (converter != nullptr)
        return converter;
    const unsigned int failures = GetMemoryFailures();
    converter = Take(to, from); // all that are kept may be borrowed
    isMemoryShort = GetMemoryFailures() != failures;
    if (converter != nullptr && cache != nullptr) {
        cache->Add(*converter);
        converter->m_isBorrowed = true;
    }
    return converter;
}

void Converter::Return() {
    if (m_cache != nullptr)
        m_cache->Return(*this);
    else
        Close();
}

} // namespace Qzc
