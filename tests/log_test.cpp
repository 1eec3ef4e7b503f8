#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <sys/resource.h>
#include <thread>

#include "stream/qzfile.h"
#include "stream/qztrace.h"
#include "support.h"
#include "toolkit/logclock.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzthread.h"

using namespace Qzc;
using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;
using Log = QzLogFile;

constexpr std::int64_t Saturday = 1795224896; // 2026-11-21 01:34:56 UTC, 09:34:56 in the tests' time zone
std::atomic<std::int64_t> s_now{Saturday};

Log& TheLog() {
    return Log::GetInstance(false);
}

unsigned char Record(const std::string& message, Log::LogLevelType level = Log::info, int code = 1) {
    return TheLog().RecordLog(level, code, KeldMBString(message), "test.cpp", 7);
}

KeldMBString K(const std::string& text) {
    return KeldMBString(text);
}

Texts Lines(const std::string& path) {
    Texts lines;
    std::istringstream bytes(ReadBytes(path));
    for (std::string line; std::getline(bytes, line);)
        lines.push_back(line);
    return lines;
}

Texts Messages(const QzLogQueryDef& query = QzLogQueryDef()) {
    KeldArray<QzLogItem> items;
    TheLog().Query(query, items);
    Texts messages;
    for (const QzLogItem& item : items)
        messages.emplace_back(item.m_strDescription.View());
    return messages;
}

int CountXmlItems(const std::string& path) {
    QzMarkup markup;
    if (!markup.Load(path.c_str()) || !markup.FindElem("Log"))
        return -1;
    int count = 0;
    while (markup.FindChildElem("LogItem"))
        ++count;
    const std::string text = ReadBytes(path); // the parser does not look behind the end tag
    return text.substr(text.size() - 8) == "</Log>\r\n" && text.find("</Log>") == text.size() - 8 ? count
                                                                                                  : -1;
}

class LogTest : public testing::Test {
protected:
    LogTest() {
        setenv("TZ", "CST-8", 1);
        tzset();
        s_now = Saturday;
        SetLogClock([] { return KeldTime(s_now.load()); });
        log.SetRecordOnlyLog();
        log.SetDateTimeFormat("%Y-%m-%d %H:%M:%S");
        log.SetLevel(Log::debug);
        log.SetFileSizeLimit(-1);
        log.SetLogCountInMemory(10000);
        log.SetLogCountToDisk(1);
        log.SetQueryMaxNum(1000);
        log.SetSaveToPhysical(1);
        log.SetFilterRepeat(0);
        Log::SetCallBack(nullptr);
        Log::SetOpenCallBack(nullptr);
        Log::SetWriteCallBack(nullptr);
        Log::SetWriteCallBacks(nullptr);
        Log::SetCloseCallBack(nullptr);
    }
    ~LogTest() override {
        log.SetSaveToPhysical(1);
        log.Open(K(m_scratch / "rest")); // takes what a test has left in memory
        log.Close();
    }

    static std::set<std::string> Names(const std::string& directory) {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            names.insert(entry.path().filename().string());
        return names;
    }

    CurrentCharset m_charset{KELDCharset::UTF8};
    ScratchDirectory m_scratch;
    std::string m_file = m_scratch / "a.log";
    Log& log = TheLog();
};

} // namespace

// ---- Time and paths

TEST_F(LogTest, TimeIsLocal) {
    const KeldTime time(Saturday);
    EXPECT_EQ(time.Format("%Y-%m-%d %H:%M:%S %%"), "2026-11-21 09:34:56 %");
    EXPECT_EQ(KeldTime(2026, 11, 21, 9, 34, 56), time);
    EXPECT_EQ(KeldTime(2026, 12, -9, 9, 33, 116), time);
    EXPECT_EQ(time.GetYear() * 100 + time.GetMonth(), 202611);
    EXPECT_EQ(time.GetDay() * 100 + time.GetHour(), 2109);
    EXPECT_EQ(time.GetMinute() * 100 + time.GetSecond(), 3456);
    EXPECT_EQ(time.GetDayOfWeek(), 7);
    EXPECT_EQ(KeldTime(1969, 12, 31, 23, 59, 59).GetTime(), -8 * 3600 - 1);
    EXPECT_EQ(KeldTime(INT32_MIN, INT32_MIN, INT32_MIN, 0, 0, 0), KeldTime());
    KeldTime parsed;
    EXPECT_EQ(parsed.Parse("%Y-%m-%d %H:%M:%S", "2026-11-21 09:34:56| x"), 19);
    EXPECT_EQ(parsed, time);
    EXPECT_EQ(parsed.Parse("%Y-%m-%d", "2026-11-x"), 0);
    EXPECT_EQ(parsed.Parse("%H:%M", "09:34"), 0);
    EXPECT_EQ(parsed, time);
    EXPECT_EQ(time.Format(KeldMBString('x', 5000)), "");
    EXPECT_LE(KeldTime::GetMilliseconds(), KeldTime::GetMilliseconds());
}

