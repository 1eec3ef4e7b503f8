// A lock and its unlock between processes: QzProcess beside what else there is for that, uncontended and
// while a second process does the same. Only QzProcess keeps a change stamp and survives the death of a
// holder; flock survives it, too.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/interprocess/sync/named_sharable_mutex.hpp>

#include <csignal>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ratio.h"
#include "toolkit/qzprocess.h"

namespace {

const std::string& Name() {
    static const std::string s_name = "motoolkit-bench-" + std::to_string(getpid());
    return s_name;
}

class Toolkit {
public:
    static constexpr const char* Label = "QzProcess";
    Toolkit() {
        if (m_lock.ProcessLockInit(KeldMBString(Name())) == 0)
            std::abort();
    }
    void LockRead() { m_lock.ReaderLock(true); }
    void UnlockRead() { m_lock.ReaderUnlock(); }
    void LockWrite() { m_lock.WriterLock(true); }
    void UnlockWrite() { m_lock.WriterUnlock(); }

private:
    using KeldMBString = KELD::KeldMBString;
    Qzc::QzProcess m_lock;
};

class FileLock {
public:
    static constexpr const char* Label = "flock";
    FileLock() : m_file(open(Path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (m_file < 0)
            std::abort();
    }
    ~FileLock() {
        close(m_file);
        unlink(Path().c_str());
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    void LockRead() { flock(m_file, LOCK_SH); }
    void UnlockRead() { flock(m_file, LOCK_UN); }
    void LockWrite() { flock(m_file, LOCK_EX); }
    void UnlockWrite() { flock(m_file, LOCK_UN); }

private:
    static std::string Path() { return (std::filesystem::temp_directory_path() / Name()).string(); }
    int m_file;
};

/// One semaphore as a lock: it knows no readers.
class PosixSemaphore {
public:
    static constexpr const char* Label = "sem_open";
    PosixSemaphore() : m_semaphore(sem_open(Path().c_str(), O_CREAT, 0600, 1)) {
        if (m_semaphore == SEM_FAILED)
            std::abort();
    }
    ~PosixSemaphore() {
        sem_close(m_semaphore);
        sem_unlink(Path().c_str());
    }
    PosixSemaphore(const PosixSemaphore&) = delete;
    PosixSemaphore& operator=(const PosixSemaphore&) = delete;
    void LockRead() { LockWrite(); }
    void UnlockRead() { UnlockWrite(); }
    void LockWrite() {
        while (sem_wait(m_semaphore) != 0) {
        }
    }
    void UnlockWrite() { sem_post(m_semaphore); }

private:
    static std::string Path() { return '/' + Name(); }
    sem_t* m_semaphore;
};

class BoostSharable {
public:
    static constexpr const char* Label = "named_sharable_mutex";
    BoostSharable() : m_mutex(boost::interprocess::open_or_create, Name().c_str()) {}
    ~BoostSharable() { boost::interprocess::named_sharable_mutex::remove(Name().c_str()); }
    BoostSharable(const BoostSharable&) = delete;
    BoostSharable& operator=(const BoostSharable&) = delete;
    void LockRead() { m_mutex.lock_sharable(); }
    void UnlockRead() { m_mutex.unlock_sharable(); }
    void LockWrite() { m_mutex.lock(); }
    void UnlockWrite() { m_mutex.unlock(); }

private:
    boost::interprocess::named_sharable_mutex m_mutex;
};

template <class Lock, bool Write>
void Pair(Lock& lock) {
    if constexpr (Write) {
        lock.LockWrite();
        lock.UnlockWrite();
    } else {
        lock.LockRead();
        lock.UnlockRead();
    }
}

/// A child that locks and unlocks for as long as this lives. It ends by itself: not everybody here survives a
/// kill.
template <class Lock, bool Write>
class Rival {
public:
    Rival() {
        void* const page = mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED)
            std::abort();
        m_state = new (page) State;
        std::fflush(nullptr);
        m_child = fork();
        if (m_child == 0) {
            auto* const lock = new Lock; // never destroyed: that would remove the parent's
            while (!m_state->stop) {
                Pair<Lock, Write>(*lock);
                m_state->running = true;
            }
            _exit(0);
        }
        while (!m_state->running) {
        }
    }
    ~Rival() {
        m_state->stop = true;
        waitpid(m_child, nullptr, 0);
        munmap(m_state, sizeof(State));
    }
    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;

private:
    struct State {
        std::atomic<bool> running{false};
        std::atomic<bool> stop{false};
    };
    State* m_state;
    pid_t m_child;
};

template <class Lock, bool Write, bool Contended>
void Measure(benchmark::State& state) {
    Lock lock;
    std::unique_ptr<Rival<Lock, Write>> rival;
    if constexpr (Contended)
        rival = std::make_unique<Rival<Lock, Write>>();
    for (auto _ : state)
        Pair<Lock, Write>(lock);
}

template <class Lock, bool Write, bool Contended>
void Register() {
    const std::string name =
        std::string(Write ? "write" : "read") + (Contended ? "/2-processes/" : "/uncontended/") + Lock::Label;
    auto* const registered = benchmark::RegisterBenchmark(name.c_str(), Measure<Lock, Write, Contended>);
    if (Contended) // alone, the processor's time counts, which other programs do not disturb
        registered->UseRealTime();
}

template <bool Write, bool Contended>
void RegisterAll() {
    Register<Toolkit, Write, Contended>();
    Register<FileLock, Write, Contended>();
    Register<PosixSemaphore, Write, Contended>();
    Register<BoostSharable, Write, Contended>();
}

} // namespace

int main(int argc, char** argv) {
    RegisterAll<false, false>();
    RegisterAll<true, false>();
    RegisterAll<false, true>();
    RegisterAll<true, true>();
    return Bench::Run(argc, argv);
}
