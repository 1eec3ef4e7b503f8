#pragma once

#include <atomic>
#include <utility>

#include "base/keldarray.h"
#include "base/namespaces.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

/// The process's call-backs, null where there is none. Any thread.
struct LogCallBacks {
    static std::atomic<void (*)(const char*)> ms_echo;
    static std::atomic<unsigned char (*)(void*, const char*)> ms_open;
    static std::atomic<unsigned char (*)(void*, const QzLogItem&)> ms_write;
    static std::atomic<unsigned char (*)(void*, const KeldArray<QzLogItem>&)> ms_writeAll;
    static std::atomic<void (*)(void*)> ms_close;
};

/// Marks the thread while it is in a call-back: what is recorded there goes to no call-back, or one that always
/// records would never end.
class LogCallBackScope {
public:
    LogCallBackScope() : m_outer(std::exchange(t_inside, true)) {}
    ~LogCallBackScope() { t_inside = m_outer; }
    LogCallBackScope(const LogCallBackScope&) = delete;
    LogCallBackScope& operator=(const LogCallBackScope&) = delete;

    static bool IsInside() { return t_inside; }

private:
    inline static thread_local bool t_inside = false;
    bool m_outer;
};

} // namespace Qzc
