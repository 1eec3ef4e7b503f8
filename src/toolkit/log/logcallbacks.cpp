#include "toolkit/log/logcallbacks.h"

#include "toolkit/qzlogfile.h"

namespace Qzc {

std::atomic<void (*)(const char*)> LogCallBacks::ms_echo{nullptr};
std::atomic<unsigned char (*)(void*, const char*)> LogCallBacks::ms_open{nullptr};
std::atomic<unsigned char (*)(void*, const QzLogItem&)> LogCallBacks::ms_write{nullptr};
std::atomic<unsigned char (*)(void*, const KeldArray<QzLogItem>&)> LogCallBacks::ms_writeAll{nullptr};
std::atomic<void (*)(void*)> LogCallBacks::ms_close{nullptr};

void QzLogFile::SetCallBack(void (*callBack)(const char*)) {
    LogCallBacks::ms_echo = callBack;
}

void QzLogFile::SetOpenCallBack(unsigned char (*callBack)(void*, const char*)) {
    LogCallBacks::ms_open = callBack;
}

void QzLogFile::SetWriteCallBack(unsigned char (*callBack)(void*, const QzLogItem&)) {
    LogCallBacks::ms_write = callBack;
}

void QzLogFile::SetWriteCallBacks(unsigned char (*callBack)(void*, const KeldArray<QzLogItem>&)) {
    LogCallBacks::ms_writeAll = callBack;
}

void QzLogFile::SetCloseCallBack(void (*callBack)(void*)) {
    LogCallBacks::ms_close = callBack;
}

} // namespace Qzc
