#include "platform/pathsyntax.h"

namespace Platform {

const PathSyntax NativePaths = {'\\', true};

} // namespace Platform
