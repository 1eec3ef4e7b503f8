#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"

/// Files that several processes add to at once. Paths are zero-terminated in the system's own form; functions that can
/// fail give an errno value through `error` (0 when they succeed). Any thread; one file is used by one thread at a
/// time.
namespace Platform {

MOPLATFORM_API unsigned int CurrentProcessId();

/// What a file is, under whatever name.
struct FileIdentity {
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
};

/// An open file, closed with the object. Locks are the file's own, so they tell apart two that this process has opened
/// too; they hold off those who ask for them and nobody else, and go when the file is closed or its process ends, by
/// whatever means. On a file system without locks all of them are granted.
class MOPLATFORM_API SharedFile {
public:
    enum class Creation {
        Keep, ///< created when missing, kept when there
        New,  ///< created; a file that is there is a failure (EEXIST)
        Never ///< must be there
    };

    SharedFile() = default;
    ~SharedFile() { Close(); }
    SharedFile(SharedFile&& other) noexcept;
    SharedFile& operator=(SharedFile&& other) noexcept;

    /// For reading and appending. Regular files and devices: a directory is refused (EISDIR) and so is what has no
    /// position, such as a pipe (ESPIPE). A link that leads nowhere counts as its target, which is created, except for
    /// `New`.
    bool Open(const std::string& path, Creation creation, int& error);
    bool Close(); ///< false when the system reports that something written was lost
    bool IsOpen() const { return m_handle != -1; }

    /// Writes behind all that is there, whoever else writes, and in one piece unless the system fails in the middle.
    /// The number written; where that ended is `GetPosition`.
    std::int64_t Append(const char* bytes, std::int64_t count);
    std::int64_t GetPosition() const;
    /// Writes over what is there. The number written.
    std::int64_t WriteAt(std::int64_t position, const char* bytes, std::int64_t count);
    std::int64_t ReadAt(std::int64_t position, char* bytes,
                        std::int64_t count) const; ///< fewer at the end, or on failure
    std::int64_t GetLength() const;                ///< -1 on failure
    bool Truncate(std::int64_t length);
    bool Sync(); ///< waits until what was written is on the storage device

    /// Whether no path leads to the file any more. A question that fails counts as no.
    bool IsRemoved() const;
    /// Whether the path leads elsewhere, or nowhere. A question that fails for another reason counts as no.
    bool HasLeft(const std::string& path) const;

    void LockChanges(); ///< one holder at a time; waits
    void UnlockChanges();

    /// Puts a mark on the file that others can ask for; any number of holders, also with the same mark.
    void Mark(unsigned int mark);
    bool IsMarkedElsewhere() const;                  ///< by another who has it open, with any mark
    bool IsMarkedElsewhere(unsigned int mark) const; ///< with this one
    /// Keeps all others from marking it, if none has another mark than ours; false when one has.
    bool HoldAlone(unsigned int mark);
    void ReleaseAlone(unsigned int mark);

private:
    bool SetAppending(bool appending);

    std::int64_t m_handle = -1;
    bool m_appending = true;
    FileIdentity m_identity;
    [[maybe_unused]] std::int64_t m_markByte = 0; ///< where marks are bytes of their owners
};

} // namespace Platform