TEST(Path, SplitsAndJoins) {
    for (const auto& [path, expected] :
         std::map<std::string, std::string>{{"/a/b.c/d.tar.log", "/a/b.c/|d.tar|.log"},
                                            {"a\\b", "a/|b|"},
                                            {".log", "|.log|"},
                                            {"a.", "|a|."},
                                            {"/a.b/", "/a.b/||"},
                                            {"", "||"}}) {
        KeldMBString directory, name, extension;
        QzFile::SplitPath(K(path), directory, name, extension);
        EXPECT_EQ(directory + "|" + name + "|" + extension, K(expected)) << path;
    }
}

// ---- Names, formats, levels

TEST_F(LogTest, NamesAndValues) {
    AssertionLog assertions;
    EXPECT_EQ(Log::GetLevelAsEnum("WARNING"), 300);
    EXPECT_EQ(Log::GetModeAsEnum("xml"), 1);
    EXPECT_EQ(Log::GetTimeIntervalAsEnum("week"), 3);
    EXPECT_EQ(Log::GetSizeLimitModeAsEnum("newfile"), 2);
    EXPECT_EQ(Log::GetSizeLimitModeAsEnum(""), 0);
    std::string names;
    for (const int level : {100, 200, 300, 400, 500})
        names += Log::GetLevelAsString(static_cast<Log::LogLevelType>(level)).Cstr() + " "s;
    EXPECT_EQ(names, "debug info warning error fatal ");
    EXPECT_EQ(AssertionLog::Texts().size(), 0U);
    EXPECT_EQ(Log::GetLevelAsString(static_cast<Log::LogLevelType>(0)), "unknown");
    EXPECT_EQ(Log::GetLevelAsEnum("severe"), 400);
    EXPECT_EQ(Log::GetModeAsEnum(""), 0);
    EXPECT_EQ(Log::GetTimeIntervalAsEnum("year"), 0);
    EXPECT_EQ(Log::GetSizeLimitModeAsEnum("none"), 0);
    EXPECT_EQ(AssertionLog::Texts().size(), 5U);
}

TEST_F(LogTest, LineText) {
    log.Open(K(m_file));
    log.SetLogFormat("%DATETIME|%RESID|%LEVEL|%MSG|%CODEFILE(%CODELINE)%%MSG%THREAD");
    log.RecordLog(Log::info, -12, "say %RESID %MSG", "a.cpp", 34);
    log.RecordLog(Log::warning, 1234567, "", "", -1);
    log.SetDateTimeFormat("%d.%m.");
    log.RecordLog(Log::fatal, "short");
    log.RecordLog("shorter");
    log.SetLogFormat("%TIMESPAN,%THREADID");
    const std::int64_t before = KeldTime::GetMilliseconds();
    Record("x");
    const Texts lines = Lines(m_file);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0],
              "2026-11-21 09:34:56|   -12|   info|say %RESID %MSG|a.cpp(34)%say %RESID %MSG%THREAD");
    EXPECT_EQ(lines[1], "2026-11-21 09:34:56|1234567|warning||(-1)%%THREAD");
    EXPECT_EQ(lines[2], "21.11.|     0|  fatal|short|(0)%short%THREAD");
    EXPECT_EQ(lines[3], "21.11.|     0|   info|shorter|(0)%shorter%THREAD");
    ASSERT_EQ(lines[4].find(','), 6U);
    EXPECT_NEAR(std::stod(lines[4]), static_cast<double>(before), 1000);
    char thread[16];
    std::snprintf(thread, sizeof(thread), ",%5u", QzThread::GetCurrentThreadId());
    EXPECT_EQ(lines[4].substr(6), thread);
    QzLogItem item;
    item.m_nResID = 5;
    EXPECT_EQ(item.GetReplaceString("<%RESID>%MSG", ""), "<     5>");
}

TEST_F(LogTest, LevelsAndBlocking) {
    log.Open(K(m_file));
    log.SetLevel(static_cast<Log::LogLevelType>(450));
    EXPECT_EQ(Record("399", static_cast<Log::LogLevelType>(399)), 0);
    EXPECT_EQ(Record("400", Log::error), 1);
    log.SetLevel(Log::warning);
    EXPECT_EQ(Record("info", Log::info), 0);
    EXPECT_EQ(Record("warning", Log::warning), 1);
    log.SetBlocked(1);
    EXPECT_EQ(Record("fatal", Log::fatal), 0);
    log.SetBlocked(0);
    EXPECT_EQ(Lines(m_file), (Texts{"400", "warning"}));
    AssertionLog assertions;
    log.SetLogFormat("%LEVEL");
    EXPECT_EQ(Record("odd", static_cast<Log::LogLevelType>(350)), 1);
    EXPECT_EQ(Lines(m_file).back(), "unknown");
    EXPECT_EQ(AssertionLog::Texts().size(), 1U);
}

