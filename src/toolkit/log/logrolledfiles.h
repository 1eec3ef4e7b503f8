#pragma once

#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// The files of the log that is or was written to `path` under a base name, without `path` itself, by their names the
/// newest first. With the default names these are all the files of such names in the directory.
std::vector<KeldMBString> RolledLogFiles(const KeldMBString& path, const KeldMBString& prefix, bool isDefaultName);

/// Whether a file's name, without its extension, is a default one.
bool IsDefaultLogName(const KeldMBString& name);

} // namespace Qzc
