#pragma once

#include <string_view>
#include <vector>

#include "base/keldcharset.h"

namespace Motool {

/// The charsets that bytes may be text of, the likeliest first. By a byte-order mark, by the rules of UTF-8, which
/// other text hardly ever keeps, by zero bytes, and else by how much of it the letters are that people use.
std::vector<KELD::KELDCharset::Charset> GuessCharsets(std::string_view bytes);

} // namespace Motool
