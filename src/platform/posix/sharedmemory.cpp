#include "platform/sharedmemory.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/posix/futex.h"
#include "platform/posix/lockowners.h"

// A named memory is a file in a directory of the user's own, or of the group's, on the memory file system.
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
//
// The directory's name is known, so another user may have taken it. There is no second place: processes that
// would find different ones, each by its own lights, would not keep each other out.

namespace Platform {

namespace {

constexpr std::uint64_t Magic = 0x324D5351'4F4D414EU; // changes with the layout of the file
constexpr std::size_t LongestFileName = 198;
constexpr SharedMemory::Opener LastOpener = 0x7FFFFFFE; // all of them are file offsets
constexpr auto GatePatience = std::chrono::seconds(10);

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

/// Where the memory of a user or of a group lies, and to whom things there must belong.
struct Place {
    std::string directory;
    bool isGroups = false;
    gid_t group = 0;

    mode_t DirectoryMode() const { return isGroups ? 02770 : 0700; } // what members make in it is the group's
    mode_t FileMode() const { return isGroups ? 0660 : 0600; }
    bool Owns(const struct stat& status) const {
        return isGroups ? status.st_gid == group : status.st_uid == geteuid();
    }
};

// False when there is no group of this name.
bool FindGroup(const std::string& name, gid_t& group) {
    constexpr std::size_t Enough = std::size_t(1) << 24;
    std::vector<char> buffer(1024);
    struct group entry = {};
    struct group* found = nullptr;
    int error = 0;
    while ((error = getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
           buffer.size() < Enough)
        buffer.resize(2 * buffer.size());
    if (error != 0 || found == nullptr)
        return false;
    group = entry.gr_gid;
    return true;
}

bool FindPlace(std::string_view group, Place& place, std::string& whyDenied) {
    place.directory = "/dev/shm/motoolkit-";
    if (group.empty()) {
        place.directory += std::to_string(geteuid());
        return true;
    }
    const std::string name(group);
    place.isGroups = true;
    if (!FindGroup(name, place.group)) {
        whyDenied = "there is no group " + name;
        return false;
    }
    place.directory += "group-" + std::to_string(place.group);
    return true;
}

// Gives what this user has made the rights that it should have, whatever the umask took away; what another
// one of the group has made must have them.
bool HasRights(int descriptor, const struct stat& status, mode_t mode) {
    return (status.st_mode & 07777) == mode || (status.st_uid == geteuid() && fchmod(descriptor, mode) == 0);
}

// 0, or what is wrong. A group's directory comes into being with all its rights at once: others must not find it
// half made.
int MakeDirectory(const Place& place) {
    if (!place.isGroups)
        return mkdir(place.directory.c_str(), place.DirectoryMode()) == 0 ? 0 : errno;
    std::string path = place.directory + "-XXXXXX";
    if (mkdtemp(path.data()) == nullptr)
        return errno;
    if (chown(path.c_str(), uid_t(-1), place.group) == 0 && chmod(path.c_str(), place.DirectoryMode()) == 0 &&
        renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, place.directory.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    const int error = errno;
    rmdir(path.c_str());
    return error;
}

// The directory, made when it is missing. Somebody else may have been there first: then it must be the user's,
// or the group's. -1 on failure; with ENOENT when it was removed meanwhile.
int OpenDirectory(const Place& place, std::string& whyDenied) {
    struct stat status = {};
    if (lstat(place.directory.c_str(), &status) != 0) {
        const int error = MakeDirectory(place);
        if (error != 0 && error != EEXIST) {
            whyDenied = "cannot make " + place.directory + ": " + std::generic_category().message(error);
            errno = error == ENOENT ? EACCES : error; // not the one that was removed
            return -1;
        }
    }
    Descriptor directory(open(place.directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory && errno == ENOENT)
        return -1;
    if (!directory || fstat(directory.Get(), &status) != 0 || !place.Owns(status) ||
        !HasRights(directory.Get(), status, place.DirectoryMode())) {
        whyDenied = place.directory + (place.isGroups ? " is not one of the group's that this process may use"
                                                      : " is not a directory of this user's");
        errno = EACCES;
        return -1;
    }
    return directory.Release();
}

bool IsOwnFile(int descriptor, const Place& place, struct stat& status) {
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && place.Owns(status);
}

// Those that killed processes left. A file that is just being opened is not missed: see the opener above.
void RemoveLeftFiles(const Place& place) {
    std::error_code error;
    std::filesystem::directory_iterator entry(place.directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string path = entry->path().string();
        const Descriptor file(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status = {};
        if (file && LockByte(file.Get(), 0) && IsOwnFile(file.Get(), place, status) && status.st_nlink != 0 &&
            !HasOtherOpeners(file.Get()))
            unlink(path.c_str());
    }
}

// Once for each place in a process. Guarded by the hold that every opening has; never destroyed, since objects
// that live as long as the process open names to the last.
bool IsTidy(const std::string& directory) {
    static auto& s_tidied = *new std::set<std::string>;
    return !s_tidied.insert(directory).second;
}

// The file, open, named and with its gate locked; -1 on failure.
int EnterFile(const Place& place, const std::string& file, std::string& whyDenied) {
    for (int attempt = 0; attempt < 10000; ++attempt) {
        const Descriptor directory(OpenDirectory(place, whyDenied));
        if (!directory) {
            if (errno == ENOENT) // removed between two steps
                continue;
            return -1;
        }
        if (!IsTidy(place.directory))
            RemoveLeftFiles(place);
        Descriptor descriptor(openat(directory.Get(), file.c_str(),
                                     O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, place.FileMode()));
        if (!descriptor) {
            if (errno == ENOENT)
                continue;
            return -1;
        }
        struct stat status = {};
        if (!LockGate(descriptor.Get()) || !IsOwnFile(descriptor.Get(), place, status) ||
            !HasRights(descriptor.Get(), status, place.FileMode()))
            return -1;
        if (status.st_nlink != 0)
            return descriptor.Release();
    }
    return -1;
}

// Room on the device is taken beforehand: a page for which there is none would end the process when touched.
bool Reserve(int descriptor, std::size_t offset, std::size_t size) {
    return posix_fallocate(descriptor, static_cast<off_t>(offset), static_cast<off_t>(size)) == 0;
}

} // namespace

// Behind the view, in a cache line of its own; the slots follow.
struct alignas(64) SharedMemory::Header {
    std::uint64_t magic;
    std::uint64_t size;
    std::atomic<Opener> lastOpener;
    std::atomic<std::uint32_t> slotsUsed;
};

// Whatever the file says, no more than there are.
std::uint32_t SharedMemory::SlotsUsed() const {
    return std::min(m_header->slotsUsed.load(), MaxOpeners);
}

SharedMemory::Opening SharedMemory::Open(std::string_view name, const Options& options) {
    Close();
    m_whyDenied.clear();
    const std::string file = FileName(name);
    if (file.empty() || file.size() > LongestFileName || options.size == 0)
        return Opening::Failed;

    const ForkHold hold; // a child must not inherit the gate
    Place place;
    if (!FindPlace(options.group, place, m_whyDenied))
        return Opening::Denied;
    m_directory = place.directory;
    m_path = m_directory + '/' + file;
    Descriptor descriptor(EnterFile(place, file, m_whyDenied));
    Opening opening = Opening::Failed;
    if (!descriptor)
        return m_whyDenied.empty() ? Opening::Failed : Opening::Denied;
    if (!Map(descriptor.Get(), options, opening) || !BecomeOpener(descriptor.Get())) {
        RemoveIfLast(descriptor.Get());
        Forget();
        return Opening::Unfit;
    }
    UnlockByte(descriptor.Get(), 0);
    m_descriptor = descriptor.Release();
    AddForkHook(m_forkHook, hold);
    return opening;
}

// Behind the gate: so it is no memory that is being made afresh, and cut to nothing meanwhile.
SharedMemory::Opening SharedMemory::Look(std::string_view name, const Options& options,
                                         const std::function<void(SharedMemory&)>& look, std::string& whyDenied) {
    const std::string file = FileName(name);
    Place place;
    const ForkHold hold;
    if (!FindPlace(options.group, place, whyDenied))
        return Opening::Denied;
    const std::string path = place.directory + '/' + file;
    const Descriptor descriptor(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!descriptor || !IsOwnFile(descriptor.Get(), place, status) || !LockGate(descriptor.Get()) ||
        !HasOtherOpeners(descriptor.Get()))
        return Opening::Failed;
    SharedMemory memory;
    Opening opening = Opening::Failed;
    if (!memory.Map(descriptor.Get(), options, opening) || opening != Opening::Opened) {
        memory.Forget();
        return Opening::Unfit;
    }
    memory.m_descriptor = descriptor.Get();
    look(memory);
    memory.m_descriptor = -1;
    memory.Forget();
    return Opening::Opened;
}

// Maps the file, which the gate protects, and makes it afresh when that is due.
bool SharedMemory::Map(int descriptor, const Options& options, Opening& opening) {
    const std::size_t headerOffset = (options.size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
    const std::size_t slots = headerOffset + sizeof(Header);
    const std::size_t length = slots + MaxOpeners * sizeof(std::uint64_t);
    const bool alone = !HasOtherOpeners(descriptor);
    // Cut to nothing and grown again, all its bytes are zero.
    if (alone && (ftruncate(descriptor, 0) != 0 || ftruncate(descriptor, static_cast<off_t>(length)) != 0 ||
                  !Reserve(descriptor, 0, slots)))
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
    m_slots = reinterpret_cast<Atomic<std::uint64_t>*>(m_header + 1);

    // An opener that was killed before it had made the memory is not there any more: then this one is alone.
    opening = alone ? Opening::Created : Opening::Opened;
    if (!alone)
        return m_header->magic == Magic && m_header->size == options.size;
    m_header->size = options.size;
    m_header->magic = Magic;
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
    return TakeSlot(descriptor);
}

// The first free slot. Those of openers that were killed are freed before the table reaches twice its size: it
// does not grow with the number of the dead, and seldom is anybody asked for.
bool SharedMemory::TakeSlot(int descriptor) {
    for (std::uint32_t i = 0; i < MaxOpeners; ++i) {
        Atomic<std::uint64_t>& slot = Slot(i);
        if (i >= SlotsUsed()) {
            const auto offset = static_cast<std::size_t>(reinterpret_cast<char*>(&slot) - static_cast<char*>(m_view));
            if (!Reserve(descriptor, offset, sizeof(slot)))
                return false;
        }
        const bool isPowerOfTwo = (i & (i - 1)) == 0;
        if (i >= SlotsUsed() && i >= 16 && isPowerOfTwo && FreeSlotsOfTheGone(descriptor))
            return TakeSlot(descriptor);
        std::uint64_t free = 0;
        if (!slot.compare_exchange_strong(free, EmptySlot(m_self)))
            continue;
        std::uint32_t used = m_header->slotsUsed;
        while (used <= i && !m_header->slotsUsed.compare_exchange_weak(used, i + 1)) {
        }
        m_slot = &slot;
        return true;
    }
    return FreeSlotsOfTheGone(descriptor) && TakeSlot(descriptor);
}

// Those alone that they have left empty: others are looked for by somebody else. Whether there was any.
bool SharedMemory::FreeSlotsOfTheGone(int descriptor) const {
    bool freed = false;
    for (std::uint32_t i = 0; i < SlotsUsed(); ++i) {
        std::uint64_t slot = Slot(i);
        const Opener opener = SlotOpener(slot);
        if (slot != 0 && slot == EmptySlot(opener) && opener != m_self && !OthersLock(descriptor, opener, 1))
            freed = Slot(i).compare_exchange_strong(slot, 0) || freed;
    }
    return freed;
}

void SharedMemory::Close() {
    if (!IsOpen())
        return;
    const ForkHold hold;
    RemoveForkHook(m_forkHook, hold);
    if (m_slot != nullptr) {
        std::uint64_t empty = EmptySlot(m_self);
        m_slot->compare_exchange_strong(empty, 0);
    }
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
    m_slots = nullptr;
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

std::map<SharedMemory::Opener, std::uint32_t> SharedMemory::Processes() const {
    std::map<Opener, std::uint32_t> processes;
    for (const auto& [offset, process] : FindLockOwners(m_descriptor)) {
        if (offset >= 1 && offset <= LastOpener)
            processes[static_cast<Opener>(offset)] = process;
    }
    return processes;
}

// ---- Sleeping

// Unlike those of one process, these waits are found by all that map the memory.

bool SharedMemory::Sleep(const Atomic<std::uint32_t>& word, std::uint32_t expected,
                         std::chrono::nanoseconds time) const {
    return Futex(&word, FUTEX_WAIT, expected, std::max<std::int64_t>(time.count(), 0)) == 0 || errno != ETIMEDOUT;
}

void SharedMemory::WakeOne(const Atomic<std::uint32_t>& word) const {
    Futex(&word, FUTEX_WAKE, 1);
}

void SharedMemory::WakeAll(const Atomic<std::uint32_t>& word) const {
    Futex(&word, FUTEX_WAKE, INT_MAX);
}

} // namespace Platform
