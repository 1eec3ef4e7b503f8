#pragma once

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"

namespace Qzc {

/// From the current directory, where it is relative.
KeldMBString AbsoluteLogPath(const KeldMBString& path);

/// The name of a log that was given none.
KeldMBString DefaultLogName(KeldTime now);

/// The first of PATH(1).EXT, PATH(2).EXT... behind `number` that no file has; `number` becomes its number.
KeldMBString NextNumberedLogName(const KeldMBString& path, int& number);

} // namespace Qzc
