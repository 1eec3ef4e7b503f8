#include "platform/sharedmemory.h"

#include <algorithm>

namespace Platform {

namespace {

constexpr std::uint64_t Magic = 0x324D5351'4F4D414EU; // changes with the layout of the memory

} // namespace

// Behind the view, in a cache line of its own; the slots follow.
struct alignas(64) SharedMemory::Header {
    std::uint64_t magic;
    std::uint64_t size;
    std::atomic<Opener> lastOpener;
    std::atomic<std::uint32_t> slotsUsed;
};

// Whatever the file says, no more than there are.
std::uint32_t SharedMemory::SlotsUsed() const {
    return std::min(m_header->slotsUsed.load(), MaxOpeners);
}

SharedMemory::Opening SharedMemory::Open(std::string_view name, const Options& options) {
    Close();
    m_whyDenied.clear();
    if (options.size == 0)
        return Opening::Failed;

    const ForkHold hold; // a child must not inherit the gate
    switch (m_region.Enter(name, options.group, m_whyDenied)) {
    case SharedRegion::Entry::Entered: break;
    case SharedRegion::Entry::Denied: return Opening::Denied;
    default: return Opening::Failed;
    }
    Opening opening = Opening::Failed;
    if (!Map(options, opening) || !BecomeOpener()) {
        m_region.RemoveIfLast();
        Forget();
        return Opening::Unfit;
    }
    m_region.Leave();
    AddForkHook(m_forkHook, hold);
    return opening;
}

// Behind the gate: so it is no memory that is being made afresh, and cut to nothing meanwhile.
SharedMemory::Opening SharedMemory::Look(std::string_view name, const Options& options,
                                         const std::function<void(SharedMemory&)>& look, std::string& whyDenied) {
    const ForkHold hold;
    SharedMemory memory;
    const SharedRegion::Entry entry = memory.m_region.EnterExisting(name, options.group, whyDenied);
    if (entry == SharedRegion::Entry::Denied)
        return Opening::Denied;
    if (entry != SharedRegion::Entry::Entered || !memory.m_region.HasOtherMarks())
        return Opening::Failed;
    Opening opening = Opening::Failed;
    if (!memory.Map(options, opening) || opening != Opening::Opened) {
        memory.Forget();
        return Opening::Unfit;
    }
    look(memory);
    memory.Forget();
    return Opening::Opened;
}

// Behind the gate. Makes it afresh when that is due.
bool SharedMemory::Map(const Options& options, Opening& opening) {
    const std::size_t headerOffset = (options.size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
    const std::size_t slots = headerOffset + sizeof(Header);
    const std::size_t length = slots + MaxOpeners * sizeof(std::uint64_t);
    const bool alone = !m_region.HasOtherMarks();
    if (alone && !(m_region.Clear(length) && m_region.Reserve(0, slots)))
        return false;
    m_view = m_region.Map(length);
    if (m_view == nullptr)
        return false;
    m_header = reinterpret_cast<Header*>(static_cast<char*>(m_view) + headerOffset);
    m_slots = reinterpret_cast<Atomic<std::uint64_t>*>(m_header + 1);

    // An opener that was killed before it had made the memory is not there any more: then this one is alone.
    opening = alone ? Opening::Created : Opening::Opened;
    if (!alone)
        return m_header->magic == Magic && m_header->size == options.size;
    m_header->size = options.size;
    m_header->magic = Magic;
    return true;
}

bool SharedMemory::BecomeOpener() {
    Opener self = Nobody;
    auto marking = SharedRegion::Marking::Busy;
    while (marking == SharedRegion::Marking::Busy) {
        // After two thousand million openings a number comes again, and its owner may still be there.
        self = m_header->lastOpener.fetch_add(1) % SharedRegion::LastMark + 1;
        marking = m_region.TakeMark(self);
    }
    if (marking == SharedRegion::Marking::Failed)
        return false;
    m_self = self;
    return TakeSlot();
}

// The first free slot. Those of openers that were killed are freed before the table reaches twice its size: it
// does not grow with the number of the dead, and seldom is anybody asked for.
bool SharedMemory::TakeSlot() {
    for (std::uint32_t i = 0; i < MaxOpeners; ++i) {
        Atomic<std::uint64_t>& slot = Slot(i);
        if (i >= SlotsUsed()) {
            const auto offset = static_cast<std::size_t>(reinterpret_cast<char*>(&slot) - static_cast<char*>(m_view));
            if (!m_region.Reserve(offset, sizeof(slot)))
                return false;
        }
        const bool isPowerOfTwo = (i & (i - 1)) == 0;
        if (i >= SlotsUsed() && i >= 16 && isPowerOfTwo && FreeSlotsOfTheGone())
            return TakeSlot();
        std::uint64_t free = 0;
        if (!slot.compare_exchange_strong(free, EmptySlot(m_self)))
            continue;
        std::uint32_t used = m_header->slotsUsed;
        while (used <= i && !m_header->slotsUsed.compare_exchange_weak(used, i + 1)) {
        }
        m_slot = &slot;
        return true;
    }
    return FreeSlotsOfTheGone() && TakeSlot();
}

// Those alone that they have left empty: others are looked for by somebody else. Whether there was any.
bool SharedMemory::FreeSlotsOfTheGone() const {
    bool freed = false;
    for (std::uint32_t i = 0; i < SlotsUsed(); ++i) {
        std::uint64_t slot = Slot(i);
        const Opener opener = SlotOpener(slot);
        if (slot != 0 && slot == EmptySlot(opener) && opener != m_self && !m_region.IsMarkedElsewhere(opener))
            freed = Slot(i).compare_exchange_strong(slot, 0) || freed;
    }
    return freed;
}

void SharedMemory::Close() {
    if (!IsOpen())
        return;
    const ForkHold hold;
    RemoveForkHook(m_forkHook, hold);
    if (m_slot != nullptr) {
        std::uint64_t empty = EmptySlot(m_self);
        m_slot->compare_exchange_strong(empty, 0);
    }
    if (m_region.EnterAgain())
        m_region.RemoveIfLast();
    Forget();
}

void SharedMemory::Forget() {
    m_region.Close();
    m_view = nullptr;
    m_header = nullptr;
    m_slots = nullptr;
    m_slot = nullptr;
    m_self = Nobody;
}

// The parent's mark stays the parent's.
void SharedMemory::AfterForkInChild() {
    m_slot = nullptr;
    if (!m_region.OpenAnewInChild() || !BecomeOpener())
        Forget();
}

bool SharedMemory::IsThere(Opener opener) const {
    return opener == m_self || m_region.IsMarkedElsewhere(opener);
}

std::map<SharedMemory::Opener, std::uint32_t> SharedMemory::Processes() const {
    return m_region.Processes();
}

bool SharedMemory::Sleep(const Atomic<std::uint32_t>& word, std::uint32_t expected,
                         std::chrono::nanoseconds time) const {
    return m_region.Sleep(&word, expected, time);
}

void SharedMemory::WakeOne(const Atomic<std::uint32_t>& word) const {
    m_region.WakeOne(&word);
}

void SharedMemory::WakeAll(const Atomic<std::uint32_t>& word) const {
    m_region.WakeAll(&word);
}

} // namespace Platform
