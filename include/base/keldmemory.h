#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <type_traits>

#include "base/mobaseexport.h"
#include "base/namespaces.h"

namespace KELD {

// When memory runs out no operation throws. It changes nothing, or gives an empty value where it makes a new one, and
// raises the assertion "memory".

/// How often that has happened in the calling thread: who makes a large value out of many operations compares the count
/// before and after.
MOBASE_API unsigned int GetMemoryFailures();

/// Counts one more and raises the assertion.
MOBASE_API void ReportMemoryFailure();

/// Runs what may find no memory. False, and reported, when it did.
template <class Operation>
bool TryMemory(Operation&& operation) {
    try {
        operation();
        return true;
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    ReportMemoryFailure();
    return false;
}

/// The same where values of type T are copied, which may have found no memory without throwing.
template <class T, class Operation>
bool TryCopies(Operation&& operation) {
    if constexpr (std::is_trivially_copyable_v<T>)
        return TryMemory(operation);
    const unsigned int before = GetMemoryFailures();
    return TryMemory(operation) && GetMemoryFailures() == before;
}

} // namespace KELD
