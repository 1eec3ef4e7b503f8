#include "log_support.h"

#include <filesystem>
#include <random>
#include <thread>
#include <tuple>
#include <utility>

#include "toolkit/log/logdatetime.h"

namespace {

bool IsWanted(const QzLogQueryDef& query, const QzLogItem& item) {
    const std::string text(query.m_strText.View());
    const auto has = [&](const KeldMBString& value) { return std::string(value.View()).find(text) != text.npos; };
    return item.m_eLevel >= query.m_nMinLevel && item.m_eLevel <= query.m_nMaxLevel &&
           item.m_nResID >= query.m_nMinResID && item.m_nResID <= query.m_nMaxResID &&
           item.m_dtDateTime >= query.m_dtFrom && item.m_dtDateTime <= query.m_dtTo &&
           (query.m_nThreadID == 0 || query.m_nThreadID == item.m_nThreadID) &&
           (has(item.m_strDescription) || has(item.m_strCodeFile));
}

} // namespace

// ---- Dates and times

// What strftime writes is read again: to the second where the format tells it, else as far as it does.
TEST_F(LogTest, DateTimesAreReadBack) {
    std::mt19937_64 random(11);
    for (const char* const zone : {"CST-8", "UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "<-0330>3:30<-0230>,M3.2.0,M11.1.0",
                                   "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"}) {
        if (!ZonesByEnvironment && zone != "CST-8"s)
            continue;
        const TimeZone timeZone(zone);
        std::vector<std::string> formats = {"%s", "%c", "%a %b %e %H:%M:%S %Z %Y", "%s.", "%c %z"};
        for (const std::string date : {"%Y-%m-%d", "%F", "%D", "%d.%m.%y", "%e %b %Y", "%A %d %B %Y", "%a %h %e %C%y",
                                       "%Y/%j", "%G-W%V-%u", "%Y %U %w", "%Y week %W, %a", "%g%V%a", "%x", "%Ex",
                                       "%_d.%_m.%Y", "%-d.%-m.%Y", "%^a %^B %d %Y", "%Y%m%d", "%n%t%%%Y|%m|%d"}) {
            for (const std::string time : {"%T", "%H:%M:%S", "%R:%S", "%I:%M:%S %p", "%r", "%k.%M.%S", "%l-%M-%S%P",
                                           "%X", "%H%M%S", "%OH:%OM:%OS", "%H:%M:%S %Z", "%T%z"})
                formats.push_back(date + " " + time);
        }
        for (const std::string& format : formats) {
            ASSERT_TRUE(LogDateTimeReader::CanRead(K(format), false)) << format;
            LogDateTimeReader reader(K(format), false);
            const bool hasZone = format == "%s" || format.find_last_of("zZ") != std::string::npos;
            for (int i = 0; i < 40; ++i) {
                // Every other one beside the end of October, when many clocks change.
                const std::int64_t time = i % 2 != 0 ? static_cast<std::int64_t>(random() % 2000000000)
                                                     : 1792890000 + static_cast<std::int64_t>(random() % 20000);
                const std::string text(KeldTime(time).Format(K(format)).View());
                const std::string line = text + "| rest";
                std::string_view rest = line;
                LogMoment moment;
                ASSERT_TRUE(reader.Read(rest, moment)) << zone << format << text;
                EXPECT_EQ(rest, "| rest");
                EXPECT_TRUE(moment.last == time || (!hasZone && moment.first == time)) << zone << format << text;
                EXPECT_LE(moment.last - moment.first, hasZone ? 0 : 3600) << zone << format << text;
            }
        }
    }
    const std::pair<const char*, const char*> none[] = {
        {"%d.%m.", "31.02."}, {"%H", "24"},  {"%Y-%m-%d", "2026-13-01"},
        {"%F", "2026-11"},    {"%a", "Fry"}, {"%018Y-%m-%d", "999999999999999999-01-01"}};
    for (const auto& [format, text] : none) {
        std::string_view rest = text;
        LogMoment moment;
        EXPECT_FALSE(LogDateTimeReader(format, false).Read(rest, moment)) << format << text;
    }
}

