#pragma once

/// The base library's names (`KELD`) are usable unqualified inside the toolkit's namespace (`Qzc`),
/// so `using namespace Qzc;` is all that a caller needs.
namespace KELD {}
namespace Qzc {
using namespace KELD;
}
