#pragma once

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qztaskbase.h"

namespace Qzc {

/// Executes tasks in place of their own Execute. It belongs to the caller and outlives its use by the loop.
class MOTOOLKIT_API QzTaskProcessor {
public:
    /// Called by several workers at once, without any lock of the loop. The task is not to be kept: it is
    /// deleted behind the last processor. The result is ignored, an exception swallowed.
    virtual bool Process(QzTaskBase* task) = 0;

protected:
    ~QzTaskProcessor() = default; // never deleted through this class
};

} // namespace Qzc
