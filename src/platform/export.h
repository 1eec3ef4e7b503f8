#pragma once

/// Marks what the floors above use. There is one platform floor in a process: where a shared library hides nothing from
/// the others that is not its own, each links to this floor as a part of it; elsewhere it lives in one of them, which
/// exports it, and the build defines this.
#if !defined(MOPLATFORM_API)
#define MOPLATFORM_API
#endif
