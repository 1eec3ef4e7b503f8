#pragma once

#include "base/namespaces.h"

namespace Qzc {

/// What is told how far a query has come; null where there is none.
struct LogQueryCallBack {
    unsigned char (*function)(void* context, long long done, long long total) = nullptr;
    void* context = nullptr;
};

} // namespace Qzc
