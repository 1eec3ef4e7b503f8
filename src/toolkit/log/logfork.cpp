#include <new>

#include "platform/forkhook.h"
#include "toolkit/log/logstate.h"
#include "toolkit/qzerrorobj.h"

namespace Qzc {

// The child finds a log that no thread is inside of. What waited is the parent's, which writes it before the fork if it
// can: many a program that forks ends without asking anybody.
void QzLogFile::State::TakeAlongForks() {
    static const Platform::ForkLock s_lock = {BeforeFork, InParent, InChild, this}; // the process has one log
    Platform::AddForkLock(Platform::ForkRank::Log, s_lock);
}

void QzLogFile::State::BeforeFork(void* object) {
    auto& state = *static_cast<State*>(object);
    state.m_mutex.lock();
    try {
        if (state.WritesFile())
            state.WriteFile();
    } catch (const std::bad_alloc&) { // it waits on
    }
    QzErrorObj::GetInstance().m_mutex.lock();
}

void QzLogFile::State::InParent(void* object) {
    QzErrorObj::GetInstance().m_mutex.unlock();
    static_cast<State*>(object)->m_mutex.unlock();
}

// The file is opened anew, for its locks are to tell the child from the parent.
void QzLogFile::State::InChild(void* object) {
    auto& state = *static_cast<State*>(object);
    state.m_pending.Clear();
    state.m_nLost = state.m_nRepeats = 0;
    state.m_output.Forget();
    InParent(object);
}

} // namespace Qzc
