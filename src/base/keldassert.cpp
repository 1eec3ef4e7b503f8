#include "base/keldassert.h"

#include <atomic>
#include <cstdio>

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

} // namespace KELD
