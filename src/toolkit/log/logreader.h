#pragma once

#include <cstdint>
#include <functional>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/qzfile.h"
#include "toolkit/log/loglayout.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

using LogItemVisitor = std::function<void(QzLogItem&)>;

/// Visit the items that lie between two offsets of a log file, in that order. What is no item is left out.
/// However long the file, no more of it is in memory than the longest item (up to 64 MiB) and a little.
void ReadTextLog(QzFile& file, std::int64_t from, std::int64_t to, LogLayout& layout, const LogItemVisitor& visit);
void ReadXmlLog(QzFile& file, const KeldMBString& dateTimeFormat, const LogItemVisitor& visit);

} // namespace Qzc