TEST_F(LogTest, UnreadableDateTimeFormatIsRefused) {
    for (const std::string& format : {"%s%Y"s, "%Q"s, "%"s, "%Y%e%Y"s, "%010A"s, std::string(2000, 'x')}) {
        log.SetDateTimeFormat(K(format));
        EXPECT_EQ(log.GetDateTimeFormat(), "%Y-%m-%d %H:%M:%S") << format;
    }
}

// ---- What was recorded

// Random items, also of texts that look like parts of a line or are no text at all, in formats with and without a
// start, are found as a list would give them, and saved as they were written. Where the clocks go back from 03:00 to
// 02:00 every item has its own hour, by those around it.
TEST_F(LogTest, RandomItemsAreReadBack) {
    std::mt19937 random(17);
    const auto pick = [&](auto& from) { return from[random() % std::size(from)]; };
    const std::string parts[] = {
        "| ",     "(",    ")",          "12",          " ",   "a.cpp",           "\n",
        "\r\n",   "<",    "&#65;",      "2026-11-21 ", "|",   "\xE4\xB8\xAD",    "\xEF\xBF\xBE",
        "\xD9</", "info", "</LogItem>", "\n<LogItem>", "\0"s, "\x01\x1F\x7F]]>", ""};
    const char* const formats[] = {DefaultFormat,
                                   "[%LEVEL %CODEFILE:%CODELINE] %MSG",
                                   "%DATETIME %MSG",
                                   "%RESID;%MSG;%CODEFILE;%TIMESPAN;",
                                   "##%MSG\n%LEVEL %THREADID <%DATETIME>\n",
                                   "%DATETIME\n%CODELINE%CODEFILE|%MSG|%LEVEL",
                                   "%MSG;%RESID%CODEFILE@%LEVEL"};
    const KELDCharset::Charset charsets[] = {KELDCharset::UTF8, KELDCharset::GB2312, KELDCharset::Japanese,
                                             KELDCharset::Johab};
    for (int round = 0; round < 50; ++round) {
        const CurrentCharset charset(pick(charsets));
        const Log::Mode mode = FileModes[round % 2];
        const std::string format = pick(formats);
        const bool isEasilyForged = format.compare(0, 4, "%MSG") == 0 || format.compare(0, 7, "%RESID;") == 0;
        log.SetLogFormat(K(format));
        const std::string file = m_scratch / (std::to_string(round) + ".log");
        const bool clockGoesBack = random() % 4 == 0;
        const TimeZone zone(clockGoesBack ? "CET-1CEST,M3.5.0,M10.5.0/3" : "CST-8");
        const std::int64_t start =
            clockGoesBack ? 1792890000 - 3600 - static_cast<std::int64_t>(random() % 14400) : Saturday;
        const bool rolls = !clockGoesBack && random() % 2 == 0 && format.find("%DATETIME") != std::string::npos;
        log.SetFileSizeLimit(rolls ? 5000 : -1, Log::NewFile);
        ASSERT_EQ(log.Open(K(file), 0, mode), 1);
        const bool waits =
            !clockGoesBack && round % 3 == 0; // some stay in memory, which keeps what the format does not tell
        log.SetLogCountToDisk(waits ? 20 : 1);
        const auto tells = [&](int i, const char* placeholder) {
            return (waits && i >= 40) || format.find(placeholder) != std::string::npos;
        };
        std::vector<QzLogItem> recorded;
        for (int i = 0; i < 50; ++i) {
            std::string message;
            for (std::size_t count = random() % 12; count > 0; --count)
                message += random() % 9 == 0 ? std::string(1, static_cast<char>(random())) : pick(parts);
            if (mode == Log::Text && isEasilyForged) // a line of the message might be an item
                message.erase(std::remove(message.begin(), message.end(), '\n'), message.end());
            if (random() % 8 == 0)
                message.append(random() % 300000, "x|("[random() % 3]);
            s_now = start + (clockGoesBack ? i / 2 * 600 : i / 3);
            const auto level = static_cast<Log::LogLevelType>(100 * (random() % 5 + 1));
            const int resID = static_cast<int>(random() % 5) - 2;
            const KeldMBString codeFile = random() % 2 == 0 ? "b(1).cpp" : "dir/a.cpp";
            const int codeLine = static_cast<int>(random() % 200);
            ASSERT_EQ(log.RecordLog(level, resID, K(message), codeFile, codeLine), 1);
            QzLogItem item;
            item.m_strDescription = K(message);
            item.m_dtDateTime = tells(i, "%DATETIME") ? KeldTime(s_now.load()) : item.m_dtDateTime;
            item.m_eLevel = tells(i, "%LEVEL") ? level : item.m_eLevel;
            item.m_nResID = tells(i, "%RESID") ? resID : item.m_nResID;
            item.m_strCodeFile = tells(i, "%CODEFILE") ? codeFile : item.m_strCodeFile;
            item.m_nCodeLine = tells(i, "%CODELINE") ? codeLine : item.m_nCodeLine;
            if (format.find("%THREADID") != std::string::npos)
                item.m_nThreadID = QzThread::GetCurrentThreadId();
            recorded.push_back(std::move(item));
        }
        QzLogQueryDef query;
        query.m_strText = K(pick(parts));
        query.m_nMinLevel = 100 * static_cast<int>(random() % 4);
        query.m_nMaxLevel = 500 - 100 * static_cast<int>(random() % 2);
        query.m_nMinResID = -static_cast<int>(random() % 3);
        query.m_nMaxResID = static_cast<int>(random() % 3);
        if (random() % 2 == 0)
            query.m_dtFrom = KeldTime(start + static_cast<int>(random() % 10));
        if (random() % 2 == 0)
            query.m_dtTo = KeldTime(start + 5 + static_cast<int>(random() % 10));
        if (random() % 4 == 0)
            query.m_nThreadID = QzThread::GetCurrentThreadId();
        const int most = static_cast<int>(random() % 60);
        for (QzLogQueryDef def : {QzLogQueryDef(), query}) {
            def.m_bRolledFiles = rolls ? 1 : 0;
            log.SetQueryMaxNum(most);
            KeldArray<QzLogItem> items;
            ASSERT_EQ(log.Query(def, items), 1);
            int found = items.GetSize();
            for (auto item = recorded.rbegin(); item != recorded.rend(); ++item) {
                if (!IsWanted(def, *item) || items.GetSize() - found == most)
                    continue;
                ASSERT_GT(found, 0) << format << round;
                const QzLogItem& read = items[--found];
                ASSERT_TRUE(read.m_strDescription == item->m_strDescription) << format << round << ' ' << found;
                ASSERT_EQ(read.m_strCodeFile, item->m_strCodeFile) << format << round;
                ASSERT_EQ(std::tie(read.m_eLevel, read.m_nResID, read.m_nCodeLine, read.m_nThreadID),
                          std::tie(item->m_eLevel, item->m_nResID, item->m_nCodeLine, item->m_nThreadID));
                ASSERT_EQ(read.m_dtDateTime, item->m_dtDateTime);
            }
            EXPECT_EQ(found, 0) << format << round;
        }
        if (waits || rolls)
            continue;
        log.SetQueryMaxNum(1000);
        KeldArray<QzLogItem> items;
        log.Query(QzLogQueryDef(), items);
        ASSERT_EQ(log.SaveQueryResult(items, K(m_scratch / "saved")), 1);
        EXPECT_TRUE(ReadBytes(m_scratch / "saved") == ReadBytes(file)) << format << round;
        const bool isXml = mode == Log::XML && KeldSystem::GetCurCharset() == KELDCharset::UTF8;
        EXPECT_TRUE(!isXml || XmlMessages(file) != "no document");
    }
}

