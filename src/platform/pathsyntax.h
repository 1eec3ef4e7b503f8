#pragma once

#include "platform/export.h"

namespace Platform {

/// How the system writes paths.
struct PathSyntax {
    char separator;  ///< of the two, '/' and '\\', the one that results have
    bool hasVolumes; ///< a path may begin with a drive (C:) or a server and its share (\\server\share)
};

MOPLATFORM_API extern const PathSyntax NativePaths;

} // namespace Platform
