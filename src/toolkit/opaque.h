#pragma once

#include <new>
#include <type_traits>

namespace Qzc {

/// The platform object that lies in a public class's opaque bytes.
template <class Object, std::size_t Size>
Object& Opaque(unsigned char (&data)[Size]) {
    static_assert(std::is_trivially_destructible_v<Object>, "nobody destroys it");
    return *std::launder(reinterpret_cast<Object*>(data));
}

} // namespace Qzc
