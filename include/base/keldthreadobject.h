#pragma once

#include <type_traits>

#include "base/keldmemory.h"
#include "base/mobaseexport.h"
#include "base/namespaces.h"

namespace KELD {

/// The object that the calling thread has under this key; made at first use, and ended after the thread's body. Null
/// without memory. `key` is an address that means nothing else. The object of the thread that leaves main, and of one
/// that is ended by force, is not ended.
MOBASE_API void* GetThreadObject(const void* key, void* (*make)(), void (*end)(void* object));

/// The same for an object of type T; each Key has one of its own.
///
/// A thread_local object of T would do where the run-time library keeps its memory until its destructor has been
/// called. Not all do.
template <class T, class Key = T>
T* GetThreadObject() {
    static char s_key = 0; // not const: those are not always kept apart
    constexpr auto Make = []() -> void* {
        T* made = nullptr;
        TryMemory([&] { made = new T(); });
        return made;
    };
    constexpr auto End = [](void* object) { delete static_cast<T*>(object); };
    return static_cast<T*>(GetThreadObject(&s_key, Make, End));
}

/// What a container gives for an element that it does not have: an empty one, which nothing keeps.
template <class T>
T& NoElement() {
    if constexpr (std::is_trivially_destructible_v<T>) {
        static thread_local T s_none;
        return s_none = T();
    } else {
        if (T* const none = GetThreadObject<T>())
            return *none = T();
        static T s_withoutMemory; // all threads'
        return s_withoutMemory = T();
    }
}

} // namespace KELD