TEST_F(LogTest, ErrorsAreStacked) {
    log.Open(K(m_file));
    QzErrorObj& errors = QzErrorObj::GetInstance();
    errors.Clear();
    Record("warning", Log::warning);
    for (int i = 0; i < 1003; ++i)
        log.RecordLog(i % 2 == 0 ? Log::error : Log::fatal, i, K("e" + std::to_string(i)), "f.cpp", i);
    QzErrorObj::Entry entry;
    ASSERT_TRUE(errors.GetAt(0, entry));
    EXPECT_EQ(entry.m_strMessage + entry.m_strCodeFile, "e1002f.cpp");
    EXPECT_EQ(entry.m_nCode + entry.m_nCodeLine, 2004);
    ASSERT_TRUE(errors.GetAt(999, entry));
    EXPECT_EQ(entry.m_nCode, 3);
    EXPECT_FALSE(errors.GetAt(1000, entry));
    EXPECT_EQ(errors.GetAll()[1].m_nCode, 1001);
    errors.Clear();
    EXPECT_EQ(errors.GetCount(), 0);
}

TEST_F(LogTest, FailedLoadOfAMarkupIsRecorded) {
    log.Open(K(m_file));
    log.SetLogFormat("%LEVEL%RESID %CODEFILE %MSG");
    EXPECT_FALSE(QzMarkup().Load("/no/such.xml"));
    EXPECT_EQ(Lines(m_file), (Texts{"  error  -100 qzmarkup Can not open file  /no/such.xml Error message "
                                    "No such file or directory"}));
}

TEST_F(LogTest, RepeatsAreDroppedAsTheRuleSays) {
    log.Open(K(m_file));
    log.SetFilterRepeat(1);
    std::deque<int> recent;
    std::string last;
    std::mt19937 random(4);
    for (int step = 0; step < 40000; ++step) {
        // Few messages at first, so that counts reach their limit; then as many as leave the window again.
        const int messages = step < 20000 ? 250 : 400;
        const std::string message = "m" + std::to_string(random() % static_cast<unsigned>(messages));
        const int line = static_cast<int>(random() % 2);
        const std::string item = message + ":" + std::to_string(line);
        const int key =
            static_cast<int>(static_cast<unsigned>(QzHashCode::FastStringToHashCode("repeat.cpp")) +
                             static_cast<unsigned>(QzHashCode::FastStringToHashCode(K(message))) +
                             static_cast<unsigned>(line));
        const bool repeat = item == last || std::count(recent.begin(), recent.end(), key) >= 5;
        ASSERT_EQ(log.RecordLog(Log::info, step, K(message), "repeat.cpp", line), repeat ? 0 : 1) << step;
        if (!repeat) {
            last = item;
            recent.push_back(key);
            if (recent.size() > 1000)
                recent.pop_front();
        }
    }
}

// ---- Batches and memory

TEST_F(LogTest, BatchesWaitInMemory) {
    Record("before");
    log.SetLogCountToDisk(3);
    log.Open(K(m_file));
    EXPECT_EQ(Lines(m_file), Texts{"before"});
    Record("1");
    log.SetLogFormat("<%MSG>");
    Record("2");
    EXPECT_EQ(Lines(m_file), Texts{"before"});
    Record("3");
    EXPECT_EQ(Lines(m_file), (Texts{"before", "1", "<2>", "<3>"}));
    Record("4");
    EXPECT_EQ(log.Flush(), 1);
    EXPECT_EQ(Lines(m_file).back(), "<4>");
    log.SetSaveToPhysical(0);
    log.SetLogCountInMemory(2);
    for (const char* message : {"5", "6", "7"})
        EXPECT_EQ(Record(message), 1);
    EXPECT_EQ(log.Flush(), 0);
    log.SetSaveToPhysical(1);
    EXPECT_EQ(log.Close(1), 1);
    EXPECT_EQ(Lines(m_file), (Texts{"before", "1", "<2>", "<3>", "<4>", "<6>", "<7>"}));
    // Nothing is dropped for want of memory while it can be written.
    log.SetLogCountToDisk(100);
    log.Open(K(m_file), 0);
    Record("8");
    Record("9");
    EXPECT_EQ(Lines(m_file), (Texts{"<8>", "<9>"}));
}

