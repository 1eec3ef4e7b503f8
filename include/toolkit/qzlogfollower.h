#pragma once

#include <memory>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"

namespace Qzc {

/// Reads a log's file while others write it, and goes on in the file that the log goes on in:
///     QzLogFollower follower("app.log");
///     KeldArray<QzLogItem> items;
///     while (follower.Next(query, items)) {
///         Show(items);
///         std::this_thread::sleep_for(std::chrono::milliseconds(200));
///     }
/// A file that is renamed or removed is read to its end, then the one that has its name. So is one that the log has
/// left for a new file of its own naming (docs/log.md). One that is cut off is read from its start again.
///
/// Text is read by the formats that the log has when the follower is made. An item counts as there when its line has
/// ended; lines that are added to it later are lost. One thread at a time; nothing throws.
class MOTOOLKIT_API QzLogFollower {
public:
    /// The log of this file, which need not be there yet.
    explicit QzLogFollower(const KeldMBString& path);
    ~QzLogFollower();
    QzLogFollower(const QzLogFollower&) = delete;
    QzLogFollower& operator=(const QzLogFollower&) = delete;

    /// What matches, newest last: at first the newest items that are there, no more than a query gives, then those that
    /// were added since the last call. At most 16 MiB of a file are taken at a time, unless an item is longer. 0 when
    /// no file has been found yet, or memory runs out.
    unsigned char Next(const QzLogQueryDef& query, KeldArray<QzLogItem>& items);

    KeldMBString GetFileName() const; ///< the file that is read

private:
    class Body;
    std::unique_ptr<Body> m_body;
};

} // namespace Qzc
