#pragma once

#include <cstddef>
#include <new>

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// A unit of work for QzTaskMessageLoop.
///
/// It has no virtual destructor, and the task system runs no destructor of a derived class: a task holds
/// plain values and pointers, nothing that has to be given back. Tasks are made one by one with `new`. Memory
/// comes from the operators below; a derived class has none of its own.
///
/// A caller that gets a task back, because a filter vetoed it, deletes it by its own type or with Release.
class MOTOOLKIT_API QzTaskBase {
public:
    /// What kind of task it is, for filters and processors that tell several kinds apart. The task system
    /// never asks.
    virtual int GetTaskType() = 0;

    /// Does the work where no processor is registered. The result is ignored, an exception swallowed.
    virtual bool Execute() = 0;

    /// Asks a task that runs to stop early, where caller and task have agreed on how. The task system never
    /// calls it.
    virtual void Cancel() = 0;

    /// Gives the task's memory back, whatever its type. Null is allowed.
    static void Release(QzTaskBase* task);

    /// The memory is given back without the size or the alignment of the derived class, so it must come from
    /// where neither is needed. Small tasks are cut from chunks of 4 KiB, which any of their tasks keeps; a thread
    /// keeps two of them at most, and the process 16 that are empty.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, std::align_val_t alignment);
    static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept;
    static void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t& tag) noexcept;
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* memory) noexcept;
    static void operator delete(void* memory, const std::nothrow_t& tag) noexcept;
    static void operator delete(void* memory, std::align_val_t alignment, const std::nothrow_t& tag) noexcept;
    static void operator delete(void*, void*) noexcept {}
};

} // namespace Qzc
