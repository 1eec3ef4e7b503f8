#pragma once

#include "toolkit/qzlogfile.h"

namespace Qzc {

const char* LevelName(QzLogFile::LogLevelType level); ///< null for a value that is none

/// For readers of a dump, "unknown" for a value that is none.
const char* ModeName(QzLogFile::Mode mode);
const char* SizeLimitModeName(QzLogFile::SizeLimitMode mode);

} // namespace Qzc