TEST_F(LogTest, DefaultName) {
    const auto current = std::filesystem::current_path();
    std::filesystem::current_path(m_scratch.Path());
    EXPECT_EQ(Log::GetInstance(false).IsOpen(), 0);
    EXPECT_EQ(Log::GetInstance(true).IsOpen(), 1);
    EXPECT_EQ(log.GetFileName(), K(m_scratch / "Zp2026-11-21_09-34-56.log"));
    EXPECT_EQ(log.GetPrefix(), "Log");
    std::filesystem::current_path(current);
    Record("kept");
    Log::GetInstance(true); // opens nothing anew
    EXPECT_EQ(log.Open(K(m_scratch.Path()), "b.txt"), 1);
    EXPECT_EQ(log.GetPrefix(), "b");
    EXPECT_EQ(Names(m_scratch.Path()), (std::set<std::string>{"Zp2026-11-21_09-34-56.log", "b.txt"}));
    EXPECT_EQ(log.Open(K(m_scratch / "missing/b.txt")), 0);
    EXPECT_EQ(log.IsOpen(), 0);
    EXPECT_EQ(log.Open(K(m_scratch.Path())), 0);
}

// ---- Rollover

TEST_F(LogTest, SizeLimit) {
    log.Open(K(m_file));
    log.SetFileSizeLimit(4, Log::Rolling);
    for (const char* message : {"1", "2", "3", "4"})
        Record(message); // 4 bytes are no more than 4
    EXPECT_EQ(Lines(m_file), (Texts{"4", "2", "3"}));
    EXPECT_EQ(Messages(), (Texts{"3", "4"})); // the rest of an overwritten line is not told from an old one
    log.SetFileSizeLimit(4, Log::ReOpen);
    Record("5");
    Record("6");
    EXPECT_EQ(Lines(m_file), (Texts{"5", "6"}));
    log.SetFileSizeLimit(3, Log::NewFile);
    WriteBytes(m_scratch / "a(2).log", "old");
    for (const char* message : {"7", "8", "9", "10", "11"})
        Record(message);
    EXPECT_EQ(Names(m_scratch.Path()),
              (std::set<std::string>{"a.log", "a(1).log", "a(2).log", "a(3).log", "a(4).log"}));
    EXPECT_EQ(Lines(m_scratch / "a(1).log"), (Texts{"7", "8"}));
    EXPECT_EQ(ReadBytes(m_scratch / "a(2).log"), "old");
    EXPECT_EQ(Lines(m_scratch / "a(3).log"), (Texts{"9", "10"}));
    EXPECT_EQ(log.GetFileName(), K(m_scratch / "a(4).log"));

    log.Open(K(m_scratch / "x.xml"), 1, Log::XML);
    log.SetFileSizeLimit(1, Log::Rolling);
    Record("12");
    Record("13");
    EXPECT_EQ(Messages(), (Texts{"12", "13"}));
    log.SetFileSizeLimit(1, Log::ReOpen);
    Record("14");
    EXPECT_EQ(Messages(), Texts{"14"});
    EXPECT_EQ(CountXmlItems(m_scratch / "x.xml"), 1);
}

TEST_F(LogTest, TimeInterval) {
    struct Case {
        Log::TimeInterval interval;
        KeldTime start, last, next; // `last` is the last moment of the interval of `start`
        const char* name;
    };
    const Case cases[] = {
        {Log::Hour,
         {2026, 11, 21, 9, 0, 0},
         {2026, 11, 21, 9, 59, 59},
         {2026, 11, 21, 10, 0, 0},
         "2026-11-21_10-00-00"},
        {Log::Hour,
         {2026, 11, 21, 9, 0, 0},
         {2026, 11, 21, 9, 59, 59},
         {2026, 11, 22, 9, 1, 0},
         "2026-11-22_09-01-00"},
        {Log::Day,
         {2026, 11, 21, 0, 0, 0},
         {2026, 11, 21, 23, 59, 59},
         {2026, 11, 22, 0, 0, 0},
         "2026-11-22_00-00-00"},
        {Log::Week,
         {2026, 12, 28, 0, 0, 0},
         {2027, 1, 3, 23, 59, 59},
         {2027, 1, 4, 0, 0, 5},
         "2027-01-04_00-00-05"},
        {Log::Month,
         {2026, 12, 1, 0, 0, 0},
         {2026, 12, 31, 23, 59, 59},
         {2027, 1, 1, 0, 0, 0},
         "2027-01-01_00-00-00"},
        {Log::None, {2026, 12, 1, 0, 0, 0}, {2026, 12, 1, 0, 0, 1}, {2029, 1, 1, 0, 0, 0}, nullptr},
    };
    int number = 0;
    for (const Case& c : cases) {
        const std::string directory = m_scratch / std::to_string(number++);
        std::filesystem::create_directory(directory);
        s_now = c.start.GetTime();
        ASSERT_EQ(log.Open(K(directory), "day.log", c.interval), 1);
        s_now = c.last.GetTime();
        Record("first");
        s_now = c.next.GetTime();
        Record("second");
        Record("third");
        if (c.name != nullptr) {
            EXPECT_EQ(Lines(directory + "/day.log"), Texts{"first"}) << number;
            EXPECT_EQ(Lines(directory + "/day_" + c.name + ".log"), (Texts{"second", "third"})) << number;
        }
        EXPECT_EQ(Names(directory).size(), c.name != nullptr ? 2U : 1U) << number;
    }
    log.Open(K(m_scratch.Path()), "", Log::Day, Log::XML);
    s_now = s_now + 86400;
    WriteBytes(m_scratch / "Zp2029-01-02_00-00-00.log", "old");
    Record("default name");
    EXPECT_EQ(CountXmlItems(m_scratch / "Zp2029-01-02_00-00-00(1).log"), 1);
    EXPECT_EQ(CountXmlItems(m_scratch / "Zp2029-01-01_00-00-00.log"), 0);
}

