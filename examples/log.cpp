// Records into the log at every level, in three formats; shows it on standard error, too; lets its file roll over and
// keeps the newest; looks items up again; and keeps the log as an XML document. The files lie in a directory of their
// own, which goes at the end.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <system_error>

#include "toolkit/qzerrorobj.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogmacros.h"
#include "toolkit/qzlogquerydef.h"
#include "toolkit/qzmarkup.h"

using namespace Qzc;

namespace {

void PrintFile(const std::filesystem::path& path) {
    std::printf("  %s:\n", path.filename().string().c_str());
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        std::printf("    %s\n", line.c_str());
}

void PrintFiles(const std::filesystem::path& directory) {
    std::error_code failed;
    std::map<std::string, std::uintmax_t> sizes;
    for (const auto& entry : std::filesystem::directory_iterator(directory, failed))
        sizes[entry.path().filename().string()] = entry.file_size(failed);
    for (const auto& [name, size] : sizes)
        std::printf("  %-12s %3d bytes\n", name.c_str(), static_cast<int>(size));
}

KeldMBString Path(const std::filesystem::path& directory, const char* name) {
    return KeldMBString((directory / name).string());
}

bool ShowLevelsAndFormats(const std::filesystem::path& directory) {
    QzLogFile& log = QzLogFile::GetInstance(false);
    if (!log.Open(Path(directory, "levels.log")))
        return false;
    std::printf("Levels, from warning on, and formats\n");
    log.SetLevel(QzLogFile::warning);
    log.RecordLog(QzLogFile::info, 1, "Not recorded: below the threshold", "viewer.cpp", __LINE__);
    log.RecordLog(QzLogFile::warning, 2, "The projection is guessed", "viewer.cpp", __LINE__);
    log.RecordLog(QzLogFile::error, 3, "The layer\ncannot be drawn", "viewer.cpp", __LINE__);
    log.SetLogFormat("%LEVEL %RESID  %MSG");
    log.RecordLog(QzLogFile::fatal, 4, "Out of memory", "viewer.cpp", __LINE__);
    log.SetRecordOnlyLog();
    log.RecordLog(QzLogFile::warning, "A message alone");
    QzMarkup().Load("missing.xml"); // records its failure by itself
    log.SetLevel(QzLogFile::debug);
    PrintFile(directory / "levels.log");
    QzErrorObj::Entry newest;
    return QzErrorObj::GetInstance().GetAt(0, newest) && newest.m_nCode == -100;
}

// The call-back gets each line; it may as well hand it to the system's journal.
bool ShowSecondSink(const std::filesystem::path& directory) {
    std::printf("\nTo the file, and to standard error\n");
    QzLogFile& log = QzLogFile::GetInstance(false);
    log.SetLogFormat("%LEVEL %MSG");
    if (!log.Open(Path(directory, "sinks.log")))
        return false;
    std::fflush(stdout);
    QzLogFile::SetCallBack([](const char* line) { std::fprintf(stderr, "  %s\n", line); });
    log.SetLevel(QzLogFile::info);
    QZ_LOG_DEBUG(5, "Not even formatted: %d", 1);
    QZ_LOG_INFO(6, "%d layers, drawn in %.1f ms", 3, 12.25);
    QZ_LOG_ERROR(7, "%s is missing", "rivers.shp");
    log.SetLevel(QzLogFile::debug);
    QzLogFile::SetCallBack(nullptr);
    PrintFile(directory / "sinks.log");
    return true;
}

bool ShowRollover(const std::filesystem::path& directory) {
    std::printf("\nA new file whenever one is longer than 60 bytes, and two old ones at most\n");
    QzLogFile& log = QzLogFile::GetInstance(false);
    std::error_code failed; // shows when the log is opened
    std::filesystem::create_directory(directory, failed);
    if (!log.Open(Path(directory, "tiles.log")))
        return false;
    log.SetFileSizeLimit(60, QzLogFile::NewFile);
    log.SetRetention(2, 0);
    for (int i = 0; i < 14; ++i) {
        KeldMBString message;
        message.Format("Tile %d is drawn", i);
        log.RecordLog(message);
    }
    log.SetFileSizeLimit(-1);
    log.SetRetention(0, 0);
    PrintFiles(directory);
    return log.GetFileName() == Path(directory, "tiles(4).log");
}

bool ShowQuery(const std::filesystem::path& directory) {
    std::printf("\nThe warnings and errors about roads\n");
    QzLogFile& log = QzLogFile::GetInstance(false);
    log.SetLogFormat("%DATETIME %LEVEL %CODEFILE: %MSG");
    if (!log.Open(Path(directory, "query.log")))
        return false;
    log.RecordLog(QzLogFile::info, 1, "12 roads loaded", "roads.cpp", __LINE__);
    log.RecordLog(QzLogFile::warning, 2, "A road crosses itself", "roads.cpp", __LINE__);
    log.RecordLog(QzLogFile::warning, 3, "A river flows uphill", "rivers.cpp", __LINE__);
    log.RecordLog(QzLogFile::error, 4, "A road has no end", "roads.cpp", __LINE__);
    QzLogQueryDef query;
    query.m_nMinLevel = QzLogFile::warning;
    query.m_strText = "road";
    KeldArray<QzLogItem> items;
    if (!log.Query(query, items))
        return false;
    for (const QzLogItem& item : items)
        std::printf("  %s\n", item.GetReplaceString("%LEVEL: %MSG", "").Cstr());
    return items.GetSize() == 2;
}

bool ShowXml(const std::filesystem::path& directory) {
    std::printf("\nThe log as an XML document\n");
    QzLogFile& log = QzLogFile::GetInstance(false);
    log.SetLogFormat("%DATETIME %LEVEL %MSG");
    if (!log.Open(Path(directory, "log.xml"), 1, QzLogFile::XML))
        return false;
    log.RecordLog(QzLogFile::warning, "1 < 2 & a control character: \x07");
    PrintFile(directory / "log.xml");
    QzMarkup markup; // the log is still open: the file is a document at any time
    return markup.Load((directory / "log.xml").string().c_str()) != 0;
}

} // namespace

int main() {
    std::error_code failed;
    const std::filesystem::path directory = std::filesystem::temp_directory_path(failed) / "motoolkit-log-example";
    std::filesystem::remove_all(directory, failed);
    std::filesystem::create_directory(directory, failed);
    const bool shown = ShowLevelsAndFormats(directory) && ShowSecondSink(directory) &&
                       ShowRollover(directory / "tiles") && ShowQuery(directory) && ShowXml(directory);
    if (!shown)
        std::fprintf(stderr, "log: something went wrong in %s\n", directory.string().c_str());
    const bool closed = QzLogFile::GetInstance(false).Close() != 0;
    std::filesystem::remove_all(directory, failed);
    return shown && closed ? 0 : 1;
}
