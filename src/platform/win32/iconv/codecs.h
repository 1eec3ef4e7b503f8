#pragma once

#include <memory>
#include <string_view>

#include "platform/win32/iconv/charsetcodec.h"

/// The families of charsets. Names are in upper case; null when a family has no such charset, or the system lacks the
/// page that it is made of.
namespace Platform {

class SingleByteTable;

/// UTF-8, UTF-16, UTF-32 and their forms without pairs.
std::unique_ptr<CharsetCodec> MakeUnicode(std::string_view name);
/// UTF-7, and the form of it that mail folders have.
std::unique_ptr<CharsetCodec> MakeUtf7(std::string_view name);
/// ISO-2022 for Japan and Korea, and HZ for China.
std::unique_ptr<CharsetCodec> MakeIso2022(std::string_view name);
/// Big5 with the characters of Hong Kong.
std::unique_ptr<CharsetCodec> MakeBig5Hkscs(std::string_view name);
/// Charsets of one byte that the system lacks, by tables of our own.
std::unique_ptr<CharsetCodec> MakeOwnTable(std::string_view name);

std::unique_ptr<CharsetCodec> MakeAscii();
std::unique_ptr<CharsetCodec> MakeEucJp();
std::unique_ptr<CharsetCodec> MakeGb18030();
std::unique_ptr<CharsetCodec> MakeVietnamese(); ///< windows-1258
/// TCVN 5712, whose bytes are a table of our own.
std::unique_ptr<CharsetCodec> MakeTcvn(const SingleByteTable& bytes);
/// Other pages of the system, of one byte, and of one and two.
std::unique_ptr<CharsetCodec> MakeSingleBytes(unsigned int codePage);
std::unique_ptr<CharsetCodec> MakeDoubleBytes(unsigned int codePage);

} // namespace Platform