// ---- XML

TEST_F(LogTest, XmlDocument) {
    log.SetLogFormat("%DATETIME %TIMESPAN %RESID %LEVEL %MSG %CODELINE");
    ASSERT_EQ(log.Open(K(m_file), 1, Log::XML), 1);
    EXPECT_EQ(CountXmlItems(m_file), 0);
    log.RecordLog(Log::warning, 17, "a<b> & \"c\"\n\xE4\xB8\xAD\r\x01", "f.cpp", 3);
    std::string text = ReadBytes(m_file);
    text.replace(text.find("<TimeSpan>") + 10, 6, "123456");
    EXPECT_EQ(text, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<Log>\r\n<LogItem>\r\n"
                    "<DateTime>2026-11-21 09:34:56</DateTime>\r\n<TimeSpan>123456</TimeSpan>\r\n"
                    "<Level>warning</Level>\r\n<ResID>    17</ResID>\r\n"
                    "<Description>a&lt;b&gt; &amp; \"c\"\n\xE4\xB8\xAD&#13;<?byte 01?></Description>\r\n"
                    "<ThreadID/>\r\n<CodeFile/>\r\n<CodeLine>3</CodeLine>\r\n</LogItem>\r\n</Log>\r\n");
    // Added to behind what a killed process may have left: part of an item, and no end tag.
    log.Close();
    for (const std::string& torn : {text.substr(0, text.size() - 8) + "<LogItem>\r\n<DateTime>2026",
                                    text.substr(0, text.size() - 3), text}) {
        WriteBytes(m_file, torn);
        ASSERT_EQ(log.Open(K(m_file), 1, Log::XML), 1);
        EXPECT_EQ(CountXmlItems(m_file), 1);
        Record("more");
        EXPECT_EQ(CountXmlItems(m_file), 2);
        log.Close();
    }
    WriteBytes(m_file, text.substr(0, 50) + std::string(200000, ' '));
    EXPECT_EQ(log.Open(K(m_file), 1, Log::XML), 1);
    EXPECT_EQ(CountXmlItems(m_file), 0);
    const std::string foreign = "<?xml version=\"1.0\" encoding=\"GBK\"?>\r\n<Log>\r\n</Log>\r\n";
    WriteBytes(m_file, foreign);
    EXPECT_EQ(log.Open(K(m_file), 1, Log::XML), 0);
    EXPECT_EQ(ReadBytes(m_file), foreign);
    CurrentCharset chinese(KELDCharset::GB2312);
    EXPECT_EQ(log.Open(K(m_file), 1, Log::XML), 1);
    EXPECT_EQ(log.Open(K(m_file), 0, Log::XML), 1);
    EXPECT_EQ(ReadBytes(m_file), foreign);
}

