#pragma once

namespace Platform {

/// How the system writes paths.
struct PathSyntax {
    char separator;  ///< of the two, '/' and '\\', the one that results have
    bool hasVolumes; ///< a path may begin with a drive (C:) or a server and its share (\\server\share)
};

extern const PathSyntax NativePaths;

} // namespace Platform
