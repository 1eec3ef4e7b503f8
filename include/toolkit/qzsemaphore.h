#pragma once

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// A counting semaphore. It may be destroyed by the thread that took the last unit while the one that posted
/// it has not yet returned.
class MOTOOLKIT_API QzSemaphore {
public:
    explicit QzSemaphore(int initialCount = 1); ///< a negative count raises the assertion and counts as 0
    ~QzSemaphore();                             ///< nobody may wait for it
    QzSemaphore(const QzSemaphore&) = delete;
    QzSemaphore& operator=(const QzSemaphore&) = delete;

    void Wait();                               ///< takes one unit, however long that takes
    bool TimedWait(unsigned int milliseconds); ///< the same for so long at most; false when the time was up
    bool TryWait();                            ///< takes one unit if there is one
    void Post();                               ///< adds one unit; at 2^31-1 it does nothing

private:
    alignas(8) unsigned char m_data[8];
};

} // namespace Qzc