// Every byte, what is no text of the charset, characters that XML excludes, lines, a mebibyte.
TEST_F(LogTest, AnyMessageComesThroughWhole) {
    std::string bytes;
    for (int i = 0; i < 512; ++i)
        bytes += static_cast<char>(i);
    std::string lines;
    while (lines.size() < 1 << 20)
        lines += "line " + std::to_string(lines.size()) + "| a.cpp(1)\n";
    const Texts messages = {bytes,  "\xEF\xBF\xBF", "\xE4\xB8\xAD <&#0;> ]]> \xE4\xB8", "",
                            "\n\n", lines,          std::string(1 << 20, '<'),          "last"};
    const struct {
        KELDCharset::Charset charset;
        Log::Mode mode;
    } cases[] = {{KELDCharset::UTF8, Log::Text},
                 {KELDCharset::UTF8, Log::XML},
                 {KELDCharset::GB2312, Log::XML},
                 {KELDCharset::Johab, Log::XML}};
    for (const auto& c : cases) {
        CurrentCharset charset(c.charset);
        log.SetLogFormat("%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)");
        ASSERT_EQ(log.Open(K(m_file), 0, c.mode), 1);
        for (const std::string& message : messages)
            ASSERT_EQ(log.RecordLog(Log::info, 5, K(message), "dir/a(1).cpp", 12), 1);
        KeldArray<QzLogItem> items;
        ASSERT_EQ(log.Query(QzLogQueryDef(), items), 1);
        ASSERT_EQ(items.GetSize(), static_cast<int>(messages.size()));
        for (int i = 0; i < items.GetSize(); ++i) {
            EXPECT_TRUE(items[i].m_strDescription.View() == messages[static_cast<std::size_t>(i)])
                << c.charset << i;
            EXPECT_EQ(items[i].m_strCodeFile, "dir/a(1).cpp");
            EXPECT_EQ(items[i].m_nCodeLine * 1000 + items[i].m_nResID, 12005);
            EXPECT_EQ(items[i].m_dtDateTime.GetTime(), Saturday);
            EXPECT_EQ(items[i].m_eLevel, Log::info);
            EXPECT_EQ(items[i].m_nThreadID, QzThread::GetCurrentThreadId());
        }
        if (c.mode == Log::XML) {
            EXPECT_EQ(CountXmlItems(m_file), items.GetSize());
            EXPECT_EQ(ReadBytes(m_file).find_first_of("\x01\x02\x1F\x7F"s), ReadBytes(m_file).find('\x7F'));
        }
    }
}

// ---- Query

TEST_F(LogTest, Query) {
    for (const Log::Mode mode : {Log::Text, Log::XML}) {
        log.SetLogFormat("%DATETIME %LEVEL %RESID %THREADID %CODEFILE: %MSG");
        log.SetLogCountToDisk(4); // the last two stay in memory
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        const Log::LogLevelType levels[] = {Log::debug, Log::info,  Log::warning,
                                            Log::error, Log::fatal, Log::info};
        for (int i = 0; i < 6; ++i) {
            s_now = Saturday + i;
            log.RecordLog(levels[i], 10 * i, K("m" + std::to_string(i)), i % 2 != 0 ? "odd.cpp" : "even.cpp",
                          i);
        }
        const auto with = [&](auto set) {
            QzLogQueryDef query;
            set(query);
            std::string joined;
            for (const std::string& message : Messages(query))
                joined += message + " ";
            return joined;
        };
        EXPECT_EQ(with([](QzLogQueryDef&) {}), "m0 m1 m2 m3 m4 m5 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_nMinLevel = 300, q.m_nMaxLevel = 400; }), "m2 m3 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_nMinResID = 40; }), "m4 m5 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_nMaxResID = 10; }), "m0 m1 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_dtFrom = KeldTime(Saturday + 3); }), "m3 m4 m5 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_dtTo = KeldTime(Saturday + 1); }), "m0 m1 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_strText = "odd"; }), "m1 m3 m5 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_strText = "m4"; }), "m4 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_nThreadID = QzThread::GetCurrentThreadId(); }),
                  "m0 m1 m2 m3 m4 m5 ");
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_nThreadID = 1; }), "");
        log.SetQueryMaxNum(2);
        EXPECT_EQ(with([](QzLogQueryDef& q) { q.m_strText = "even"; }), "m2 m4 ");
        log.SetQueryMaxNum(1000);

        log.Flush();
        KeldArray<QzLogItem> items;
        log.Query(QzLogQueryDef(), items);
        ASSERT_EQ(log.SaveQueryResult(items, K(m_scratch / "saved")), 1);
        EXPECT_EQ(ReadBytes(m_scratch / "saved"), ReadBytes(m_file)); // what was read is what was recorded
    }
}

// ---- Failures

