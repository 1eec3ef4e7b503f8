#pragma once

#include <string_view>

namespace Platform {

/// The system's number of a charset that it converts by itself; 0 when it has none. Upper and lower case count alike.
unsigned int CodePageOf(std::string_view name);

/// The flags by which MultiByteToWideChar refuses bytes that are no text, and WideCharToMultiByte characters that the
/// page lacks, as far as the page takes any. Some pages take none and let through what they lack: only the way back
/// tells.
unsigned long StrictDecoding(unsigned int codePage);
unsigned long StrictEncoding(unsigned int codePage);

/// Whether WideCharToMultiByte may be asked with this page if it has put something else for a character.
bool TellsLoss(unsigned int codePage);

} // namespace Platform
