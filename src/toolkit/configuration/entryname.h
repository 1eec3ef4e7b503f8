#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// The tag that stands for an entry's name in a file: the name itself, with each ASCII character that another parser
/// would not take there as "_x00HH_" (its number in hexadecimal). An underscore that would be read as the start of
/// such a form is written as one. Empty for a name that is empty or holds a blank, a zero byte or one of <>=\/?!.
KeldMBString TagOfName(const KeldMBString& name);

/// The name that a tag stands for. Any tag has one; only what TagOfName makes is not its own name.
KeldMBString NameOfTag(const KeldMBString& tag);

} // namespace Qzc
