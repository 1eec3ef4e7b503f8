#include "toolkit/log/lognames.h"

#include <cstddef>

#include "base/keldassert.h"

namespace Qzc {

namespace {

template <class Value>
struct Named {
    const char* name;
    Value value;
};

constexpr Named<QzLogFile::LogLevelType> LevelNames[] = {{"debug", QzLogFile::debug},
                                                         {"info", QzLogFile::info},
                                                         {"warning", QzLogFile::warning},
                                                         {"error", QzLogFile::error},
                                                         {"fatal", QzLogFile::fatal}};
constexpr Named<QzLogFile::Mode> ModeNames[] = {{"Text", QzLogFile::Text},
                                                {"XML", QzLogFile::XML},
                                                {"Database", QzLogFile::Database},
                                                {"Memory", QzLogFile::Memory}};
constexpr Named<QzLogFile::TimeInterval> TimeIntervalNames[] = {{"None", QzLogFile::None},
                                                                {"Day", QzLogFile::Day},
                                                                {"Month", QzLogFile::Month},
                                                                {"Week", QzLogFile::Week},
                                                                {"Hour", QzLogFile::Hour}};
constexpr Named<QzLogFile::SizeLimitMode> SizeLimitModeNames[] = {
    {"Rolling", QzLogFile::Rolling}, {"ReOpen", QzLogFile::ReOpen}, {"NewFile", QzLogFile::NewFile}};

template <class Value, std::size_t Count>
Value ValueOf(const Named<Value> (&names)[Count], const KeldMBString& name, Value fallback) {
    for (const Named<Value>& row : names) {
        if (name.CompareNoCase(row.name) == 0)
            return row.value;
    }
    KELDASSERT_TEXT(false, "unknown name of a log setting");
    return fallback;
}

template <class Value, std::size_t Count>
const char* NameOf(const Named<Value> (&names)[Count], Value value) {
    for (const Named<Value>& row : names) {
        if (row.value == value)
            return row.name;
    }
    return nullptr;
}

} // namespace

const char* LevelName(QzLogFile::LogLevelType level) {
    return NameOf(LevelNames, level);
}

const char* ModeName(QzLogFile::Mode mode) {
    const char* const name = NameOf(ModeNames, mode);
    return name != nullptr ? name : "unknown";
}

const char* SizeLimitModeName(QzLogFile::SizeLimitMode mode) {
    const char* const name = NameOf(SizeLimitModeNames, mode);
    return name != nullptr ? name : "unknown";
}

QzLogFile::LogLevelType QzLogFile::GetLevelAsEnum(const KeldMBString& name) {
    return ValueOf(LevelNames, name, error);
}

KeldMBString QzLogFile::GetLevelAsString(LogLevelType level) {
    const char* const name = LevelName(level);
    KELDASSERT_TEXT(name != nullptr, "unknown log level");
    return name != nullptr ? name : "unknown";
}

QzLogFile::Mode QzLogFile::GetModeAsEnum(const KeldMBString& name) {
    return ValueOf(ModeNames, name, Text);
}

QzLogFile::TimeInterval QzLogFile::GetTimeIntervalAsEnum(const KeldMBString& name) {
    return ValueOf(TimeIntervalNames, name, None);
}

QzLogFile::SizeLimitMode QzLogFile::GetSizeLimitModeAsEnum(const KeldMBString& name) {
    return name.IsEmpty() ? Rolling : ValueOf(SizeLimitModeNames, name, Rolling);
}

} // namespace Qzc
