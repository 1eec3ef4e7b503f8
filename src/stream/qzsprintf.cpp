#include "stream/qzsprintf.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace Qzc {

int Qzsprintf(char* buffer, std::size_t size, const char* format, ...) {
    if (buffer == nullptr || size == 0)
        return 0;
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    if (length < 0)
        buffer[0] = '\0';
    return std::clamp(length, 0, static_cast<int>(std::min<std::size_t>(size, KeldMBString::MaxLength)) - 1);
}

} // namespace Qzc
