#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace Qzc {

/// Where the attributes of the start tag read last stand in the text, so that whoever reads them by number does
/// not make the tag be taken apart for each. Readers in several threads may overwrite each other's notes: each
/// note is one number that holds by itself, for the offset in it tells whose tag it is of.
class AttributeMemo {
public:
    static constexpr int Count = 16; ///< of the first attributes all is noted

    /// Offsets in the text.
    struct Place {
        int name;
        int nameLength;
        int value;
        int valueLength;
        bool isPlain; ///< the value is known to hold no reference
    };
    /// Of a start tag: the offsets of its first and last byte.
    struct Tag {
        int left;
        int right;
        bool Has(int offset) const { return left < offset && offset < right; }
    };

    AttributeMemo() = default;
    AttributeMemo(const AttributeMemo&) {} // a copy starts without notes
    AttributeMemo& operator=(const AttributeMemo&) = delete;

    void Forget() {
        if (!m_isUsed.load(std::memory_order_relaxed))
            return;
        m_isUsed.store(false, std::memory_order_relaxed);
        m_total.store(0, std::memory_order_relaxed);
        m_last.store(0, std::memory_order_relaxed);
        for (Note& note : m_places)
            note.store(0, std::memory_order_relaxed);
    }

    bool Lookup(Tag tag, int n, Place& place) const {
        if (n >= Count)
            return false;
        const std::uint64_t note = m_places[static_cast<std::size_t>(n)].load(std::memory_order_relaxed);
        place.name = Bits(note, 0, 31);
        place.nameLength = Bits(note, 31, 8);
        place.value = place.name + Bits(note, 39, 9);
        place.isPlain = Bits(note, 48, 1) != 0;
        place.valueLength = Bits(note, 49, 15);
        return tag.Has(place.name);
    }
    /// The number of attributes.
    bool LookupTotal(Tag tag, int& total) const { return Unpack(m_total, total) == tag.left + 1; }
    /// The offset of an attribute at or before the n-th that has no place of its own, and its number.
    bool LookupLast(Tag tag, int n, int& number, int& offset) const {
        offset = Unpack(m_last, number);
        return tag.Has(offset) && number <= n;
    }

    void SetPlace(int n, const Place& place) {
        m_isUsed.store(true, std::memory_order_relaxed);
        if (n < Count && place.nameLength < 1 << 8 && place.value - place.name < 1 << 9 && place.valueLength < 1 << 15)
            m_places[static_cast<std::size_t>(n)].store(
                Part(place.name, 0) | Part(place.nameLength, 31) | Part(place.value - place.name, 39) |
                    Part(place.isPlain ? 1 : 0, 48) | Part(place.valueLength, 49),
                std::memory_order_relaxed);
        else
            Pack(m_last, place.name, n);
    }
    void SetTotal(Tag tag, int total) {
        m_isUsed.store(true, std::memory_order_relaxed);
        Pack(m_total, tag.left + 1, total);
    }

private:
    using Note = std::atomic<std::uint64_t>;

    static int Bits(std::uint64_t note, int first, int count) {
        return static_cast<int>(note >> first & ((std::uint64_t{1} << count) - 1));
    }
    static std::uint64_t Part(int value, int first) { return static_cast<std::uint64_t>(value) << first; }
    static int Unpack(const Note& note, int& number) {
        const std::uint64_t packed = note.load(std::memory_order_relaxed);
        number = Bits(packed, 32, 31);
        return Bits(packed, 0, 31);
    }
    static void Pack(Note& note, int offset, int number) {
        note.store(Part(offset, 0) | Part(number, 32), std::memory_order_relaxed);
    }

    std::array<Note, Count> m_places{};
    Note m_total{0}; // an offset, and behind it a number
    Note m_last{0};
    std::atomic<bool> m_isUsed{false};
};

} // namespace Qzc
