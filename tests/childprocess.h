#pragma once

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <new>

#include <csignal>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/sanitizer.h"

/// Whether a child can take memory while its parent's other threads did: a sanitizer's heap has locks that no fork
/// looks after, so one in some ten thousand children waits for ever in it.
constexpr bool HeapIsWholeInChildren = !UNDER_ADDRESS_SANITIZER && !UNDER_THREAD_SANITIZER;

/// A child process that runs `body`, whose result tells whether it succeeded. Killed at the end of the scope.
class Child {
public:
    explicit Child(const std::function<bool()>& body) : m_id(fork()) {
        if (m_id == 0) {
            alarm(120); // an orphan that hangs ends
            _exit(body() ? 0 : 1);
        }
    }
    ~Child() { Kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int Id() const { return m_id; }

    void Kill() {
        if (m_id > 0)
            kill(m_id, SIGKILL);
        Wait();
    }

    /// Waits for its end: whether it ended by itself, with success.
    bool Succeeds() {
        const int status = Wait();
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    int Wait() {
        int status = -1;
        while (m_id > 0 && waitpid(m_id, &status, 0) < 0 && errno == EINTR) { // by a signal
        }
        m_id = 0;
        return status;
    }

    int m_id;
};

/// A new object that this process and its later children share, to the end of the last of them.
template <class T>
T& SharedWithChildren() {
    return *new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T();
}
