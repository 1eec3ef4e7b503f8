#pragma once

#include "base/keldcharset.h"
#include "base/keldsystem.h"
#include "stream/qztrace.h"

namespace Qzc {

/// The charset of text in this platform's wchar_t: 251 where it has 2 bytes, 253 where it has 4 (or their
/// big-endian forms). `Unknown`, and a trace line, where it has neither.
inline KELDCharset::Charset GetWideCharset() {
    // Wide text is little-endian wherever it leaves memory, so its readers need not ask which machine wrote
    // it.
    constexpr unsigned char IsLittleEndian = 1;
    if constexpr (sizeof(wchar_t) == 2)
        return IsLittleEndian == 1 ? KELDCharset::UCS2LE : KELDCharset::UCS2BE;
    else if constexpr (sizeof(wchar_t) == 4)
        return IsLittleEndian == 1 ? KELDCharset::UCS4LE : KELDCharset::UCS4BE;
    qztrace("unicode format not supported!");
    return KELDCharset::Unknown;
}

/// The charset that a number stands for at this moment.
inline KELDCharset::Charset ResolveCharset(KELDCharset::Charset charset) {
    if (charset == KELDCharset::Current)
        return KeldSystem::GetCurCharset();
    return charset == KELDCharset::Wide ? GetWideCharset() : charset;
}

} // namespace Qzc
