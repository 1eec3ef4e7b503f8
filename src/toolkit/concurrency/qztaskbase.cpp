#include "toolkit/qztaskbase.h"

#include <type_traits>

#include "toolkit/concurrency/taskmemory.h"

namespace Qzc {

namespace {

void* Checked(void* memory) {
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

void QzTaskBase::Release(QzTaskBase* task) {
    // A delete expression would take the object for a bare QzTaskBase. This gives back the block that the
    // whole object was made in; the object ends with it, without a destructor.
    static_assert(std::is_trivially_destructible_v<QzTaskBase>);
    operator delete(dynamic_cast<void*>(task));
}

void* QzTaskBase::operator new(std::size_t size) {
    return Checked(TaskMemory::Take(size));
}

void* QzTaskBase::operator new(std::size_t size, std::align_val_t alignment) {
    return Checked(TaskMemory::Take(size, static_cast<std::size_t>(alignment)));
}

void* QzTaskBase::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return TaskMemory::Take(size);
}

void* QzTaskBase::operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return TaskMemory::Take(size, static_cast<std::size_t>(alignment));
}

void QzTaskBase::operator delete(void* memory) noexcept {
    TaskMemory::GiveBack(memory);
}

// These two are for a constructor that throws.

void QzTaskBase::operator delete(void* memory, const std::nothrow_t&) noexcept {
    TaskMemory::GiveBack(memory);
}

void QzTaskBase::operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    TaskMemory::GiveBack(memory);
}

} // namespace Qzc
