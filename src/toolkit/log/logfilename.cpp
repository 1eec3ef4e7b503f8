#include "toolkit/log/logfilename.h"

#include <filesystem>
#include <system_error>

#include "stream/qzfile.h"

namespace Qzc {

namespace {

// "dir/name.log" with the number 2 is "dir/name(2).log".
KeldMBString NumberedName(const KeldMBString& path, int number) {
    KeldMBString directory;
    KeldMBString name;
    KeldMBString extension;
    QzFile::SplitPath(path, directory, name, extension);
    KeldMBString text;
    text.Format("(%d)", number);
    return directory + name + text + extension;
}

} // namespace

KeldMBString AbsoluteLogPath(const KeldMBString& path) {
    std::error_code failed;
    const std::filesystem::path current = std::filesystem::current_path(failed);
    return failed ? QzFile::ToNativePath(path) : QzFile::GetAbsolutePath(KeldMBString(current.string()), path);
}

KeldMBString DefaultLogName(KeldTime now) {
    KeldMBString name;
    name.Format("Zp%04d-%02d-%02d_%02d-%02d-%02d.log", now.GetYear(), now.GetMonth(), now.GetDay(), now.GetHour(),
                now.GetMinute(), now.GetSecond());
    return name;
}

KeldMBString NextNumberedLogName(const KeldMBString& path, int& number) {
    KeldMBString name;
    do
        name = NumberedName(path, ++number);
    while (QzFile::IsExist(name));
    return name;
}

} // namespace Qzc
