#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// The text that the process's configuration has for `key` among its messages; empty when it has none. Any thread that
/// may read the configuration.
///
/// Text calls this; the configuration defines it.
KeldMBString FindResourceText(const KeldMBString& key);

} // namespace Qzc