// ---- Query

TEST_F(LogTest, ItemsWithoutAnEnd) {
    log.SetLogFormat(DefaultFormat);
    ASSERT_EQ(log.Open(K(m_file)), 1);
    Record("first");
    // A message that forges an item: what it hides is found, with what is left of it, and so is what follows.
    Record("real\n2026-11-21 09:34:56|     12|   -100|  4711|  fatal| forged");
    std::string pieces;
    while (pieces.size() < 2000000)
        pieces += "| (";
    Record(pieces);
    Record("last");
    EXPECT_TRUE(Messages() == "first;real;forged;" + pieces + ";last;");
    log.Close();

    const std::string head = "2026-11-21 09:34:56|     12|   -100|  4711|  error| ";
    WriteBytes(m_file, "rest of a line\n" + head + pieces + "\n" + head + pieces + "(12)\n\n" + head + "cut off");
    log.Open(K(m_file));
    EXPECT_TRUE(Messages() == pieces + ";" + pieces.substr(0, pieces.size() - 3) + ";cut off;");
    WriteBytes(m_file, head + "no line end");
    EXPECT_EQ(Messages(), "");
}

// ---- Files and threads

TEST_F(LogTest, QueryHoldsNobodyUp) {
    log.SetLogFormat(DefaultFormat);
    ASSERT_EQ(log.Open(K(m_file)), 1);
    for (int i = 0; i < 5000; ++i)
        Record(std::to_string(i));
    long long seen = 0;
    Log::SetQueryCallBack(
        [](void* context, long long done, long long total) -> unsigned char {
            auto& last = *static_cast<long long*>(context);
            EXPECT_TRUE(last < done && done <= total);
            std::thread([] { EXPECT_EQ(Record("meanwhile"), 1); }).join();
            return std::exchange(last, done) >= 0; // 0 stops it
        },
        &seen);
    log.SetQueryMaxNum(10000);
    const auto length = static_cast<long long>(std::filesystem::file_size(m_file));
    KeldArray<QzLogItem> items;
    EXPECT_EQ(log.Query(QzLogQueryDef(), items), 1);
    EXPECT_EQ(items.GetSize(), 5000); // and nothing of what came meanwhile
    EXPECT_EQ(seen, length);
    seen = -1;
    EXPECT_EQ(log.Query(QzLogQueryDef(), items), 0);
    EXPECT_TRUE(items.GetSize() > 500 && items.GetSize() < 5000);
    Log::SetQueryCallBack(nullptr, nullptr);
}

