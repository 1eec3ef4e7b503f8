#include "base/keldthreadobject.h"

#include <new>

#include "platform/threadslot.h"

namespace KELD {

namespace {

// A thread has few, so they are a list.
struct ThreadObject {
    const void* key;
    void* object;
    void (*end)(void* object);
    ThreadObject* next;
};

void EndAll(void* first) {
    for (auto* entry = static_cast<ThreadObject*>(first); entry != nullptr;) {
        ThreadObject* const next = entry->next;
        entry->end(entry->object);
        delete entry;
        entry = next;
    }
}

Platform::ThreadSlot s_objects(&EndAll);

} // namespace

void* GetThreadObject(const void* key, void* (*make)(), void (*end)(void* object)) {
    auto* const first = static_cast<ThreadObject*>(s_objects.Get());
    for (const ThreadObject* entry = first; entry != nullptr; entry = entry->next) {
        if (entry->key == key)
            return entry->object;
    }
    void* const object = make();
    if (object == nullptr)
        return nullptr;
    // What make() did may have made others.
    auto* const entry = new (std::nothrow) ThreadObject{key, object, end, static_cast<ThreadObject*>(s_objects.Get())};
    if (entry != nullptr && s_objects.Set(entry))
        return object;
    delete entry;
    end(object);
    return nullptr;
}

} // namespace KELD
