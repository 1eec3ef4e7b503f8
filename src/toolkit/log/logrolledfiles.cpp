#include "toolkit/log/logrolledfiles.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "stream/qzfile.h"

namespace Qzc {

namespace {

// Takes 2026-11-21_09-00-01 off the start.
bool TakeTime(std::string_view& name, std::string_view& time) {
    constexpr std::string_view Form = "0000-00-00_00-00-00";
    if (name.size() < Form.size())
        return false;
    for (std::size_t i = 0; i < Form.size(); ++i) {
        if (Form[i] == '0' ? name[i] < '0' || name[i] > '9' : name[i] != Form[i])
            return false;
    }
    time = name.substr(0, Form.size());
    name.remove_prefix(Form.size());
    return true;
}

// Nothing, or (2) alone.
bool IsNumber(std::string_view name, int& number) {
    number = 0;
    if (name.empty())
        return true;
    const auto result = std::from_chars(name.data() + 1, name.data() + name.size(), number);
    return name[0] == '(' && result.ec == std::errc() && number > 0 &&
           name.substr(static_cast<std::size_t>(result.ptr - name.data())) == ")";
}

// When a file of the name was begun: what sorts by age. False for a name that is not of the log.
bool ReadName(std::string_view name, std::string_view prefix, bool isDefaultName, std::pair<std::string, int>& age) {
    if (name.substr(0, prefix.size()) != prefix)
        return false;
    name.remove_prefix(prefix.size());
    std::string_view time;
    if (isDefaultName) {
        if (!TakeTime(name, time))
            return false;
    } else if (!name.empty() && name[0] == '_') {
        name.remove_prefix(1);
        if (!TakeTime(name, time))
            return false;
    }
    age.first = time;
    return IsNumber(name, age.second);
}

constexpr std::string_view DefaultPrefix = "Zp";

} // namespace

bool IsDefaultLogName(const KeldMBString& name) {
    std::pair<std::string, int> age;
    return ReadName(name.View(), DefaultPrefix, true, age);
}

std::vector<KeldMBString> RolledLogFiles(const KeldMBString& path, const KeldMBString& prefix, bool isDefaultName) {
    KeldMBString directory;
    KeldMBString ownName;
    KeldMBString extension;
    QzFile::SplitPath(path, directory, ownName, extension);
    struct Rolled {
        std::pair<std::string, int> age;
        KeldMBString path;
    };
    std::vector<Rolled> files;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(directory.IsEmpty() ? "." : directory.Cstr(), failed), end;
         !failed && entry != end; entry.increment(failed)) {
        KeldMBString ignored;
        Rolled file;
        KeldMBString name;
        KeldMBString nameExtension;
        QzFile::SplitPath(KeldMBString(entry->path().filename().string()), ignored, name, nameExtension);
        const std::string_view start = isDefaultName ? DefaultPrefix : prefix.View();
        if (nameExtension != extension || name == ownName || !ReadName(name.View(), start, isDefaultName, file.age))
            continue;
        file.path = directory + name + nameExtension;
        files.push_back(std::move(file));
    }
    std::sort(files.begin(), files.end(), [](const Rolled& a, const Rolled& b) { return b.age < a.age; });
    std::vector<KeldMBString> paths;
    for (Rolled& file : files)
        paths.push_back(std::move(file.path));
    return paths;
}

} // namespace Qzc