TEST_F(LogTest, RolledFiles) {
    QzLogQueryDef rolled;
    rolled.m_bRolledFiles = 1;
    const auto inFile = [&](const std::string& name, const QzLogQueryDef& query) {
        KeldArray<QzLogItem> items;
        const int result = Log::QueryFile(K(m_scratch / name), query, items);
        return std::to_string(result) + ":" + MessagesOf(items);
    };
    log.SetLogFormat("%DATETIME %MSG");
    log.SetFileSizeLimit(20, Log::NewFile);
    log.Open(K(m_scratch.Path()), "a.b.log", Log::Day);
    for (const char* const message : {"0", "1", "2", "3", "4"}) {
        Record(message);
        s_now += 50000;
    }
    for (const char* const other :
         {"b.log", "a.b_2026-11-21.log", "a.b(x).log", "a.b(1).txt", "a.b.c.log", "a.b(0).log"})
        WriteBytes(m_scratch / other, "2026-11-21 09:34:56 other\n");
    EXPECT_EQ(Messages(rolled), "0;1;2;3;4;");
    EXPECT_EQ(Messages(), "4;");
    EXPECT_EQ(inFile("a.b.log", rolled), "1:0;1;2;3;4;");
    EXPECT_EQ(inFile("a.b.log", QzLogQueryDef()), "1:0;");
    EXPECT_EQ(inFile("none.log", rolled), "0:");
}

TEST_F(LogTest, ResultIsNotSavedOverTheLog) {
    ASSERT_EQ(log.Open(K(m_file)), 1);
    Record("kept");
    std::vector<std::string> names = {"a.log", "./x/../a.log", "link"};
    if (MakeSymbolicLink(m_file, m_scratch / "symlink"))
        names.emplace_back("symlink");
    std::filesystem::create_hard_link(m_file, m_scratch / "link");
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    for (const std::string& name : names) {
        EXPECT_EQ(log.SaveQueryResult(items, K(m_scratch / name)), 0) << name;
        EXPECT_EQ(ReadBytes(m_file), "kept\n");
    }
}
