#pragma once

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qztaskbase.h"

namespace Qzc {

/// Vetoes tasks. It belongs to the caller and outlives its use by the loop.
class MOTOOLKIT_API QzTaskFilter {
public:
    /// When a filter is asked.
    enum Event : int {
        EventAdd = 1, ///< the task is being added to the queue
        EventGet = 2  ///< the task has just been taken from the queue
    };

    /// Setting `cancel`, which comes in false, vetoes. A task vetoed at EventAdd stays with the caller, and
    /// the result becomes that of AddTask. One vetoed at EventGet is deleted.
    ///
    /// Called with the queue locked: it must not call the loop. An exception counts as its end; `cancel`
    /// stands as it is then, and the result is 0.
    virtual unsigned char Filter(int event, QzTaskBase* task, bool& cancel) = 0;

protected:
    ~QzTaskFilter() = default; // never deleted through this class
};

} // namespace Qzc
