#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/forkhook.h"
#include "platform/sharedregion.h"

namespace Platform {

/// Memory that processes share under a name, with the life of a kernel object: it comes into being with its
/// first opener and is gone with the last, also when that one is killed. Whoever opens a name that nobody has
/// open gets fresh memory, whatever the last user left in it.
///
/// It belongs to the user whose process makes it, or to a group of users: processes of others can neither open
/// nor see it, and have memory of their own under the same name. Names are bytes without any meaning, at most
/// 198 of them (fewer when some cannot stand in a file name): longer ones fail.
///
/// Each open object is an opener of its own, known by a number that nobody else gets while the memory lives.
/// Others can ask whether an opener is still there. Each has a slot, a word that all see and that outlives it.
///
/// A child made by fork is attached as its parent is, as an opener of its own with an empty slot. If the system
/// refuses that, its copy is closed.
///
/// One thread at a time opens or closes an object; the rest may be called from any thread in between.
///
/// What lies in the memory and in the slots has the same form for every process of a machine, of 32 or 64 bits:
/// words of fixed size.
class MOPLATFORM_API SharedMemory {
public:
    using Opener = std::uint32_t; ///< below 2^31
    static constexpr Opener Nobody = 0;
    template <class T>
    using Atomic = std::atomic<T>;
    using Clock = std::chrono::steady_clock;
    // A lock that a library makes of others is none that survives its holder.
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free);

    enum class Opening {
        Failed, ///< the name cannot be had: it is too long, or others are busy with it
        Denied, ///< the place of the user's or the group's names cannot be used; WhyDenied tells more
        Unfit,  ///< there is no room for the memory, or others have it in another size
        Created,
        Opened
    };

    struct Options {
        std::size_t size;            ///< in bytes, all zero at first; all openers of one name want the same
        std::string_view group = {}; ///< the group that it belongs to, by name; empty: the user
    };
    static constexpr std::uint32_t MaxOpeners = 32768; ///< of one name at a time

    SharedMemory() = default;
    ~SharedMemory() { Close(); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    /// Closes what was open. While other openers are busy opening or closing this name it waits for them, for
    /// seconds at most.
    Opening Open(std::string_view name, const Options& options);
    void Close();

    /// Shows the memory as it is to `look`, in an object that is no opener: Self is Nobody, and there is no slot of its
    /// own. Nothing is made, and while it looks nobody can open or close the name. `Opened`; `Failed` when nobody has
    /// it open, too; `Denied` and `Unfit` as Open, the former with the reason in `whyDenied`.
    static Opening Look(std::string_view name, const Options& options, const std::function<void(SharedMemory&)>& look,
                        std::string& whyDenied);
    bool IsOpen() const { return m_view != nullptr; }
    const std::string& WhyDenied() const { return m_whyDenied; }

    void* View() const { return m_view; } ///< `size` bytes, at the start of a page
    Opener Self() const { return m_self; }

    /// Whether the opener has neither closed the memory nor ended. A question to the system.
    bool IsThere(Opener opener) const;

    /// The processes that openers are in, as far as the system tells; those of other users it may not.
    std::map<Opener, std::uint32_t> Processes() const;

    // A slot has its opener's number in the upper half; the lower half is the opener's, zero at first. When an
    // opener goes it leaves its slot as it is unless that half is zero; somebody else must set it to 0 then.

    Atomic<std::uint64_t>& OwnSlot() const { return *m_slot; }
    std::uint32_t SlotsUsed() const; ///< those behind have never been taken
    Atomic<std::uint64_t>& Slot(std::uint32_t index) const { return m_slots[SlotPlace(index)]; }
    static Opener SlotOpener(std::uint64_t slot) { return static_cast<Opener>(slot >> 32); }
    static std::uint64_t EmptySlot(Opener opener) { return std::uint64_t(opener) << 32; }

    // To sleep on a word in the memory, as on one of the process (waitword.h), but found by all openers. A
    // system that knows no such thing keeps an object for each word, found by its place in the memory.

    /// False only when the time is up.
    bool Sleep(const Atomic<std::uint32_t>& word, std::uint32_t expected, std::chrono::nanoseconds time) const;
    void WakeOne(const Atomic<std::uint32_t>& word) const;
    void WakeAll(const Atomic<std::uint32_t>& word) const;

private:
    struct Header;

    static constexpr std::size_t CacheLine = 64;
    static constexpr std::uint32_t SlotsPerPage = 4096 / sizeof(std::uint64_t);
    // Neighbours lie in different cache lines, and not in those of one pair, which processors fetch together, for
    // as long as there are any in a page: openers that change their slots do not get in each other's way, and who
    // reads all slots reads no more lines than it must.
    static constexpr std::uint32_t SlotPlace(std::uint32_t index) {
        constexpr std::uint32_t slots = CacheLine / sizeof(std::uint64_t);
        constexpr std::uint32_t lines = SlotsPerPage / slots;
        const std::uint32_t inPage = index % SlotsPerPage;
        const std::uint32_t turn = inPage % lines;
        const std::uint32_t line = turn < lines / 2 ? 2 * turn : 2 * turn - lines + 1;
        return index - inPage + line * slots + inPage / lines;
    }

    bool Map(const Options& options, Opening& opening);
    bool BecomeOpener();
    bool TakeSlot();
    bool FreeSlotsOfTheGone() const;
    void AfterForkInChild();
    void Forget();

    void* m_view = nullptr;
    Header* m_header = nullptr;
    Atomic<std::uint64_t>* m_slots = nullptr;
    Atomic<std::uint64_t>* m_slot = nullptr;
    Opener m_self = Nobody;
    SharedRegion m_region;
    std::string m_whyDenied;
    ForkHook m_forkHook = {[](void* self) { static_cast<SharedMemory*>(self)->AfterForkInChild(); }, this};
};

} // namespace Platform
