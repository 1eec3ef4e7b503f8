#include "toolkit/qztaskbase.h"

#include <cstdlib>

namespace Qzc {

namespace {

void* Checked(void* memory) {
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

void QzTaskBase::Release(QzTaskBase* task) {
    if (task == nullptr)
        return;
    // A delete expression would take the object for a QzTaskBase. This ends the life of the base, which is
    // trivial, and gives back the block that the whole object was made in.
    void* const whole = dynamic_cast<void*>(task);
    task->~QzTaskBase();
    operator delete(whole);
}

void* QzTaskBase::operator new(std::size_t size) {
    return Checked(std::malloc(size));
}

void* QzTaskBase::operator new(std::size_t size, std::align_val_t alignment) {
    return Checked(std::aligned_alloc(static_cast<std::size_t>(alignment), size));
}

void* QzTaskBase::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}

void QzTaskBase::operator delete(void* memory) noexcept {
    std::free(memory);
}

} // namespace Qzc
