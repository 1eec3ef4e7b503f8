#include "stream/qztrace.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace Qzc {

namespace {

void PrintTrace(const char* text) {
    const std::size_t length = std::strlen(text);
    const bool isLine = length != 0 && text[length - 1] == '\n';
    std::fprintf(stderr, isLine ? "%s" : "%s\n", text);
}

std::atomic<QzTraceHandler> s_handler{PrintTrace};

} // namespace

void qztrace(const char* format, ...) {
    KeldMBString text;
    std::va_list arguments;
    va_start(arguments, format);
    text.FormatV(format, arguments);
    va_end(arguments);
    s_handler.load()(text.Cstr());
}

QzTraceHandler SetTraceHandler(QzTraceHandler handler) {
    return s_handler.exchange(handler != nullptr ? handler : PrintTrace);
}

} // namespace Qzc
