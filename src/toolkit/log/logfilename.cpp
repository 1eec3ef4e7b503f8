#include "toolkit/log/logfilename.h"

#include <charconv>
#include <string_view>

#include "platform/directory.h"
#include "stream/qzfile.h"
#include "toolkit/log/logclock.h"

namespace Qzc {

namespace {

bool TakeOff(std::string_view& text, std::string_view start) {
    if (text.substr(0, start.size()) != start)
        return false;
    text.remove_prefix(start.size());
    return true;
}

bool TakeOffEnd(std::string_view& text, std::string_view end) {
    if (text.size() < end.size() || text.substr(text.size() - end.size()) != end)
        return false;
    text.remove_suffix(end.size());
    return true;
}

// "2026-11-21_09-00-01"
bool TakeOffTime(std::string_view& text, KeldTime& time) {
    constexpr std::string_view Pattern = "dddd-dd-dd_dd-dd-dd";
    if (text.size() < Pattern.size())
        return false;
    int numbers[6] = {};
    std::size_t number = 0;
    for (std::size_t i = 0; i < Pattern.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (Pattern[i] != 'd' ? text[i] != Pattern[i] : !isDigit)
            return false;
        if (Pattern[i] == 'd')
            numbers[number] = numbers[number] * 10 + (text[i] - '0');
        else
            ++number;
    }
    text.remove_prefix(Pattern.size());
    time = KeldTime(numbers[0], numbers[1], numbers[2], numbers[3], numbers[4], numbers[5]);
    return true;
}

// "(12)", or nothing
bool IsNumber(std::string_view text, int& number) {
    if (text.empty())
        return true;
    if (!TakeOff(text, "(") || !TakeOffEnd(text, ")"))
        return false;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && number > 0;
}

} // namespace

KeldMBString AbsoluteLogPath(const KeldMBString& path) {
    const std::string current = Platform::CurrentDirectory();
    return current.empty() ? QzFile::ToNativePath(path) : QzFile::GetAbsolutePath(KeldMBString(current), path);
}

KeldMBString LogFileNames::First(KeldTime now) const {
    return isDefault ? OfTime(now) : directory + prefix + extension;
}

KeldMBString LogFileNames::OfTime(KeldTime now) const {
    if (isDefault)
        return directory + FormatLogTime(now, "Zp%Y-%m-%d_%H-%M-%S.log", utc);
    return directory + prefix + FormatLogTime(now, "_%Y-%m-%d_%H-%M-%S", utc) + extension;
}

LogFileNames LogFileNames::Of(const KeldMBString& path) {
    LogFileNames names;
    KeldMBString name;
    QzFile::SplitPath(path, names.directory, name, names.extension);
    names.isDefault = true;
    Found ignored;
    names.isDefault = names.Read(std::string((name + names.extension).View()), ignored);
    names.prefix = names.isDefault ? KeldMBString("Log") : name;
    return names;
}

bool LogFileNames::Read(const std::string& name, Found& found) const {
    std::string_view middle = name;
    if (!TakeOff(middle, isDefault ? std::string_view("Zp") : prefix.View()) ||
        !TakeOffEnd(middle, isDefault ? std::string_view(".log") : extension.View()))
        return false;
    std::string_view behind = middle;
    if ((isDefault || TakeOff(behind, "_")) && TakeOffTime(behind, found.time)) {
        found.hasTime = true;
        middle = behind;
    }
    return IsNumber(middle, found.number) && (!isDefault || found.hasTime);
}

std::vector<LogFileNames::Found> LogFileNames::FindAll() const {
    std::vector<Found> all;
    Platform::ListDirectory(directory.Cstr(), [&](const char* name) {
        Found found;
        if (!Read(name, found))
            return;
        found.path = directory + KeldMBString(name);
        all.push_back(std::move(found));
    });
    return all;
}

KeldMBString NumberedLogName(const KeldMBString& path, int number) {
    if (number == 0)
        return path;
    KeldMBString directory;
    KeldMBString name;
    KeldMBString extension;
    QzFile::SplitPath(path, directory, name, extension);
    KeldMBString text;
    text.Format("(%d)", number);
    return directory + name + text + extension;
}

} // namespace Qzc
