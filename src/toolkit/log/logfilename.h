#pragma once

#include <string>
#include <vector>

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"

namespace Qzc {

/// From the current directory, where it is relative.
KeldMBString AbsoluteLogPath(const KeldMBString& path);

/// What the names of a log's files are made of. The first is PREFIX.EXT, or the default name of its time.
struct LogFileNames {
    KeldMBString directory; ///< with a separator at its end
    KeldMBString prefix;
    KeldMBString extension;
    bool isDefault = false; ///< the log was given no name
    bool utc = false;

    /// A file of the log that is there.
    struct Found {
        KeldMBString path;
        bool hasTime = false;
        KeldTime time; ///< from its name
        int number = 0;
    };

    /// As the name of a file by its absolute path tells them.
    static LogFileNames Of(const KeldMBString& path);

    KeldMBString First(KeldTime now) const;
    KeldMBString OfTime(KeldTime now) const;                ///< of the file that an interval starts
    std::vector<Found> FindAll() const;                     ///< those in the directory whose names say so, in no order
    bool Read(const std::string& name, Found& found) const; ///< whether a name says so, and what
};

/// "dir/name.log" with the number 2 is "dir/name(2).log"; with 0 it is itself.
KeldMBString NumberedLogName(const KeldMBString& path, int number);

} // namespace Qzc
