#include "platform/pathsyntax.h"

namespace Platform {

const PathSyntax NativePaths = {'/', false};

} // namespace Platform
