#pragma once

#include <string>

#include "platform/export.h"
#include "platform/file.h"

/// Files that take the place of others. Functions that can fail give an errno value through `error` (0 when they
/// succeed). Any thread; one replacement is used by one thread at a time.
namespace Platform {

/// What is to be in the place of a file. Nothing of it is seen there before it is committed.
struct Replacement {
    FileHandle file = NoFile;   ///< takes what is written
    FileHandle target = NoFile; ///< what is there now, open to writing; NoFile where nothing is
    std::string path;           ///< of the target, behind any symbolic links
    std::string temporary;      ///< the name of `file`, beside the target; empty where none can be
};

/// Opens a file that is to take the place of `path`, with the owner and the permissions of the one that is there.
/// That one must allow to be written, as if it were opened for that (EACCES, EISDIR). Opening never waits: a pipe
/// must have its reader (ENXIO).
MOPLATFORM_API bool OpenReplacement(const char* path, Replacement& replacement, int& error);

/// Puts the file in place and closes it in every case. A regular file is replaced in one step: whoever opens it
/// finds the old one or the new one, whole, even after a power cut. Where no file can be made beside it, or the new
/// one cannot have its owner or its name, it is overwritten in place, with its room on the disk secured first.
/// What is no regular file (a device, a pipe) is written to. On failure a regular file is as it was, unless the
/// device itself failed while it was being overwritten. Where others can keep a file's name, by how they have it open,
/// that is a failure, too (EACCES).
MOPLATFORM_API bool CommitReplacement(Replacement& replacement, int& error);

/// Gives it up.
MOPLATFORM_API void AbandonReplacement(Replacement& replacement);

} // namespace Platform