TEST_F(LogTest, WritesAgainWhenItCan) {
    ASSERT_EQ(log.Open("/dev/full"), 1);
    EXPECT_EQ(Record("full 1"), 0);
    EXPECT_EQ(Record("full 2"), 0);
    EXPECT_EQ(log.Close(), 0);
    const std::string directory = m_scratch / "gone";
    for (const Log::Mode mode : {Log::Text, Log::XML}) {
        std::filesystem::create_directory(directory);
        ASSERT_EQ(log.Open(K(directory + "/a.log"), 1, mode), 1);
        Record("lost with its directory");
        std::filesystem::remove_all(directory);
        EXPECT_EQ(Record("3"), 0);
        EXPECT_EQ(Record("4"), 0);
        EXPECT_EQ(log.IsOpen(), 1);
        std::filesystem::create_directory(directory);
        EXPECT_EQ(Record("5"), 1);
        Texts messages = Messages(); // before them may stand again what was written just before the removal
        messages.erase(messages.begin(), messages.end() - 3);
        EXPECT_EQ(messages, (Texts{"3", "4", "5"}));
        std::filesystem::remove(directory + "/a.log"); // the file alone is made again at once
        EXPECT_EQ(Record("6"), 1);
        EXPECT_EQ(Messages().back(), "6");
        if (mode == Log::XML) {
            EXPECT_GE(CountXmlItems(directory + "/a.log"), 1);
        }
        log.Close();
        std::filesystem::remove_all(directory);
    }
    ASSERT_EQ(log.Open(K(m_file)), 1);
    EXPECT_EQ(Lines(m_file), Texts{});
}

[[noreturn]] static void RecordOverTheLimit(const std::string& file) {
    const auto length = std::filesystem::file_size(file);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {length + 20, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    const bool failed = Record(std::string(100, 'x')) == 0 && Record("second") == 0 &&
                        std::filesystem::file_size(file) == length;
    limit.rlim_cur = RLIM_INFINITY;
    setrlimit(RLIMIT_FSIZE, &limit);
    std::_Exit(failed && Record("third") == 1 ? 0 : 1);
}

// A write that fails half-way leaves whole items, and a document. The limit is the process's, hence a
// process.
TEST_F(LogTest, FailedWriteIsTakenBack) {
    for (const Log::Mode mode : {Log::Text, Log::XML}) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        Record("first");
        EXPECT_EXIT(RecordOverTheLimit(m_file), testing::ExitedWithCode(0), "");
        log.Open(K(m_file), 1, mode);
        EXPECT_EQ(Messages(), (Texts{"first", std::string(100, 'x'), "second", "third"}));
        if (mode == Log::XML) {
            EXPECT_EQ(CountXmlItems(m_file), 4);
        }
    }
}

TEST_F(LogTest, KilledProcessLosesNothing) {
    for (const Log::Mode mode : {Log::Text, Log::XML}) {
        EXPECT_EXIT(
            {
                log.Open(K(m_file), 0, mode);
                for (int i = 0; i < 50; ++i)
                    Record("item " + std::to_string(i));
                std::raise(SIGKILL);
            },
            testing::KilledBySignal(SIGKILL), "");
        log.Open(K(m_file), 1, mode);
        EXPECT_EQ(Messages().size(), 50U);
        if (mode == Log::XML) {
            EXPECT_EQ(CountXmlItems(m_file), 50);
        }
    }
}

TEST_F(LogTest, CutOffLineDoesNotSwallowTheNext) {
    WriteBytes(m_file, "whole\nhal");
    log.Open(K(m_file));
    Record("next");
    EXPECT_EQ(ReadBytes(m_file), "whole\nhal\nnext\n");
}

// ---- Call-backs

namespace {

std::string s_seen;

void Echo(const char* line) {
    s_seen += line + ";"s;
    Record("from the echo of "s + line);
}

unsigned char TakeUnlessRefused(void* source, const QzLogItem& item) {
    if (item.m_strDescription == "refused")
        return 0;
    *static_cast<std::string*>(source) += item.m_strDescription.Cstr() + ";"s;
    TheLog().RecordLog("from the sink");
    return 1;
}

} // namespace

TEST_F(LogTest, CallBacksMayLog) {
    s_seen.clear();
    log.Open(K(m_file));
    Log::SetCallBack(Echo);
    Record("a");
    Record("b");
    Log::SetCallBack(nullptr);
    EXPECT_EQ(s_seen, "a;b;");
    EXPECT_EQ(Lines(m_file), (Texts{"a", "from the echo of a", "b", "from the echo of b"}));
}

TEST_F(LogTest, DatabaseTakesItems) {
    std::string source;
    Log::SetOpenCallBack([](void* data, const char* name) -> unsigned char {
        if (data != nullptr)
            *static_cast<std::string*>(data) += name + ":"s;
        return *name != '\0';
    });
    Log::SetCloseCallBack([](void* data) { *static_cast<std::string*>(data) += "closed"; });
    EXPECT_EQ(log.Open(&source, ""), 0);
    EXPECT_EQ(log.Open(&source, "table"), 1);
    EXPECT_EQ(Record("kept"), 1); // nobody takes it
    Log::SetWriteCallBack(TakeUnlessRefused);
    EXPECT_EQ(Record("refused"), 0);
    EXPECT_EQ(Messages(), (Texts{"refused", "from the sink"}));
    Log::SetWriteCallBacks([](void* data, const KeldArray<QzLogItem>& items) -> unsigned char {
        *static_cast<std::string*>(data) += std::to_string(items.GetSize()) + "+";
        return 1;
    });
    EXPECT_EQ(Record("batch"), 1);
    log.SetLogCountToDisk(10);
    Record("last");
    EXPECT_EQ(log.Close(), 1);
    EXPECT_EQ(source, ":table:kept;3+1+closed");
    EXPECT_EQ(log.Open(Log::Memory), 0); // the open call-back gets an empty name
    Log::SetOpenCallBack(nullptr);
    Log::SetCloseCallBack(nullptr);
    Log::SetWriteCallBack(nullptr);
    Log::SetWriteCallBacks(nullptr);
    EXPECT_EQ(log.Open(Log::Memory), 1);
    log.SetLogCountInMemory(2);
    for (const char* message : {"1", "2", "3"})
        EXPECT_EQ(Record(message), 1);
    EXPECT_EQ(Messages(), (Texts{"2", "3"}));
}

