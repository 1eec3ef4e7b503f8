#include "platform/sharedregion.h"

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

constexpr std::size_t LongestFileName = 198;
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
    return OthersLock(descriptor, 1, SharedRegion::LastMark);
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

} // namespace

SharedRegion::Entry SharedRegion::Enter(std::string_view name, std::string_view group, std::string& whyDenied) {
    const std::string file = FileName(name);
    if (file.empty() || file.size() > LongestFileName)
        return Entry::Failed;
    Place place;
    if (!FindPlace(group, place, whyDenied))
        return Entry::Denied;
    m_directory = place.directory;
    m_path = m_directory + '/' + file;
    m_handle = EnterFile(place, file, whyDenied);
    if (m_handle >= 0)
        return Entry::Entered;
    return whyDenied.empty() ? Entry::Failed : Entry::Denied;
}

SharedRegion::Entry SharedRegion::EnterExisting(std::string_view name, std::string_view group, std::string& whyDenied) {
    Place place;
    if (!FindPlace(group, place, whyDenied))
        return Entry::Denied;
    const std::string path = place.directory + '/' + FileName(name);
    Descriptor descriptor(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!descriptor || !IsOwnFile(descriptor.Get(), place, status) || !LockGate(descriptor.Get()))
        return Entry::Failed;
    m_handle = descriptor.Release();
    return Entry::Entered;
}

bool SharedRegion::EnterAgain() {
    return LockGate(File());
}

void SharedRegion::Leave() {
    UnlockByte(File(), 0);
}

void SharedRegion::Close() {
    Unmap();
    if (m_handle >= 0)
        close(File());
    m_handle = -1;
}

void SharedRegion::Unmap() {
    if (m_view != nullptr)
        munmap(m_view, m_length);
    m_view = nullptr;
}

// Cut to nothing and grown again, all its bytes are zero.
bool SharedRegion::Clear(std::size_t length) {
    return ftruncate(File(), 0) == 0 && ftruncate(File(), static_cast<off_t>(length)) == 0;
}

// Room on the device is taken beforehand: a page for which there is none would end the process when touched.
bool SharedRegion::Reserve(std::size_t offset, std::size_t size) {
    return posix_fallocate(File(), static_cast<off_t>(offset), static_cast<off_t>(size)) == 0;
}

void* SharedRegion::Map(std::size_t length) {
    struct stat status = {};
    if (fstat(File(), &status) != 0 || status.st_size != static_cast<off_t>(length))
        return nullptr;
    void* const view = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, File(), 0);
    if (view == MAP_FAILED)
        return nullptr;
    m_view = view;
    m_length = length;
    return view;
}

bool SharedRegion::HasOtherMarks() const {
    return HasOtherOpeners(File());
}

SharedRegion::Marking SharedRegion::TakeMark(std::uint32_t mark) {
    if (LockByte(File(), mark))
        return Marking::Taken;
    return errno == EAGAIN || errno == EACCES ? Marking::Busy : Marking::Failed;
}

bool SharedRegion::IsMarkedElsewhere(std::uint32_t mark) const {
    return OthersLock(File(), mark, 1);
}

std::map<std::uint32_t, std::uint32_t> SharedRegion::Processes() const {
    std::map<std::uint32_t, std::uint32_t> processes;
    for (const auto& [offset, process] : FindLockOwners(File())) {
        if (offset >= 1 && offset <= LastMark)
            processes[static_cast<std::uint32_t>(offset)] = process;
    }
    return processes;
}

void SharedRegion::RemoveIfLast() {
    struct stat status = {};
    if (HasOtherOpeners(File()) || fstat(File(), &status) != 0 || status.st_nlink == 0)
        return;
    unlink(m_path.c_str());
    rmdir(m_directory.c_str()); // succeeds when that was the last file in it
}

// The child has inherited its parent's open file and, with it, the lock that says that the parent is there.
// It must let go of that, of the descriptor and of the mapping, which keeps the open file just as well. The
// file cannot vanish before, so the path still leads to it.
bool SharedRegion::OpenAnewInChild() {
    const Descriptor inherited(File());
    m_handle = -1;
    Descriptor own(open(m_path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat ours = {};
    struct stat theirs = {};
    if (!own || fstat(own.Get(), &ours) != 0 || fstat(inherited.Get(), &theirs) != 0 || ours.st_dev != theirs.st_dev ||
        ours.st_ino != theirs.st_ino ||
        mmap(m_view, m_length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, own.Get(), 0) != m_view)
        return false;
    m_handle = own.Release();
    return true;
}

// Unlike those of one process, these waits are found by all that map the memory.

bool SharedRegion::Sleep(const void* word, std::uint32_t expected, std::chrono::nanoseconds time) const {
    return Futex(word, FUTEX_WAIT, expected, std::max<std::int64_t>(time.count(), 0)) == 0 || errno != ETIMEDOUT;
}

void SharedRegion::WakeOne(const void* word) const {
    Futex(word, FUTEX_WAKE, 1);
}

void SharedRegion::WakeAll(const void* word) const {
    Futex(word, FUTEX_WAKE, INT_MAX);
}

} // namespace Platform
