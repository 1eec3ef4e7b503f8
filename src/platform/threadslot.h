#pragma once

#include <cstdint>

#include "platform/export.h"

namespace Platform {

/// A pointer of each thread's own, null at first. Unlike a thread_local object with a destructor it takes no memory to
/// set up, so it cannot fail half-way in a thread. Any thread.
class MOPLATFORM_API ThreadSlot {
public:
    /// `atEnd` is given the pointer of each thread that ends of itself, unless it is null; the slot is null by then. It
    /// comes after the destructors of the thread's thread_local objects. It does not come in a thread that is ended by
    /// force, nor in the one that leaves main.
    explicit ThreadSlot(void (*atEnd)(void* pointer));
    ~ThreadSlot();
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    void* Get() const;
    bool Set(void* pointer); ///< false when the system has no room for it; the slot is then null

private:
    std::uintptr_t m_key = 0;
    bool m_good = false;
};

} // namespace Platform
