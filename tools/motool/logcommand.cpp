#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>

#include "commands.h"
#include "logsummary.h"
#include "logtime.h"
#include "stream/qzfile.h"
#include "system.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogfollower.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"

using namespace Qzc;

namespace Motool {

namespace {

struct LogOptions {
    std::string file;
    std::string level;
    std::string since;
    std::string until;
    std::string code;
    std::string grep;
    int count = 20;
    bool follows = false;
    bool isRolled = false;
    bool isJson = false;
    bool isSummary = false;
    bool isUtc = false;
    std::string format;
    std::string timeFormat;
};

constexpr int MostItems = 1000000;
constexpr std::chrono::milliseconds FollowPause(200);

// ---- What is looked for

bool ParseCode(std::string_view text, int& code) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), code);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool ParseCodes(const std::string& text, QzLogQueryDef& query) {
    const std::size_t dots = text.find("..");
    if (dots == std::string::npos) {
        const bool isCode = ParseCode(text, query.m_nMinResID);
        query.m_nMaxResID = query.m_nMinResID;
        return isCode;
    }
    const std::string_view view = text;
    return ParseCode(view.substr(0, dots), query.m_nMinResID) && ParseCode(view.substr(dots + 2), query.m_nMaxResID);
}

// False, and told, when one of the options is none.
bool MakeQuery(const LogOptions& options, QzLogQueryDef& query) {
    const KeldTime now = KeldTime::GetCurrentTime();
    if (!options.level.empty())
        query.m_nMinLevel = QzLogFile::GetLevelAsEnum(KeldMBString(options.level));
    const bool isSince = options.since.empty() || ParseTime(options.since, now, false, query.m_dtFrom);
    const bool isUntil = options.until.empty() || ParseTime(options.until, now, true, query.m_dtTo);
    if (!isSince || !isUntil) {
        FailUsage(Escaped(isSince ? options.until : options.since) + " is no time, such as 2026-11-21, 09:30 or 2h");
        return false;
    }
    if (!options.code.empty() && !ParseCodes(options.code, query)) {
        FailUsage(Shown(options.code) + " is no code, such as -100, or range of them, such as 1..99");
        return false;
    }
    query.m_strText = KeldMBString(options.grep);
    query.m_bRolledFiles = options.isRolled ? 1 : 0;
    return true;
}

// ---- How items are shown

std::string Text(const KeldMBString& text) {
    return std::string(text.View());
}

std::string TimeOf(const QzLogItem& item) {
    std::string text = TimeText(item.m_dtDateTime);
    if (item.m_nMilliseconds != 0) {
        KeldMBString fraction;
        fraction.Format(".%03d", item.m_nMilliseconds);
        text += fraction.View();
    }
    return text;
}

std::string SourceOf(const QzLogItem& item) {
    return item.m_strCodeFile.IsEmpty() ? std::string() : Text(item.m_strCodeFile) + ':' + Number(item.m_nCodeLine);
}

class ItemTable {
public:
    ItemTable() { m_table.AlignRight(2); }

    void Print(const KeldArray<QzLogItem>& items) {
        for (const QzLogItem& item : items)
            m_table.Add({TimeOf(item), LevelName(item.m_eLevel), Number(item.m_nResID), SourceOf(item),
                         Text(item.m_strDescription)},
                        LevelColour(item.m_eLevel), 1);
        m_table.Print();
    }

private:
    Table m_table{{"TIME", "LEVEL", "CODE", "SOURCE", "MESSAGE"}};
};

std::string JsonOf(const QzLogItem& item) {
    return "{\"time\": " + Json(TimeOf(item)) + ", \"level\": " + Json(LevelName(item.m_eLevel)) +
           ", \"code\": " + Number(item.m_nResID) + ", \"message\": " + Json(item.m_strDescription.View()) +
           ", \"file\": " + Json(item.m_strCodeFile.View()) + ", \"line\": " + Number(item.m_nCodeLine) +
           ", \"thread\": " + Number(item.m_nThreadID) + ", \"process\": " + Number(item.m_nProcessID) + "}";
}

/// A line each, so that a stream of them can be read as it comes.
void PrintJson(const KeldArray<QzLogItem>& items) {
    for (const QzLogItem& item : items)
        PrintBytes(JsonOf(item) + '\n');
}

// ---- The three ways to look

/// Shows how far a query has come, while it lives.
class ShownQuery {
public:
    ShownQuery() {
        QzLogFile::SetQueryCallBack(
            [](void* context, long long done, long long total) -> unsigned char {
                static_cast<Progress*>(context)->Show(done, total);
                return 1;
            },
            &m_progress);
    }
    ~ShownQuery() { QzLogFile::SetQueryCallBack(nullptr, nullptr); }
    ShownQuery(const ShownQuery&) = delete;
    ShownQuery& operator=(const ShownQuery&) = delete;

private:
    Progress m_progress;
};

int TellIncomplete(const LogOptions& options) {
    return Fail(Shown(options.file) + ": not all of it could be read");
}

