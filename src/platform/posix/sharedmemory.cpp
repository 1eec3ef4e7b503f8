#include "platform/sharedmemory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

// A named memory is a file in a directory of the user's own on the memory file system.
//
// Who has it open is told by locks on the file, which the kernel drops when a process ends in whatever way.
// Each opener keeps the lock on one byte, the one at the offset that is its number (the bytes need not
// exist). The byte at offset 0 is the gate: who opens or closes the file has it meanwhile. So behind the
// gate, "nobody else has a lock" is a fact: an opener that finds it so makes the memory afresh, and a closer
// removes the file. The locks are those of the open file, not of the process: several openers in one process
// keep apart.
//
//     opener                      last closer
//     opens the file
//                                 has the gate, sees no other lock, removes the file
//     gets the gate, sees that the file has no name any more, begins again
//
// A process that is killed as the last one leaves its file behind, without any lock. Such a file is as good
// as none: its next opener makes it afresh. The first opening in any process of the user removes all of them.

namespace Platform {

namespace {

constexpr std::uint64_t Magic = 0x314D5351'4F4D414EU; // changes with the layout of the file
constexpr std::size_t LongestFileName = 200;
constexpr SharedMemory::Opener LastOpener = 0x7FFFFFFE; // all of them are file offsets
constexpr auto GatePatience = std::chrono::seconds(10);

// Slots of the table of marks: the opener in the low half, whether it is marked above.
constexpr std::uint64_t MarkedBit = std::uint64_t(1) << 32;

SharedMemory::Opener SlotOpener(std::uint64_t slot) {
    return static_cast<SharedMemory::Opener>(slot);
}

std::string UserDirectory() {
    return "/dev/shm/motoolkit-" + std::to_string(geteuid());
}

// The bytes that a file name cannot hold, or that would make it a surprise to people, as % and two digits.
std::string FileName(std::string_view name) {
    static const char s_digits[] = "0123456789ABCDEF";
    std::string file;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        const bool leadingDot = c == '.' && file.empty();
        if (byte <= 0x20 || byte == 0x7F || c == '/' || c == '%' || leadingDot) {
            file += '%';
            file += s_digits[byte >> 4];
            file += s_digits[byte & 15];
        } else {
            file += c;
        }
    }
    return file;
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor() {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    explicit operator bool() const { return m_descriptor >= 0; }
    int Get() const { return m_descriptor; }
    int Release() {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        return descriptor;
    }

private:
    int m_descriptor;
};

// ---- Locks on bytes of the file

struct flock Bytes(short type, std::int64_t first, std::int64_t count) {
    struct flock bytes = {};
    bytes.l_type = type;
    bytes.l_whence = SEEK_SET;
    bytes.l_start = first;
    bytes.l_len = count;
    return bytes;
}

bool LockByte(int descriptor, std::int64_t offset) {
    struct flock bytes = Bytes(F_WRLCK, offset, 1);
    return fcntl(descriptor, F_OFD_SETLK, &bytes) == 0;
}

void UnlockByte(int descriptor, std::int64_t offset) {
    struct flock bytes = Bytes(F_UNLCK, offset, 1);
    fcntl(descriptor, F_OFD_SETLK, &bytes);
}

// Whether another open file has one of the bytes. A failed question is answered with yes, the answer upon
// which nothing is taken from anybody.
bool OthersLock(int descriptor, std::int64_t first, std::int64_t count) {
    struct flock bytes = Bytes(F_WRLCK, first, count);
    return fcntl(descriptor, F_OFD_GETLK, &bytes) != 0 || bytes.l_type != F_UNLCK;
}

bool HasOtherOpeners(int descriptor) {
    return OthersLock(descriptor, 1, LastOpener);
}

// Tries again and again: the system's own waiting has no end if a process is stopped inside the gate.
bool LockGate(int descriptor) {
    const auto deadline = std::chrono::steady_clock::now() + GatePatience;
    auto pause = std::chrono::microseconds(20);
    while (!LockByte(descriptor, 0)) {
        if ((errno != EAGAIN && errno != EACCES && errno != EINTR) || std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(1000));
    }
    return true;
}

// ---- The directory and its files

bool IsOwnFile(int descriptor, struct stat& status) {
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

// The directory, made when it is missing. Somebody else may have been there first: it must be the user's.
int OpenDirectory(const std::string& path) {
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        return -1;
    Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!directory || fstat(directory.Get(), &status) != 0)
        return -1;
    // What the umask took away is given back.
    if (status.st_uid != geteuid() || fchmod(directory.Get(), 0700) != 0) {
        errno = EACCES;
        return -1;
    }
    return directory.Release();
}

// Those that killed processes left. A file that is just being opened is not missed: see the opener above.
void RemoveLeftFiles(const std::string& directory) {
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string path = entry->path().string();
        const Descriptor file(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status = {};
        if (file && LockByte(file.Get(), 0) && IsOwnFile(file.Get(), status) && status.st_nlink != 0 &&
            !HasOtherOpeners(file.Get()))
            unlink(path.c_str());
    }
}

// The file, open, named and with its gate locked; -1 on failure.
int EnterFile(const std::string& directoryPath, const std::string& file) {
    static bool s_tidy = false; // guarded by the hold that every opening has
    for (int attempt = 0; attempt < 10000; ++attempt) {
        const Descriptor directory(OpenDirectory(directoryPath));
        if (!directory) {
            if (errno == ENOENT) // removed between two steps
                continue;
            return -1;
        }
        if (!s_tidy) {
            RemoveLeftFiles(directoryPath);
            s_tidy = true;
        }
        Descriptor descriptor(
            openat(directory.Get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
        if (!descriptor) {
            if (errno == ENOENT)
                continue;
            return -1;
        }
        struct stat status = {};
        if (!LockGate(descriptor.Get()) || !IsOwnFile(descriptor.Get(), status))
            return -1;
        if (status.st_nlink != 0)
            return descriptor.Release();
    }
    return -1;
}

std::uint64_t NewLife() {
    std::uint64_t life = 0;
    if (getrandom(&life, sizeof(life), 0) != static_cast<ssize_t>(sizeof(life)))
        life = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    return life | 1; // never 0
}

// Room on the device is taken beforehand: a page for which there is none would end the process when touched.
bool Reserve(int descriptor, std::size_t offset, std::size_t size) {
    return posix_fallocate(descriptor, static_cast<off_t>(offset), static_cast<off_t>(size)) == 0;
}

} // namespace

// Behind the view, in a cache line of its own; the table of marks follows.
struct alignas(64) SharedMemory::Header {
    std::uint64_t magic;
    std::uint64_t size;
    std::uint64_t life;
    std::uint64_t partOf;
    Kind kind;
    std::atomic<Opener> lastOpener;
    std::atomic<std::uint32_t> slotsUsed; ///< those behind have never been taken
};

std::uint64_t SharedMemory::Life() const {
    return m_header != nullptr ? m_header->life : 0;
}

std::atomic<std::uint64_t>* SharedMemory::Slots() const {
    return reinterpret_cast<std::atomic<std::uint64_t>*>(m_header + 1);
}

// Whatever the file says, no more than there are.
std::uint32_t SharedMemory::SlotsUsed() const {
    return m_marks ? std::min<std::uint32_t>(m_header->slotsUsed, MaxMarks) : 0;
}

SharedMemory::Opening SharedMemory::Open(std::string_view name, const Options& options) {
    Close();
    const std::string file = FileName(name);
    if (file.empty() || file.size() > LongestFileName || options.size == 0)
        return Opening::Failed;

    const ForkHold hold; // a child must not inherit the gate
    m_directory = UserDirectory();
    m_path = m_directory + '/' + file;
    m_marks = options.marks;
    Descriptor descriptor(EnterFile(m_directory, file));
    Opening opening = Opening::Failed;
    if (!descriptor)
        return Opening::Failed;
    if (!Map(descriptor.Get(), options, opening) || !BecomeOpener(descriptor.Get())) {
        RemoveIfLast(descriptor.Get());
        Forget();
        return Opening::Failed;
    }
    UnlockByte(descriptor.Get(), 0);
    m_descriptor = descriptor.Release();
    AddForkHook(m_forkHook, hold);
    return opening;
}

// Maps the file, which the gate protects, and makes it afresh when that is due.
bool SharedMemory::Map(int descriptor, const Options& options, Opening& opening) {
    const std::size_t headerOffset = (options.size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
    const std::size_t slots = headerOffset + sizeof(Header);
    const std::size_t length = slots + (options.marks ? MaxMarks * sizeof(std::uint64_t) : 0);
    const bool alone = !HasOtherOpeners(descriptor);
    // Cut to nothing and grown again, all its bytes are zero.
    if (alone && (fchmod(descriptor, 0600) != 0 || ftruncate(descriptor, 0) != 0 ||
                  ftruncate(descriptor, static_cast<off_t>(length)) != 0 || !Reserve(descriptor, 0, slots)))
        return false;
    struct stat status = {};
    if (fstat(descriptor, &status) != 0 || status.st_size != static_cast<off_t>(length))
        return false;
    void* const view = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (view == MAP_FAILED)
        return false;
    m_view = view;
    m_length = length;
    m_header = reinterpret_cast<Header*>(static_cast<char*>(view) + headerOffset);

    const bool made = m_header->magic == Magic;
    if (!alone && made && (m_header->kind != options.kind || m_header->size != options.size))
        return false;
    const bool formerLife = options.partOf != 0 && m_header->partOf != options.partOf;
    opening = made && !formerLife ? Opening::Opened : Opening::Created;
    if (opening == Opening::Created) {
        m_header->magic = 0; // whoever is killed from here on leaves a file that is not made
        if (options.content != nullptr)
            std::memcpy(view, options.content, options.size);
        else
            std::memset(view, 0, options.size);
        for (std::uint32_t i = 0; i < SlotsUsed(); ++i)
            Slots()[i] = 0;
        m_header->size = options.size;
        m_header->kind = options.kind;
        m_header->partOf = options.partOf;
        m_header->life = NewLife();
        std::atomic_signal_fence(std::memory_order_seq_cst);
        m_header->magic = Magic;
    }
    return true;
}

bool SharedMemory::BecomeOpener(int descriptor) {
    Opener self = Nobody;
    do { // after two thousand million openings a number comes again, and its owner may still be there
        errno = 0;
        self = m_header->lastOpener.fetch_add(1) % LastOpener + 1;
    } while (!LockByte(descriptor, self) && (errno == EAGAIN || errno == EACCES));
    if (errno != 0)
        return false;
    m_self = self;
    return !m_marks || TakeSlot(descriptor);
}

// A free slot, else one of an opener that is gone without a mark.
bool SharedMemory::TakeSlot(int descriptor) {
    for (const bool full : {false, true}) {
        for (std::uint32_t i = 0; i < MaxMarks; ++i) {
            std::atomic<std::uint64_t>& slot = Slots()[i];
            std::uint64_t old = 0;
            if (i >= m_header->slotsUsed) {
                const auto offset =
                    static_cast<std::size_t>(reinterpret_cast<char*>(&slot) - static_cast<char*>(m_view));
                if (!Reserve(descriptor, offset, sizeof(slot)))
                    return false;
            } else if ((old = slot.load()) != 0 &&
                       (!full || (old & MarkedBit) != 0 || OthersLock(descriptor, SlotOpener(old), 1))) {
                continue;
            }
            if (!slot.compare_exchange_strong(old, m_self))
                continue;
            std::uint32_t used = m_header->slotsUsed;
            while (used <= i && !m_header->slotsUsed.compare_exchange_weak(used, i + 1)) {
            }
            m_slot = &slot;
            return true;
        }
    }
    return false;
}

void SharedMemory::Close() {
    if (!IsOpen())
        return;
    const ForkHold hold;
    RemoveForkHook(m_forkHook, hold);
    if (m_slot != nullptr && (*m_slot & MarkedBit) == 0)
        *m_slot = 0;
    const Descriptor descriptor(m_descriptor);
    if (LockGate(descriptor.Get()))
        RemoveIfLast(descriptor.Get());
    m_descriptor = -1;
    Forget();
}

// Behind the gate.
void SharedMemory::RemoveIfLast(int descriptor) const {
    struct stat status = {};
    if (HasOtherOpeners(descriptor) || fstat(descriptor, &status) != 0 || status.st_nlink == 0)
        return;
    unlink(m_path.c_str());
    rmdir(m_directory.c_str()); // succeeds when that was the last file in it
}

void SharedMemory::Forget() {
    if (m_view != nullptr)
        munmap(m_view, m_length);
    m_view = nullptr;
    m_header = nullptr;
    m_slot = nullptr;
    m_self = Nobody;
}

// The child has inherited its parent's open file and, with it, the lock that says that the parent is there.
// It must let go of that, of the descriptor and of the mapping, which keeps the open file just as well. The
// file cannot vanish before, so the path still leads to it.
void SharedMemory::AfterForkInChild() {
    const Descriptor inherited(m_descriptor);
    Descriptor own(open(m_path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat ours = {};
    struct stat theirs = {};
    m_slot = nullptr;
    m_descriptor = -1;
    if (own && fstat(own.Get(), &ours) == 0 && fstat(inherited.Get(), &theirs) == 0 && ours.st_dev == theirs.st_dev &&
        ours.st_ino == theirs.st_ino &&
        mmap(m_view, m_length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, own.Get(), 0) == m_view &&
        BecomeOpener(own.Get()))
        m_descriptor = own.Release();
    else
        Forget();
}

bool SharedMemory::IsThere(Opener opener) const {
    return opener == m_self || OthersLock(m_descriptor, opener, 1);
}

void SharedMemory::SetMark(bool marked) const {
    m_slot->store(m_self | (marked ? MarkedBit : 0), std::memory_order_release);
}

SharedMemory::MarkCount SharedMemory::CountMarks(bool forget) const {
    MarkCount count = {};
    for (std::uint32_t i = 0; i < SlotsUsed(); ++i) {
        std::uint64_t slot = Slots()[i];
        const bool marked = (slot & MarkedBit) != 0;
        if (slot == 0 || (!marked && !forget))
            continue;
        if (IsThere(SlotOpener(slot))) {
            count.there += marked;
        } else {
            count.gone += marked;
            if (forget)
                Slots()[i].compare_exchange_strong(slot, 0);
        }
    }
    return count;
}

} // namespace Platform