TEST_F(LogTest, Dump) {
    s_seen.clear();
    log.Open(Log::Memory);
    Record("one");
    Record("two");
    const QzTraceHandler previous = SetTraceHandler([](const char* text) { s_seen += text; });
    log.Dump(1);
    SetTraceHandler(previous);
    EXPECT_NE(s_seen.find("mode Memory"), std::string::npos);
    EXPECT_NE(s_seen.find("2 items pending"), std::string::npos);
    EXPECT_EQ(s_seen.substr(s_seen.size() - 5), "\ntwo\n");
}

// ---- Threads

TEST_F(LogTest, ThreadsLoseAndTearNothing) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    constexpr int Count = 10000;
#else
    constexpr int Count = 100000;
#endif
    constexpr int Threads = 8;
    const auto padding = [](int i) { return std::string(static_cast<std::size_t>(i % 50), '.'); };
    log.SetLogFormat("%THREADID %CODELINE %MSG");
    log.SetFilterRepeat(1);
    log.Open(K(m_file));
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < Count; ++i) {
                const std::string message = std::to_string(t) + ":" + std::to_string(i) + padding(i);
                if (!log.RecordLog(Log::info, 0, K(message), "thread.cpp", i))
                    ++failed;
                if (i % 1000 == 0)
                    log.SetDateTimeFormat("%H");
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::vector<int> next(Threads, 0);
    std::vector<std::string> ids(Threads);
    int found = 0;
    for (const std::string& line : Lines(m_file)) {
        int line_number = 0, t = 0, i = 0;
        char id[16] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "%15s %d %d:%d", id, &line_number, &t, &i), 4) << line;
        ASSERT_EQ(line_number, i);
        ASSERT_EQ(line.substr(line.rfind(':')), ":" + std::to_string(i) + padding(i));
        ASSERT_GE(i, next[static_cast<std::size_t>(t)]) << "order of a thread's items";
        next[static_cast<std::size_t>(t)] = i + 1;
        std::string& known = ids[static_cast<std::size_t>(t)];
        ASSERT_TRUE(known.empty() || known == id);
        known = id;
        ++found;
    }
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(found, Threads * Count);
}

// ---- Configuration

// The library finds its configuration beside itself, so this takes a process that loads a copy of it.
TEST(LogConfiguration, CodesAlwaysRecorded) {
    const ScratchDirectory scratch;
    std::filesystem::create_directory(scratch / "lib");
    for (const auto& entry : std::filesystem::directory_iterator(QzFile::GetModulePath("MoBase").Cstr())) {
        if (entry.path().filename().string().rfind("libMoBase", 0) == 0)
            std::filesystem::copy_file(entry.path(), scratch / ("lib/" + entry.path().filename().string()));
    }
    WriteBytes(scratch / "Zephyron.xml",
               "<Zephyron><LogSetting type=\"Object\"><InfoID>4711</InfoID></LogSetting></Zephyron>");
    const std::string command = "LD_LIBRARY_PATH='" + (scratch / "lib") + "' '" +
                                std::filesystem::read_symlink("/proc/self/exe").string() +
                                "' --gtest_also_run_disabled_tests --gtest_brief=1 "
                                "--gtest_filter=LogConfiguration.DISABLED_InfoID";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(LogConfiguration, DISABLED_InfoID) {
    Log& log = TheLog();
    log.SetLevel(Log::fatal);
    EXPECT_EQ(log.RecordLog(Log::debug, 4711, "passes"), 1);
    EXPECT_EQ(log.RecordLog(Log::debug, 4711, "passes"), 0) << "the repeat filter acts";
    EXPECT_EQ(log.RecordLog(Log::warning, 4712, "does not"), 0);
    log.SetBlocked(1);
    EXPECT_EQ(log.RecordLog(Log::debug, 4711, "blocked"), 0);
}