int Summarise(const LogOptions& options, const QzLogQueryDef& query) {
    LogSummary summary;
    bool isWhole = false;
    {
        const ShownQuery shown;
        isWhole = QzLogFile::VisitFile(
                      PathOf(options.file), query,
                      [](void* context, const QzLogItem& item) -> unsigned char {
                          static_cast<LogSummary*>(context)->Add(item);
                          return 1;
                      },
                      &summary) != 0;
    }
    if (summary.Count() == 0)
        return Fail(Shown(options.file) + ": no item is found");
    if (options.isJson)
        summary.PrintJson();
    else
        summary.Print();
    return isWhole ? Done : TellIncomplete(options);
}

int Follow(const LogOptions& options, const QzLogQueryDef& query) {
    QzLogFollower follower{PathOf(options.file)};
    ItemTable table;
    KeldArray<QzLogItem> items;
    while (FlushOutput()) {
        if (follower.Next(query, items) != 0 && !items.IsEmpty()) {
            if (options.isJson)
                PrintJson(items);
            else
                table.Print(items);
        } else {
            std::this_thread::sleep_for(FollowPause);
        }
    }
    return Failed;
}

int ShowNewest(const LogOptions& options, const QzLogQueryDef& query) {
    KeldArray<QzLogItem> items;
    bool isWhole = false;
    {
        const ShownQuery shown;
        isWhole = QzLogFile::QueryFile(PathOf(options.file), query, items) != 0;
    }
    if (items.IsEmpty() && isWhole)
        return Fail(Shown(options.file) + ": no item is found");
    if (options.isJson)
        PrintJson(items);
    else
        ItemTable().Print(items);
    return isWhole ? Done : TellIncomplete(options);
}

int RunLog(const LogOptions& options) {
    QzLogQueryDef query;
    if (!MakeQuery(options, query))
        return WrongUsage;
    QzLogFile& log = QzLogFile::GetInstance(false);
    log.SetQueryMaxNum(options.count);
    log.SetUtc(options.isUtc ? 1 : 0);
    if (!options.format.empty())
        log.SetLogFormat(KeldMBString(options.format));
    if (!options.timeFormat.empty()) {
        log.SetDateTimeFormat(KeldMBString(options.timeFormat));
        if (log.GetDateTimeFormat() != options.timeFormat.c_str())
            return FailUsage(Shown(options.timeFormat) + " is no format that times can be read by");
    }
    QzFile file;
    if (!file.Open(PathOf(options.file), QzFile::Access::Read))
        return Fail(Shown(options.file) + ": " + Escaped(file.GetError().View()));
    file.Close();
    if (options.isSummary)
        return Summarise(options, query);
    return options.follows ? Follow(options, query) : ShowNewest(options, query);
}

} // namespace

void AddLogCommand(CLI::App& program, Chosen& chosen) {
    const auto options = std::make_shared<LogOptions>();
    CLI::App& command =
        AddCommand(program, chosen, "log", "Look into a log",
                   "It shows the newest items that match, the newest last. The file is searched from its end, and no\n"
                   "further than it takes. A TIME is 2026-11-21, '2026-11-21 09:30', 09:30 (today), now, or how long\n"
                   "ago: 90s, 15m, 2h, 7d.\n\n"
                   "Examples:\n"
                   "  motool log app.log --level warning --since 2h\n"
                   "  motool log app.log --grep 'cannot open' --rolled --count 100\n"
                   "  motool log app.log --summary\n"
                   "  motool log app.log --follow",
                   options, RunLog);
    command.add_option("FILE", options->file, "the log, text or XML")->required();
    command.add_option("--level", options->level, "only items of this level and above")
        ->check(CLI::IsMember({"debug", "info", "warning", "error", "fatal"}))
        ->type_name("LEVEL");
    command.add_option("--since", options->since, "only items from then on")->type_name("TIME");
    command.add_option("--until", options->until, "only items up to then")->type_name("TIME");
    command.add_option("--code", options->code, "only items with this message code, or one of a range: 1..99")
        ->type_name("CODE");
    command.add_option("--grep", options->grep, "only items with this text in the message or the source file")
        ->type_name("TEXT");
    command.add_option("--count", options->count, "so many items at most; 20 if not given")
        ->check(CLI::Range(1, MostItems).description(""))
        ->type_name("N");
    auto* const follow =
        command.add_flag("--follow", options->follows, "go on with what is added, in whatever file the log goes on");
    command.add_flag("--rolled", options->isRolled, "also look into the files that the log was in before");
    command.add_flag("--json", options->isJson, "an object a line instead of the table");
    command
        .add_flag("--summary", options->isSummary,
                  "instead of items how many there are by level and hour, and the most frequent sources and messages")
        ->excludes(follow);
    command.add_option("--format", options->format, "the line format of the log, if it is not the default")
        ->type_name("FORMAT");
    command.add_option("--time-format", options->timeFormat, "the date-time format of the log, likewise")
        ->type_name("FORMAT");
    command.add_flag("--utc", options->isUtc, "the log's times are UTC, not local");
}

} // namespace Motool
