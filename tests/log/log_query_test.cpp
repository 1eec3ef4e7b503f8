#include "log_support.h"

#include <filesystem>
#include <random>
#include <thread>

#include "stream/qztrace.h"
#include "toolkit/log/logdatetime.h"

namespace {

constexpr const char* DefaultFormat = "%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)";

/// Another time zone while it lives.
class TimeZone {
public:
    explicit TimeZone(const char* zone) { Set(zone); }
    ~TimeZone() { Set("CST-8"); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    static void Set(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

} // namespace

// ---- Dates and times

// What strftime writes is read again: to the second where the format tells it, else as far as it does.
TEST_F(LogTest, DateTimesAreReadBack) {
    std::mt19937_64 random(11);
    for (const char* const zone : {"CST-8", "UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "<-0330>3:30<-0230>,M3.2.0,M11.1.0",
                                   "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"}) {
        const TimeZone timeZone(zone);
        for (const std::string dateFormat :
             {"%Y-%m-%d", "%F", "%D", "%d.%m.%y", "%e %b %Y", "%A %d %B %Y", "%a %h %e %C%y", "%Y/%j", "%G-W%V-%u",
              "%Y %U %w", "%Y week %W, %a", "%g%V%a", "%x", "%Ex", "%_d.%_m.%Y", "%-d.%-m.%Y", "%^a %^B %d %Y",
              "%Y%m%d", "%n%t%%%Y|%m|%d"}) {
            for (const std::string timeFormat : {"%T", "%H:%M:%S", "%R:%S", "%I:%M:%S %p", "%r", "%k.%M.%S",
                                                 "%l-%M-%S%P", "%X", "%H%M%S", "%OH:%OM:%OS", "%H:%M:%S %Z", "%T%z"}) {
                const std::string format = dateFormat + " " + timeFormat;
                ASSERT_TRUE(LogDateTimeReader::CanRead(K(format), false)) << format;
                LogDateTimeReader reader(K(format), false);
                for (int i = 0; i < 40; ++i) {
                    // Every other one beside the end of October, when many clocks change.
                    const std::int64_t time = i % 2 != 0 ? static_cast<std::int64_t>(random() % 2000000000)
                                                         : 1792890000 + static_cast<std::int64_t>(random() % 20000);
                    const std::string text = std::string(KeldTime(time).Format(K(format)).View());
                    const std::string line = text + "| rest";
                    std::string_view rest = line;
                    LogMoment moment;
                    ASSERT_TRUE(reader.Read(rest, moment)) << zone << format << text;
                    EXPECT_EQ(rest, "| rest");
                    if (timeFormat.back() == 'z' || timeFormat.back() == 'Z')
                        EXPECT_TRUE(moment.first == time && moment.last == time) << zone << format << text;
                    else
                        EXPECT_TRUE(moment.first == time || moment.last == time) << zone << format << text;
                }
            }
        }
        for (const char* const format : {"%s", "%c", "%a %b %e %H:%M:%S %Z %Y", "%s.", "%c %z"}) {
            LogDateTimeReader reader(format, false);
            for (int i = 0; i < 100; ++i) {
                const auto time = static_cast<std::int64_t>(random() % 4000000000);
                const KeldMBString text = KeldTime(time).Format(format);
                std::string_view rest = text.View();
                LogMoment moment;
                ASSERT_TRUE(reader.Read(rest, moment)) << format << text;
                EXPECT_TRUE(moment.first == time || moment.last == time) << format << text;
                EXPECT_TRUE(rest.empty() && moment.last - moment.first <= 3600);
            }
        }
    }
    const struct {
        const char *format, *text, *time; // null: none
    } partial[] = {
        {"%d.%m.", "21.11.", "1970-11-21 00:00:00"},
        {"%d.%m.", "29.02.", "1972-02-29 00:00:00"},
        {"%H:%M", "09:34", "1970-01-01 09:34:00"},
        {"%a %d", "Fri 31", "1970-07-31 00:00:00"},
        {"", "", "1970-01-01 00:00:00"},
        {"%y", "68", "2068-01-01 00:00:00"},
        {"%y", "69", "1969-01-01 00:00:00"},
        {"%C", "20", "2000-01-01 00:00:00"},
        {"%I %p", "12 AM", "1970-01-01 00:00:00"},
        {"%d.%m.", "31.02.", nullptr},
        {"%H", "24", nullptr},
        {"%Y-%m-%d", "2026-13-01", nullptr},
        {"%F", "2026-11", nullptr},
        {"%a", "Fry", nullptr},
    };
    for (const auto& c : partial) {
        std::string_view text = c.text;
        LogMoment moment;
        EXPECT_EQ(LogDateTimeReader(c.format, false).Read(text, moment), c.time != nullptr) << c.format << c.text;
        if (c.time != nullptr) {
            EXPECT_EQ(KeldTime(moment.last).Format("%Y-%m-%d %H:%M:%S"), c.time) << c.format << c.text;
        }
    }
}

TEST_F(LogTest, UnreadableDateTimeFormatIsRefused) {
    const TextLog<&SetTraceHandler> traces;
    for (const std::string& format : {"%s%Y"s, "%Q"s, "%"s, "%Y%e%Y"s, "%010A"s, std::string(2000, 'x')}) {
        traces.Texts().clear();
        log.SetDateTimeFormat(K(format));
        EXPECT_EQ(log.GetDateTimeFormat(), "%Y-%m-%d %H:%M:%S") << format;
        ASSERT_EQ(traces.Texts().size(), 1U) << format;
        EXPECT_NE(traces.Texts()[0].find(format), std::string::npos);
    }
    for (const char* const format : {"%c", "%H", "", "no time"}) {
        log.SetDateTimeFormat(format);
        EXPECT_EQ(log.GetDateTimeFormat(), format);
    }
}

// The clocks go back from 03:00 to 02:00: every item has its own hour, by those around it.
TEST_F(LogTest, HourThatComesTwice) {
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    constexpr std::int64_t Change = 1792890000; // 2026-10-25 01:00:00 UTC
    for (const char* const format : {DefaultFormat, "%DATETIME %MSG"}) {
        for (const Log::Mode mode : FileModes) {
            log.SetLogFormat(format);
            ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
            std::vector<std::int64_t> times;
            for (std::int64_t time = Change - 2 * 3600; time < Change + 2 * 3600; time += 20 * 60)
                times.push_back(time);
            for (std::size_t count = 1; count <= times.size(); ++count) {
                s_now = times[count - 1];
                Record("m");
                KeldArray<QzLogItem> items;
                log.Query(QzLogQueryDef(), items);
                ASSERT_EQ(items.GetSize(), static_cast<int>(count));
                for (std::size_t i = 0; i < count; ++i)
                    EXPECT_EQ(items[static_cast<int>(i)].m_dtDateTime.GetTime(), times[i]) << format << count;
            }
        }
    }
}

// ---- What was recorded

// Every byte, what is no text of the charset, characters that XML excludes, lines, a mebibyte.
TEST_F(LogTest, AnyMessageComesThroughWhole) {
    std::string bytes;
    for (int i = 0; i < 512; ++i)
        bytes += static_cast<char>(i);
    std::string lines;
    while (lines.size() < 1 << 20)
        lines += "line " + std::to_string(lines.size()) + "| a.cpp(1)\n";
    const std::string messages[] = {bytes,  "\xEF\xBF\xBF", "\xE4\xB8\xAD <&#0;> ]]> \xE4\xB8", "",
                                    "\n\n", lines,          std::string(1 << 20, '<'),          "last"};
    for (const auto& [charset, mode] :
         {std::pair(KELDCharset::UTF8, Log::Text), std::pair(KELDCharset::UTF8, Log::XML),
          std::pair(KELDCharset::GB2312, Log::XML), std::pair(KELDCharset::Johab, Log::XML)}) {
        CurrentCharset current(charset);
        log.SetLogFormat("%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)");
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        for (const std::string& message : messages)
            ASSERT_EQ(log.RecordLog(Log::info, 5, K(message), "dir/a(1).cpp", 12), 1);
        KeldArray<QzLogItem> items;
        ASSERT_EQ(log.Query(QzLogQueryDef(), items), 1);
        ASSERT_EQ(items.GetSize(), static_cast<int>(std::size(messages)));
        for (int i = 0; i < items.GetSize(); ++i) {
            EXPECT_TRUE(items[i].m_strDescription.View() == messages[i]) << charset << i;
            EXPECT_EQ(
                items[i].GetReplaceString("%DATETIME%RESID%LEVEL%THREADID%CODEFILE%CODELINE", "%Y-%m-%d %H:%M:%S"),
                K("2026-11-21 09:34:56     5   info" + ThreadText() + "dir/a(1).cpp12"));
        }
        if (mode == Log::XML) {
            EXPECT_EQ(CountXmlItems(m_file), items.GetSize());
            EXPECT_EQ(ReadBytes(m_file).find_first_of("\x01\x02\x1F\x7F"s), ReadBytes(m_file).find('\x7F'));
        }
    }
}

// Texts that look like parts of a line, in formats with and without a start, read back as a list would give them.
TEST_F(LogTest, RandomItemsAreReadBack) {
    std::mt19937 random(17);
    const auto pick = [&](auto& from) { return from[random() % std::size(from)]; };
    const char* const parts[] = {"| ",           "(",    ")",          "12",          " ",           "a.cpp",
                                 "\n",           "\r\n", "<",          "&#65;",       "2026-11-21 ", "|",
                                 "\xE4\xB8\xAD", "info", "</LogItem>", "\n<LogItem>", "\0"};
    const char* const formats[] = {DefaultFormat,
                                   "[%LEVEL %CODEFILE:%CODELINE] %MSG",
                                   "%DATETIME %MSG",
                                   "%RESID;%MSG;%CODEFILE;%TIMESPAN;",
                                   "##%MSG\n%LEVEL %THREADID <%DATETIME>\n",
                                   "%DATETIME\n%CODELINE%CODEFILE|%MSG|%LEVEL",
                                   "%MSG;%RESID%CODEFILE@%LEVEL"};
    for (int round = 0; round < 60; ++round) {
        const Log::Mode mode = FileModes[round % 2];
        const std::string format = formats[random() % std::size(formats)];
        const bool headless = format.compare(0, 4, "%MSG") == 0;
        log.SetLogFormat(K(format));
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        log.SetLogCountToDisk(round % 3 == 0 ? 20 : 1); // some wait in memory
        std::vector<QzLogItem> recorded;
        for (int i = 0; i < 50; ++i) {
            std::string message;
            for (std::size_t count = random() % 12; count > 0; --count)
                message += pick(parts);
            if (mode == Log::Text && headless) // each line would be an item
                message.erase(std::remove(message.begin(), message.end(), '\n'), message.end());
            if (random() % 8 == 0)
                message.append(random() % 300000, "x|\0("[random() % 4]);
            QzLogItem item;
            s_now = Saturday + i / 3;
            item.m_dtDateTime = KeldTime(s_now.load());
            item.m_eLevel = static_cast<Log::LogLevelType>(100 * (random() % 5 + 1));
            item.m_nResID = static_cast<int>(random() % 5) - 2;
            item.m_strDescription = K(message);
            item.m_strCodeFile = pick(parts)[0] == 'a' ? "b(1).cpp" : "dir/a.cpp";
            item.m_nCodeLine = static_cast<int>(random() % 200);
            log.RecordLog(item.m_eLevel, item.m_nResID, item.m_strDescription, item.m_strCodeFile, item.m_nCodeLine);
            recorded.push_back(std::move(item));
        }
        // What the format does not tell is lost in the file, not in memory.
        const auto tells = [&](const char* placeholder) { return format.find(placeholder) != std::string::npos; };
        for (std::size_t i = 0; i < (round % 3 == 0 ? 40U : 50U); ++i) {
            QzLogItem& item = recorded[i];
            if (!tells("%CODEFILE"))
                item.m_strCodeFile.Empty();
            if (!tells("%CODELINE"))
                item.m_nCodeLine = 0;
            if (!tells("%LEVEL"))
                item.m_eLevel = Log::info;
            if (!tells("%RESID"))
                item.m_nResID = 0;
            if (!tells("%DATETIME"))
                item.m_dtDateTime = KeldTime();
        }
        QzLogQueryDef query;
        query.m_strText = random() % 2 == 0 ? "" : pick(parts);
        query.m_nMinLevel = 100 * static_cast<int>(random() % 4);
        query.m_nMaxResID = static_cast<int>(random() % 3);
        if (random() % 2 == 0)
            query.m_dtFrom = KeldTime(Saturday + static_cast<int>(random() % 10));
        const int most = static_cast<int>(random() % 60);
        log.SetQueryMaxNum(most);
        KeldArray<QzLogItem> items;
        ASSERT_EQ(log.Query(query, items), 1);
        int found = items.GetSize();
        for (auto item = recorded.rbegin(); item != recorded.rend(); ++item) {
            if (!query.Matches(*item) || items.GetSize() - found == most)
                continue;
            ASSERT_GT(found, 0) << format << round;
            const QzLogItem& read = items[--found];
            ASSERT_TRUE(read.m_strDescription == item->m_strDescription) << format << round << ' ' << found;
            ASSERT_EQ(read.m_strCodeFile, item->m_strCodeFile) << format << round;
            ASSERT_EQ(read.m_eLevel, item->m_eLevel);
            ASSERT_EQ(read.m_nResID, item->m_nResID);
            ASSERT_EQ(read.m_nCodeLine, item->m_nCodeLine);
            ASSERT_EQ(read.m_dtDateTime, item->m_dtDateTime);
        }
        EXPECT_EQ(found, 0) << format << round;
    }
}

// ---- Query

TEST_F(LogTest, Query) {
    using Def = QzLogQueryDef;
    const std::string all = "m0;m1;m2;m3;m4;m5;";
    const auto with = [](auto set) {
        Def query;
        set(query);
        return Messages(query);
    };
    for (const Log::Mode mode : FileModes) {
        log.SetLogFormat("%DATETIME %LEVEL %RESID %THREADID %CODEFILE: %MSG");
        log.SetLogCountToDisk(4); // the last two stay in memory
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        const char* const sources[] = {"even.cpp", "odd.cpp"};
        for (int i = 0; i < 6; ++i) {
            s_now = Saturday + i;
            const auto level = static_cast<Log::LogLevelType>(100 * (i % 5 + 1));
            log.RecordLog(level, 10 * i, K("m" + std::to_string(i)), sources[i % 2], i);
        }
        EXPECT_EQ(Messages(), all);
        EXPECT_EQ(with([](Def& q) { q.m_nMinLevel = 300, q.m_nMaxLevel = 400; }), "m2;m3;");
        EXPECT_EQ(with([](Def& q) { q.m_nMinResID = 30, q.m_nMaxResID = 40; }), "m3;m4;");
        EXPECT_EQ(with([](Def& q) { q.m_dtFrom = KeldTime(Saturday + 1), q.m_dtTo = KeldTime(Saturday + 2); }),
                  "m1;m2;");
        EXPECT_EQ(with([](Def& q) { q.m_strText = "odd"; }), "m1;m3;m5;");
        EXPECT_EQ(with([](Def& q) { q.m_strText = "m4"; }), "m4;");
        EXPECT_EQ(with([](Def& q) { q.m_nThreadID = QzThread::GetCurrentThreadId(); }), all);
        EXPECT_EQ(with([](Def& q) { q.m_nThreadID = 1; }), "");
        log.SetQueryMaxNum(2);
        EXPECT_EQ(with([](Def& q) { q.m_strText = "even"; }), "m2;m4;");
        log.SetQueryMaxNum(1000);

        log.Flush();
        KeldArray<QzLogItem> items;
        log.Query(Def(), items);
        ASSERT_EQ(log.SaveQueryResult(items, K(m_scratch / "saved")), 1);
        EXPECT_EQ(ReadBytes(m_scratch / "saved"), ReadBytes(m_file)); // what was read is what was recorded
    }
}

// What is no text of the charset, what XML excludes, characters whose second byte is one of markup or of the format.
TEST_F(LogTest, OddCharactersInXml) {
    const struct {
        KELDCharset::Charset charset;
        std::string message, markup;
    } cases[] = {
        {KELDCharset::UTF8, "a\xEF\xBF\xBE", "a<?byte EF?><?byte BF?><?byte BE?>"},
        {KELDCharset::UTF8, "\xEF\xBF\xBF\xEF\xBF\xBD",
         "<?byte EF?><?byte BF?><?byte BF?><?byte EF?><?byte BF?><?byte BD?>"},
        {KELDCharset::UTF8, "\xED\xA0\x80", "<?byte ED?><?byte A0?><?byte 80?>"},
        {KELDCharset::UTF8, "\xEF\xBF\xBD", "\xEF\xBF\xBD"},
        {KELDCharset::GB2312, "\xD6\xD0\xD6", "<?byte D6?><?byte D0?><?byte D6?>"},
        {KELDCharset::Japanese, "\x83\x7C\x83\x5C| <", "\x83\x7C\x83\x5C| &lt;"},
        {KELDCharset::Japanese, "<\x83", "&lt;<?byte 83?>"},
    };
    log.SetLogFormat("%MSG| %CODEFILE");
    for (const auto& c : cases) {
        const CurrentCharset charset(c.charset);
        ASSERT_EQ(log.Open(K(m_file), 0, Log::XML), 1);
        Record(c.message);
        EXPECT_NE(ReadBytes(m_file).find("<Description>" + c.markup + "</Description>"), std::string::npos) << c.markup;
        EXPECT_EQ(Messages(), c.message + ";");
    }
}

TEST_F(LogTest, ItemsWithoutAnEnd) {
    log.SetLogFormat(DefaultFormat);
    ASSERT_EQ(log.Open(K(m_file)), 1);
    Record("first");
    // A message that forges an item: what it hides is found, with what is left of it, and so is what follows.
    Record("real\n2026-11-21 09:34:56|     12|   -100|  4711|  fatal| forged");
    std::string pieces;
    while (pieces.size() < 2000000)
        pieces += "| (";
    const std::string long1 = pieces + "\n" + pieces;
    Record(long1);
    Record("last");
    KeldArray<QzLogItem> items;
    ASSERT_EQ(log.Query(QzLogQueryDef(), items), 1);
    EXPECT_TRUE(MessagesOf(items) == "first;real;forged;" + long1 + ";last;");
    EXPECT_EQ(items[1].m_eLevel, Log::info);
    EXPECT_EQ(items[1].m_nResID, 1);
    EXPECT_EQ(items[1].m_strCodeFile, "");
    EXPECT_EQ(items[2].m_strCodeFile, "test.cpp");
    log.Close();

    const std::string head = "2026-11-21 09:34:56|     12|   -100|  4711|  error| ";
    WriteBytes(m_file, "rest of a line\n" + head + pieces + "\n" + head + pieces + "(12)\n\n" + head + "cut off");
    log.Open(K(m_file));
    ASSERT_EQ(log.Query(QzLogQueryDef(), items), 1);
    EXPECT_TRUE(MessagesOf(items) == pieces + ";" + pieces.substr(0, pieces.size() - 3) + ";cut off;");
    WriteBytes(m_file, head + "no line end");
    EXPECT_EQ(Messages(), "");
}

TEST_F(LogTest, ItemsOfAnyLength) {
    constexpr int Length = 70 << 20;
    log.SetLogFormat("%DATETIME %MSG");
    ASSERT_EQ(log.Open(K(m_file)), 1);
    Record("before");
    Record(std::string(Length, 'x'));
    Record("behind");
    KeldArray<QzLogItem> items;
    ASSERT_EQ(log.Query(QzLogQueryDef(), items), 1);
    ASSERT_EQ(items.GetSize(), 3);
    EXPECT_EQ(items[1].m_strDescription.GetLength(), Length);
}

// ---- Files and threads

TEST_F(LogTest, QueryHoldsNobodyUp) {
    log.SetLogFormat(DefaultFormat);
    ASSERT_EQ(log.Open(K(m_file)), 1);
    for (int i = 0; i < 5000; ++i)
        Record(std::to_string(i));
    struct Seen {
        std::string text;
        int stopAt = 0, calls = 0;
        long long done = 0, total = 0;
    } seen;
    Log::SetQueryCallBack(
        [](void* context, long long done, long long total) -> unsigned char {
            auto& s = *static_cast<Seen*>(context);
            EXPECT_TRUE(s.done < done && done <= total);
            s.done = done;
            s.total = total;
            std::thread([] { EXPECT_EQ(Record("meanwhile"), 1); }).join();
            return ++s.calls != s.stopAt;
        },
        &seen);
    log.SetQueryMaxNum(10000);
    const auto length = static_cast<long long>(std::filesystem::file_size(m_file));
    KeldArray<QzLogItem> items;
    EXPECT_EQ(log.Query(QzLogQueryDef(), items), 1);
    EXPECT_EQ(items.GetSize(), 5000); // and nothing of what came meanwhile
    EXPECT_EQ(seen.done, length);
    EXPECT_EQ(seen.total, length);
    const int meanwhile = seen.calls;
    EXPECT_GT(meanwhile, 2);
    // It reads no further than it has to, from the end.
    seen = Seen();
    log.SetQueryMaxNum(100);
    EXPECT_EQ(log.Query(QzLogQueryDef(), items), 1);
    EXPECT_EQ(items.GetSize(), 100);
    EXPECT_EQ(items[99 - meanwhile].m_strDescription, "4999");
    EXPECT_EQ(seen.calls, 0);
    // 0 stops it, and so does what the call-back throws.
    seen.stopAt = 1;
    log.SetQueryMaxNum(10000);
    EXPECT_EQ(log.Query(QzLogQueryDef(), items), 0);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_TRUE(items.GetSize() > 500 && items.GetSize() < 5000);
    EXPECT_EQ(items[items.GetSize() - 1 - meanwhile].m_strDescription, "4999");
    Log::SetQueryCallBack([](void*, long long, long long) -> unsigned char { throw 1; }, nullptr);
    EXPECT_EQ(log.Query(QzLogQueryDef(), items), 0);
    Log::SetQueryCallBack(nullptr, nullptr);
}

TEST_F(LogTest, RolledFiles) {
    QzLogQueryDef rolled;
    rolled.m_bRolledFiles = 1;
    const auto inFile = [&](const char* name, const QzLogQueryDef& query) {
        KeldArray<QzLogItem> items;
        const int result = Log::QueryFile(K(m_scratch / name), query, items);
        return std::to_string(result) + ":" + MessagesOf(items);
    };
    for (const Log::Mode mode : FileModes) {
        std::string all;
        log.SetLogFormat("%DATETIME %MSG");
        log.SetFileSizeLimit(100, Log::NewFile);
        s_now = Saturday;
        ASSERT_EQ(log.Open(K(m_scratch.Path()), "a.b.log", Log::Day, mode, 0), 1);
        for (int i = 0; i < 60; ++i) {
            s_now = Saturday + i * 10000;
            Record(std::to_string(i));
            all += std::to_string(i) + ";";
        }
        EXPECT_GT(std::distance(std::filesystem::directory_iterator(m_scratch.Path()), {}), 10);
        for (const char* const other :
             {"b.log", "a.b_2026-11-21.log", "a.b(x).log", "a.b(1).txt", "a.b.c.log", "a.b(0).log"})
            WriteBytes(m_scratch / other, "2026-11-21 09:34:56 other\n");
        EXPECT_EQ(Messages(rolled), all);
        log.SetQueryMaxNum(7);
        EXPECT_EQ(Messages(rolled), "53;54;55;56;57;58;59;");
        log.SetQueryMaxNum(1000);
        rolled.m_strText = "7";
        EXPECT_EQ(Messages(rolled), "7;17;27;37;47;57;");
        rolled.m_strText = "";
        const std::string last = Messages();
        log.Close();
        EXPECT_EQ(Messages(rolled), "");
        EXPECT_EQ(inFile("a.b.log", rolled), "1:" + all);
        EXPECT_EQ(inFile("a.b.log", QzLogQueryDef()),
                  "1:" + all.substr(0, inFile("a.b.log", QzLogQueryDef()).size() - 2));
        EXPECT_EQ(inFile("b.log", rolled), "1:other;");
        EXPECT_EQ(inFile("none.log", rolled), "0:");
        for (const auto& entry : std::filesystem::directory_iterator(m_scratch.Path()))
            std::filesystem::remove(entry.path());
    }
    // The default names, of which each is the time's.
    log.SetFileSizeLimit(-1);
    s_now = Saturday;
    ASSERT_EQ(log.Open(K(m_scratch.Path()), "", Log::Hour), 1);
    for (int i = 0; i < 3; ++i) {
        s_now = Saturday + i * 3600;
        Record(std::to_string(i));
    }
    EXPECT_EQ(Messages(), "2;");
    EXPECT_EQ(Messages(rolled), "0;1;2;");
    EXPECT_EQ(inFile("Zp2026-11-21_09-34-56.log", rolled), "1:0;1;2;");
    KeldArray<QzLogItem> items;
    EXPECT_EQ(Log::QueryFile(K(m_scratch.Path()), rolled, items), 0);
    EXPECT_EQ(Log::QueryFile("", rolled, items), 0);
}

TEST_F(LogTest, ResultIsNotSavedOverTheLog) {
    ASSERT_EQ(log.Open(K(m_file)), 1);
    Record("kept");
    std::filesystem::create_symlink(m_file, m_scratch / "symlink");
    std::filesystem::create_hard_link(m_file, m_scratch / "link");
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    for (const char* const name : {"a.log", "./x/../a.log", "symlink", "link"}) {
        EXPECT_EQ(log.SaveQueryResult(items, K(m_scratch / name)), 0) << name;
        EXPECT_EQ(ReadBytes(m_file), "kept\n");
    }
    std::filesystem::remove(m_file);
    EXPECT_EQ(log.SaveQueryResult(items, K(m_file)), 0);
    EXPECT_EQ(log.SaveQueryResult(items, K(m_scratch / "other")), 1);
    EXPECT_EQ(ReadBytes(m_scratch / "other"), "kept\n");
}
