#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace Qzc {

/// The platform object that lies in a public class's opaque bytes.
template <class Object, std::size_t Size>
Object& Opaque(unsigned char (&data)[Size]) {
    return *std::launder(reinterpret_cast<Object*>(data));
}

} // namespace Qzc
