#include "platform/threadslot.h"

#include <array>
#include <atomic>
#include <utility>

#include "platform/win32/system.h"

namespace Platform {

namespace {

using AtEnd = void (*)(void* pointer);

// The system calls by a convention of its own, so each slot has a function of that between.
constexpr std::size_t MaxSlots = 8;
std::array<AtEnd, MaxSlots> s_atEnd;
std::atomic<std::size_t> s_slots{0};

template <std::size_t Slot>
CALLED_BY_SYSTEM void WINAPI Finish(void* pointer) {
    if (pointer != nullptr)
        s_atEnd[Slot](pointer);
}

template <std::size_t... Slots>
PFLS_CALLBACK_FUNCTION FinishOf(std::size_t slot, std::index_sequence<Slots...>) {
    constexpr PFLS_CALLBACK_FUNCTION Functions[] = {&Finish<Slots>...};
    return Functions[slot];
}

std::uintptr_t NewSlot(AtEnd atEnd) {
    const std::size_t slot = s_slots.fetch_add(1);
    if (slot >= MaxSlots)
        return FLS_OUT_OF_INDEXES;
    s_atEnd[slot] = atEnd;
    return FlsAlloc(FinishOf(slot, std::make_index_sequence<MaxSlots>()));
}

} // namespace

// The system's slots have a function to call at a thread's end. It comes before the destructors of thread_local
// objects; one that fills the slot again leaves what it put there to the process's end.

ThreadSlot::ThreadSlot(AtEnd atEnd) : m_key(NewSlot(atEnd)), m_good(m_key != FLS_OUT_OF_INDEXES) {}

ThreadSlot::~ThreadSlot() {
    m_good = false; // freeing it would call the function for every thread, with code that may be gone
}

void* ThreadSlot::Get() const {
    return m_good ? FlsGetValue(static_cast<DWORD>(m_key)) : nullptr;
}

bool ThreadSlot::Set(void* pointer) {
    return m_good && FlsSetValue(static_cast<DWORD>(m_key), pointer) != 0;
}

} // namespace Platform
