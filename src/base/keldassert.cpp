#include "base/keldassert.h"

#include <atomic>
#include <cstdio>

#include "base/keldmemory.h"

namespace KELD {

namespace {

void PrintAssertion(const char* expression, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, expression);
}

std::atomic<KeldAssertHandler> s_handler{PrintAssertion};

} // namespace

KeldAssertHandler SetAssertHandler(KeldAssertHandler handler) {
    return s_handler.exchange(handler != nullptr ? handler : PrintAssertion);
}

void ReportAssertion(const char* expression, const char* file, int line) {
    s_handler.load()(expression, file, line);
}

namespace {
thread_local unsigned int t_memoryFailures = 0;
}

unsigned int GetMemoryFailures() {
    return t_memoryFailures;
}

void ReportMemoryFailure() {
    ++t_memoryFailures;
    ReportAssertion("memory", __FILE__, __LINE__);
}

} // namespace KELD
