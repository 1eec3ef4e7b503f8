#pragma once

#include <string>

#include "base/keldmbstring.h"
#include "toolkit/qzmarkup.h"

namespace Motool {

enum class Loaded { Whole, Malformed, Failed };

/// Loads a document, in UTF-8 where the terminal's charset does not hold what is in it: texts from the command line
/// must then go through FromTerminal. What is wrong is told on standard error: of a document that is not well formed
/// where, and the line itself.
Loaded LoadDocument(Qzc::QzMarkup& markup, const std::string& file);

} // namespace Motool
