#pragma once

#include <cstdint>
#include <functional>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/mostreamexport.h"

namespace Qzc {

/// A file of bytes, without a buffer of its own, and the questions that the toolkit asks about paths.
///
/// In every path both `/` and `\` separate; results use the system's own separator. Directories, and things
/// without a position such as pipes, are no files: opening them fails. A path with a zero byte names nothing. An object
/// is used by one thread at a time; the static functions may be called from any thread.
class MOSTREAM_API QzFile {
public:
    /// How a file is opened.
    enum class Access {
        Read,     ///< the file must exist
        Write,    ///< created when missing, emptied when there
        ReadWrite ///< created when missing, kept when there
    };

    QzFile() = default;
    ~QzFile(); ///< closes
    QzFile(const QzFile&) = delete;
    QzFile& operator=(const QzFile&) = delete;

    /// Closes what was open and opens the file. On failure GetError says why.
    bool Open(const KeldMBString& path, Access access);
    bool Close(); ///< false when something written was lost
    bool IsOpen() const { return m_handle != -1; }

    std::int64_t Read(void* buffer, std::int64_t count); ///< the number read; fewer at the end or on failure
    /// Reads from the start to the end, also where the system does not tell the length. False, and `text` left as it
    /// was, on failure or from 2^31 bytes on.
    bool ReadAll(KeldMBString& text);
    std::int64_t Write(const void* buffer, std::int64_t count); ///< the number written; fewer only on failure
    bool Seek(std::int64_t position);                           ///< from the start
    std::int64_t GetLength() const;                             ///< -1 on failure
    bool Truncate(std::int64_t length);                         ///< cuts the file off at `length`; the position stays
    bool IsAt(const KeldMBString& path) const;                  ///< whether the path leads to the file that is open
    bool Sync(); ///< waits until what was written is on the storage device

    int GetErrorCode() const { return m_error; } ///< errno of the last operation that failed, 0 before any
    KeldMBString GetError() const;               ///< the system's words for it

    /// Puts `text` in the place of the file in one step: at every moment the path names the old file or the new
    /// one, whole, and on failure the old one. Symbolic links are followed; owner and permissions stay; a file
    /// that may not be written is refused. Another hard link keeps the old file.
    ///
    /// Where the directory takes no new file, or the owner could not be kept, the file is overwritten, once its
    /// room on the disk is secured. What is no regular file, such as a device or a pipe that is being read, is
    /// written to.
    static bool ReplaceAll(const KeldMBString& path, const KeldMBString& text, KeldMBString& error);

    /// The same with what `write` writes to the file that it is handed, when it returns true. `error` is empty
    /// where it was `write` that gave up.
    static bool ReplaceAll(const KeldMBString& path, const std::function<bool(QzFile&)>& write, KeldMBString& error);

    static bool IsExist(const KeldMBString& path); ///< whether something is there that Open takes for a file
    static void Remove(const KeldMBString& path);  ///< nothing happens where there is none

    /// The directory of a loaded shared library, named without prefix, suffix and version ("MoBase"); it ends
    /// with a separator. Empty when no such library is loaded.
    static KeldMBString GetModulePath(const char* moduleName);

    /// `path` seen from `directory`, without "." and ".." steps; an absolute `path` stands as it is.
    static KeldMBString GetAbsolutePath(const KeldMBString& directory, const KeldMBString& path);

    /// The way from a directory to `path`, both with the system's own separators, as it is written into files: with `/`
    /// on every system. `path` itself where there is no such way.
    static KeldMBString GetRelativePath(const KeldMBString& directory, const KeldMBString& path);

    /// Takes a path apart, so that joining the three gives it back: the directory with the separator at its
    /// end, the name, and the extension with its dot. What a path lacks is empty; a dot that starts the name
    /// starts no extension, and neither do those of "..".
    static void SplitPath(const KeldMBString& path, KeldMBString& directory, KeldMBString& name,
                          KeldMBString& extension);

    /// `path` with the system's own separators.
    static KeldMBString ToNativePath(const KeldMBString& path);

private:
    bool Report(int error);

    std::intptr_t m_handle = -1;
    int m_error = 0;
};

} // namespace Qzc
