#include "platform/threadslot.h"

#include "platform/win32/system.h"

namespace Platform {

namespace {

bool IsSlot(std::uintptr_t key) {
    return key != FLS_OUT_OF_INDEXES;
}

} // namespace

// The system's slots have a function to call at a thread's end. It comes before the destructors of thread_local
// objects; one that fills the slot again leaves what it put there to the process's end.

ThreadSlot::ThreadSlot(void (*atEnd)(void* pointer))
    : m_key(FlsAlloc(reinterpret_cast<PFLS_CALLBACK_FUNCTION>(reinterpret_cast<void*>(atEnd)))), m_good(IsSlot(m_key)) {
}

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
