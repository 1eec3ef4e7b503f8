#pragma once

#include "toolkit/qzlogfile.h"

/// Recording with the source position and a text as printf writes it:
///     QZ_LOG_ERROR(17, "%s is missing", name);
/// The level is asked first: an item below the threshold costs as much as a comparison, and its arguments are not
/// evaluated. The compiler checks them against the format.
#define QZ_LOG(level, code, ...)                                                                                       \
    do {                                                                                                               \
        const int qzLogCode = (code);                                                                                  \
        if (::Qzc::QzLogFile::IsEnabled((level), qzLogCode))                                                           \
            ::Qzc::QzLogFile::GetInstance(false).RecordFormat((level), qzLogCode, __FILE__, __LINE__, __VA_ARGS__);    \
    } while (false)

/// Level `debug`.
#define QZ_LOG_DEBUG(code, ...) QZ_LOG(::Qzc::QzLogFile::debug, code, __VA_ARGS__)
/// Level `info`.
#define QZ_LOG_INFO(code, ...) QZ_LOG(::Qzc::QzLogFile::info, code, __VA_ARGS__)
/// Level `warning`.
#define QZ_LOG_WARNING(code, ...) QZ_LOG(::Qzc::QzLogFile::warning, code, __VA_ARGS__)
/// Level `error`.
#define QZ_LOG_ERROR(code, ...) QZ_LOG(::Qzc::QzLogFile::error, code, __VA_ARGS__)
/// Level `fatal`.
#define QZ_LOG_FATAL(code, ...) QZ_LOG(::Qzc::QzLogFile::fatal, code, __VA_ARGS__)
