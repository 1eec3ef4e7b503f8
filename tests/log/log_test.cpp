#include "log_support.h"

#include <array>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "stream/qzfile.h"
#include "stream/qztrace.h"
#include "toolkit/log/logprint.h"
#include "toolkit/log/logxml.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzlogmacros.h"
#include "toolkit/qztextcodec.h"

namespace {

// Every file with its bytes, by name.
std::string Files(const std::string& directory) {
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        files.insert(entry.path().filename().string() + ": " + ReadBytes(entry.path().string()) + ";");
    return std::accumulate(files.begin(), files.end(), std::string());
}

} // namespace

// ---- Time and paths

TEST_F(LogTest, TimeIsLocal) {
    const KeldTime time(Saturday);
    EXPECT_EQ(time.Format("%Y-%m-%d %H:%M:%S %%"), "2026-11-21 09:34:56 %");
    EXPECT_EQ(KeldTime(2026, 11, 21, 9, 34, 56), time);
    EXPECT_EQ(KeldTime(2026, 12, -9, 9, 33, 116), time);
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
}

TEST(Path, SplitsAndJoins) {
    const char* const cases[][2] = {{"/a/b.c/d.tar.log", "/a/b.c/|d.tar|.log"},
                                    {"a\\b", "a/|b|"},
                                    {".log", "|.log|"},
                                    {"a.", "|a|."},
                                    {"/a.b/", "/a.b/||"},
                                    {"", "||"}};
    for (const auto& [path, expected] : cases) {
        KeldMBString directory, name, extension;
        QzFile::SplitPath(path, directory, name, extension);
        EXPECT_EQ(directory + "|" + name + "|" + extension, expected) << path;
    }
}

// ---- Names, formats, levels

TEST_F(LogTest, NamesAndValues) {
    AssertionLog assertions;
    std::string names;
    for (const int level : {100, 200, 300, 400, 500})
        names += Log::GetLevelAsString(static_cast<Log::LogLevelType>(level)).Cstr() + " "s;
    EXPECT_EQ(names, "debug info warning error fatal ");
    EXPECT_EQ(Log::GetLevelAsEnum("WARNING"), 300);
    EXPECT_EQ(Log::GetModeAsEnum("xml"), 1);
    EXPECT_EQ(Log::GetTimeIntervalAsEnum("week"), 3);
    EXPECT_EQ(Log::GetSizeLimitModeAsEnum("newfile"), 2);
    EXPECT_EQ(Log::GetSizeLimitModeAsEnum(""), 0);
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
    EXPECT_EQ(ReadBytes(m_file), "2026-11-21 09:34:56|   -12|   info|say %RESID %MSG|a.cpp(34)%say %RESID %MSG%THREAD\n"
                                 "2026-11-21 09:34:56|1234567|warning||(-1)%%THREAD\n"
                                 "21.11.|     0|  fatal|short|(0)%short%THREAD\n"
                                 "21.11.|     0|   info|shorter|(0)%shorter%THREAD\n");
    log.Open(K(m_file), 0);
    log.SetLogFormat("%TIMESPAN,%THREADID");
    const std::int64_t before = KeldTime::GetMilliseconds();
    Record("x");
    const std::string line = ReadBytes(m_file);
    EXPECT_EQ(line.substr(6), "," + ThreadText() + "\n");
    EXPECT_NEAR(std::stod(line), static_cast<double>(before), 1000);
    QzLogItem item;
    item.m_nResID = 5;
    EXPECT_EQ(item.GetReplaceString("<%RESID>%MSG", ""), "<     5>");
}

TEST_F(LogTest, LevelsAndBlocking) {
    AssertionLog assertions;
    log.Open(K(m_file));
    log.SetLogFormat("%MSG%LEVEL");
    log.SetLevel(static_cast<Log::LogLevelType>(450));
    EXPECT_EQ(Record("399", static_cast<Log::LogLevelType>(399)), 0);
    EXPECT_EQ(Record("400", Log::error), 1);
    log.SetLevel(Log::warning);
    EXPECT_EQ(Record("info", Log::info), 0);
    EXPECT_EQ(Record("300", Log::warning), 1);
    EXPECT_EQ(AssertionLog::Texts().size(), 0U);
    EXPECT_EQ(Record("350", static_cast<Log::LogLevelType>(350)), 1);
    EXPECT_EQ(AssertionLog::Texts().size(), 1U);
    log.SetBlocked(1);
    EXPECT_EQ(Record("fatal", Log::fatal), 0);
    log.SetBlocked(0);
    EXPECT_EQ(ReadBytes(m_file), "400  error\n300warning\n350unknown\n");
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

TEST_F(LogTest, RepeatsAreDroppedAsTheRuleSays) {
    log.Open(K(m_file));
    log.SetFilterRepeat(1);
    const auto hash = [](const std::string& text) {
        return static_cast<unsigned>(QzHashCode::FastStringToHashCode(K(text)));
    };
    std::deque<unsigned> recent;
    std::string last;
    std::mt19937 random(4);
    for (int step = 0; step < 40000; ++step) {
        // So few that counts reach their limit, and so many that they fall below it again.
        const std::string message = "m" + std::to_string(random() % 250);
        const int line = static_cast<int>(random() % 2);
        const std::string item = message + ":" + std::to_string(line);
        const unsigned key = hash("repeat.cpp") + hash(message) + static_cast<unsigned>(line);
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
    EXPECT_EQ(ReadBytes(m_file), "before\n");
    Record("1");
    log.SetLogFormat("<%MSG>");
    Record("2");
    EXPECT_EQ(ReadBytes(m_file), "before\n");
    Record("3");
    EXPECT_EQ(ReadBytes(m_file), "before\n1\n<2>\n<3>\n");
    Record("4");
    EXPECT_EQ(log.Flush(), 1);
    EXPECT_EQ(ReadBytes(m_file), "before\n1\n<2>\n<3>\n<4>\n");
    log.SetSaveToPhysical(0);
    log.SetLogCountInMemory(2);
    EXPECT_EQ(RecordAll({"5", "6", "7"}), 3);
    EXPECT_EQ(log.Flush(), 0);
    log.SetSaveToPhysical(1);
    EXPECT_EQ(log.Close(1), 1);
    EXPECT_EQ(ReadBytes(m_file), "before\n1\n<2>\n<3>\n<4>\n<6>\n<7>\n");
    // Nothing is dropped for want of memory while it can be written.
    log.SetLogCountToDisk(100);
    log.Open(K(m_file), 0);
    RecordAll({"8", "9"});
    EXPECT_EQ(ReadBytes(m_file), "<8>\n<9>\n");
}

TEST_F(LogTest, DefaultName) {
    const auto current = std::filesystem::current_path();
    std::filesystem::current_path(m_scratch.Path());
    EXPECT_EQ(Log::GetInstance(false).IsOpen(), 0);
    EXPECT_EQ(Log::GetInstance(true).IsOpen(), 1);
    std::filesystem::current_path(current);
    Log::GetInstance(true); // opens nothing anew
    EXPECT_EQ(log.GetFileName(), K(m_scratch / "Zp2026-11-21_09-34-56.log"));
    EXPECT_EQ(log.GetPrefix(), "Log");
    EXPECT_EQ(log.Open(K(m_scratch.Path()), "b.txt"), 1);
    EXPECT_EQ(log.GetPrefix(), "b");
    EXPECT_EQ(Files(m_scratch.Path()), "Zp2026-11-21_09-34-56.log: ;b.txt: ;");
    EXPECT_EQ(log.Open(K(m_scratch / "missing/b.txt")), 0);
    EXPECT_EQ(log.IsOpen(), 0);
    EXPECT_EQ(log.Open(K(m_scratch.Path())), 0);
}

// ---- Rollover

TEST_F(LogTest, SizeLimit) {
    log.Open(K(m_file));
    log.SetFileSizeLimit(4, Log::Rolling);
    RecordAll({"1", "2", "3", "4"}); // 4 bytes are no more than 4
    EXPECT_EQ(ReadBytes(m_file), "4\n2\n3\n");
    EXPECT_EQ(Messages(), "3;4;"); // the rest of an overwritten line is not told from an old one
    log.SetFileSizeLimit(4, Log::ReOpen);
    RecordAll({"5", "6"});
    EXPECT_EQ(ReadBytes(m_file), "5\n6\n");
    log.SetFileSizeLimit(3, Log::NewFile);
    WriteBytes(m_scratch / "a(2).log", "old");
    RecordAll({"7", "8", "9", "10", "11"});
    EXPECT_EQ(Files(m_scratch.Path()),
              "a(1).log: 7\n8\n;a(2).log: old;a(3).log: 9\n10\n;a(4).log: 11\n;a.log: 5\n6\n;");
    EXPECT_EQ(log.GetFileName(), K(m_scratch / "a(4).log"));

    log.Open(K(m_file), 0, Log::XML);
    log.SetFileSizeLimit(1, Log::Rolling);
    RecordAll({"12", "13"});
    ExpectFile(Log::XML, "12;13;");
    log.SetFileSizeLimit(1, Log::ReOpen);
    Record("14");
    ExpectFile(Log::XML, "14;");
}

TEST_F(LogTest, TimeInterval) {
    const auto setNow = [](const char* time) {
        KeldTime now;
        ASSERT_EQ(now.Parse("%Y-%m-%d %H:%M:%S", time), 19);
        s_now = now.GetTime();
    };
    const struct {
        Log::TimeInterval interval;
        const char *start, *last, *next; // `last` is the last moment of the interval of `start`
        std::string files;
    } cases[] = {
        {Log::Hour, "2026-11-21 09:00:00", "2026-11-21 09:59:59", "2026-11-21 10:00:00",
         "day.log: 1\n;day_2026-11-21_10-00-00.log: 2\n3\n;"},
        {Log::Hour, "2026-11-21 09:00:00", "2026-11-21 09:59:59", "2026-11-22 09:01:00",
         "day.log: 1\n;day_2026-11-22_09-01-00.log: 2\n3\n;"},
        {Log::Day, "2026-11-21 00:00:00", "2026-11-21 23:59:59", "2026-11-22 00:00:00",
         "day.log: 1\n;day_2026-11-22_00-00-00.log: 2\n3\n;"},
        {Log::Week, "2026-12-28 00:00:00", "2027-01-03 23:59:59", "2027-01-04 00:00:05",
         "day.log: 1\n;day_2027-01-04_00-00-05.log: 2\n3\n;"},
        {Log::Month, "2026-12-01 00:00:00", "2026-12-31 23:59:59", "2027-01-01 00:00:00",
         "day.log: 1\n;day_2027-01-01_00-00-00.log: 2\n3\n;"},
        {Log::None, "2026-12-01 00:00:00", "2026-12-01 00:00:01", "2029-01-01 00:00:00", "day.log: 1\n2\n3\n;"},
    };
    for (const auto& c : cases) {
        const ScratchDirectory directory;
        setNow(c.start);
        ASSERT_EQ(log.Open(K(directory.Path()), "day.log", c.interval), 1);
        setNow(c.last);
        Record("1");
        setNow(c.next);
        RecordAll({"2", "3"});
        EXPECT_EQ(Files(directory.Path()), c.files);
    }
    log.Open(K(m_scratch.Path()), "", Log::Day, Log::XML);
    setNow("2029-01-02 00:00:00");
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
    for (const std::string& torn :
         {text.substr(0, text.size() - 8) + "<LogItem>\r\n<DateTime>2026", text.substr(0, text.size() - 3), text}) {
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

// ---- Failures

TEST_F(LogTest, WritesAgainWhenItCan) {
    ASSERT_EQ(log.Open("/dev/full"), 1);
    EXPECT_EQ(RecordAll({"full 1", "full 2"}), 0);
    EXPECT_EQ(log.Close(), 0);
    const std::string directory = m_scratch / "gone";
    for (const Log::Mode mode : FileModes) {
        std::filesystem::create_directory(directory);
        ASSERT_EQ(log.Open(K(directory + "/a.log"), 1, mode), 1);
        Record("lost with its directory");
        std::filesystem::remove_all(directory);
        EXPECT_EQ(RecordAll({"3", "4"}), 0);
        EXPECT_EQ(log.IsOpen(), 1);
        std::filesystem::create_directory(directory);
        EXPECT_EQ(Record("5"), 1);
        const std::string messages = Messages(); // before them may stand what was written before the removal
        EXPECT_EQ(messages.substr(messages.size() - 6), "3;4;5;");
        std::filesystem::remove(directory + "/a.log"); // the file alone is made again at once
        EXPECT_EQ(Record("6"), 1);
        EXPECT_EQ(Messages().substr(Messages().size() - 2), "6;");
        if (mode == Log::XML) {
            EXPECT_GE(CountXmlItems(directory + "/a.log"), 1);
        }
        log.Close();
        std::filesystem::remove_all(directory);
    }
    ASSERT_EQ(log.Open(K(m_file)), 1);
    EXPECT_EQ(ReadBytes(m_file), "");
}

[[noreturn]] static void RecordOverTheLimit(const std::string& file) {
    const auto length = std::filesystem::file_size(file);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {static_cast<rlim_t>(length + 20), RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    const bool failed = RecordAll({std::string(100, 'x'), "second"}) == 0 && std::filesystem::file_size(file) == length;
    limit.rlim_cur = RLIM_INFINITY;
    setrlimit(RLIMIT_FSIZE, &limit);
    std::_Exit(failed && Record("third") == 1 ? 0 : 1);
}

// A write that fails half-way leaves whole items, and a document. The limit is the process's, hence a
// process.
TEST_F(LogTest, FailedWriteIsTakenBack) {
    for (const Log::Mode mode : FileModes) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        Record("first");
        EXPECT_EXIT(RecordOverTheLimit(m_file), testing::ExitedWithCode(0), "");
        log.Open(K(m_file), 1, mode);
        ExpectFile(mode, "first;" + std::string(100, 'x') + ";second;third;");
    }
}

TEST_F(LogTest, KilledProcessLosesNothing) {
    for (const Log::Mode mode : FileModes) {
        EXPECT_EXIT((log.Open(K(m_file), 0, mode), RecordAll({"1", "2", "3", "4"}), std::raise(SIGKILL)),
                    testing::KilledBySignal(SIGKILL), "");
        log.Open(K(m_file), 1, mode);
        ExpectFile(mode, "1;2;3;4;");
    }
}

TEST_F(LogTest, CutOffLineDoesNotSwallowTheNext) {
    WriteBytes(m_file, "whole\nhal");
    log.Open(K(m_file));
    Record("next");
    EXPECT_EQ(ReadBytes(m_file), "whole\nhal\nnext\n");
}

// ---- Call-backs

TEST_F(LogTest, EchoMayLog) {
    log.Open(K(m_file));
    Log::SetCallBack([](const char* line) { Record("echo of "s + line); });
    RecordAll({"a", "b"});
    EXPECT_EQ(ReadBytes(m_file), "a\necho of a\nb\necho of b\n");
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
    Log::SetWriteCallBack([](void* data, const QzLogItem& item) -> unsigned char {
        if (item.m_strDescription == "refused")
            return 0;
        *static_cast<std::string*>(data) += item.m_strDescription.Cstr() + ";"s;
        return Record("from the sink");
    });
    EXPECT_EQ(Record("refused"), 0);
    EXPECT_EQ(Messages(), "refused;from the sink;");
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
}

TEST_F(LogTest, MemoryKeepsTheNewest) {
    const TextLog<&SetTraceHandler> traces;
    EXPECT_EQ(log.Open(Log::Memory), 1);
    log.SetLogCountInMemory(2);
    EXPECT_EQ(RecordAll({"1", "2", "3"}), 3);
    EXPECT_EQ(Messages(), "2;3;");
    log.Dump(1);
    const std::string dump = traces.Texts().at(0);
    EXPECT_NE(dump.find("mode Memory"), std::string::npos);
    EXPECT_NE(dump.find("2 items pending"), std::string::npos);
    EXPECT_EQ(dump.substr(dump.size() - 3), "\n3\n");
}

// ---- Threads

TEST_F(LogTest, ThreadsLoseAndTearNothing) {
    constexpr int Count = 5000;
    constexpr int Threads = 8;
    const auto text = [](int t, int i) {
        return std::to_string(t) + std::string(static_cast<std::size_t>(i % 50), '.') + std::to_string(i);
    };
    log.SetLogFormat("%MSG %CODELINE %THREADID");
    log.SetFilterRepeat(1);
    log.Open(K(m_file));
    std::atomic<int> failed{0};
    std::string ids[Threads];
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            ids[t] = ThreadText();
            for (int i = 0; i < Count; ++i) {
                failed += log.RecordLog(Log::info, 0, K(text(t, i)), "thread.cpp", i) == 0 ? 1 : 0;
                if (i % 1000 == 0)
                    log.SetDateTimeFormat("%H");
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 0);
    int next[Threads] = {}; // a thread's items stand in their order
    std::ifstream file(m_file);
    for (std::string line; std::getline(file, line);) {
        const int t = line.empty() ? -1 : line[0] - '0';
        ASSERT_TRUE(t >= 0 && t < Threads) << line;
        const int i = next[t]++;
        ASSERT_EQ(line, text(t, i) + " " + std::to_string(i) + " " + ids[t]);
    }
    for (const int count : next)
        EXPECT_EQ(count, Count);
}

// ---- Macros

static std::string Print(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text(LogPrint(format, arguments).View());
    va_end(arguments);
    return text;
}

// Against the C library, with random values and every way to write them down.
TEST(LogPrint, PrintsAsTheCLibraryDoes) {
    std::mt19937_64 random(5);
    const auto pick = [&](auto... choices) {
        const std::array<const char*, sizeof...(choices)> all = {choices...};
        return std::string(all[random() % all.size()]);
    };
    const auto check = [](const std::string& format, auto value) {
        char expected[2048];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        const int length = std::snprintf(expected, sizeof(expected), format.c_str(), value, 7, "end");
        ASSERT_EQ(Print(format.c_str(), value, 7, "end"), std::string(expected, static_cast<std::size_t>(length)))
            << format;
#pragma GCC diagnostic pop
    };
    for (int i = 0; i < 60000; ++i) {
        const std::string start = "%" + pick("", "-", "0", "+", " ", "-0", "+0", "#", "#0") +
                                  pick("", "", "1", "12", "30") + pick("", "", ".", ".0", ".1", ".3", ".9", ".15");
        const std::string rest = pick("|%d %s", "%%|%3d|%5s", "|%-4d|%.2s", "|%x%%%s");
        const std::uint64_t bits = random() >> random() % 64;
        check(start + pick("d", "i", "u", "x", "X", "o", "hd", "hhu", "c") + rest, static_cast<int>(bits));
        check(start + pick("ld", "lld", "zu", "jx", "lX", "to", "lu") + rest, bits);
        // Numbers of all sizes, ties between two last digits, and what is none.
        const double wide =
            std::ldexp(static_cast<double>(random() % 1000000007), static_cast<int>(random() % 200) - 100);
        const double tie = static_cast<double>(static_cast<std::int64_t>(random() % 200001) - 100000) / 16;
        const double odd[] = {0.0, -0.0, 1.0 / 0.0, -1.0 / 0.0, 1e15, 999999.9999995, 0.9999999, DBL_MAX, DBL_MIN};
        const double value = i % 3 == 0 ? wide : i % 3 == 1 ? tie : odd[random() % std::size(odd)];
        check(start + pick("f", "F", "e", "E", "g", "G", "a") + rest, value);
        check(start + "s" + rest, pick("", "a", "roads and rivers") == "a" ? "a" : "roads and rivers");
    }
    EXPECT_EQ(Print("100%%"), "100%");
    EXPECT_EQ(Print("%*d|%-*d|%.*f", 5, 1, -5, 2, 2, 0.125), "    1|2    |0.12");
    EXPECT_EQ(Print("%s", std::string(5000, 'x').c_str()), std::string(5000, 'x'));
    EXPECT_EQ(Print("%Lf %p", 1.5L, nullptr), "1.500000 (nil)");
}

TEST_F(LogTest, MacrosAskTheLevelFirst) {
    log.Open(K(m_file));
    log.SetLogFormat("%LEVEL|%RESID|%MSG|%CODEFILE(%CODELINE)");
    log.SetLevel(Log::warning);
    int evaluated = 0;
    QZ_LOG_DEBUG(1, "%d", ++evaluated);
    QZ_LOG_INFO(2, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    QZ_LOG_WARNING(3, "%d %s", ++evaluated, "warned");
    log.SetLevel(Log::fatal);
    QZ_LOG_WARNING(4, "%d", ++evaluated);
    QZ_LOG_ERROR(5, "plain");
    QZ_LOG_FATAL(6, "%5.1f", 2.25);
    EXPECT_FALSE(Log::IsEnabled(Log::warning));
    EXPECT_TRUE(Log::IsEnabled(Log::error)); // whatever the threshold
    log.SetBlocked(1);
    QZ_LOG_FATAL(7, "%d", ++evaluated);
    EXPECT_FALSE(Log::IsEnabled(Log::fatal));
    log.SetBlocked(0);
    EXPECT_EQ(evaluated, 1);
    const std::string at = "|" __FILE__ "(";
    std::string text = ReadBytes(m_file);
    for (std::size_t line; (line = text.find(at)) != std::string::npos;)
        text.erase(line, text.find(')', line) - line + 1);
    EXPECT_EQ(text, "warning|     3|1 warned\n  error|     5|plain\n  fatal|     6|  2.2\n");
}

// ---- Further placeholders

TEST_F(LogTest, MillisecondsProcessAndUtc) {
    log.Open(K(m_file));
    log.SetLogFormat("%MS|%PID|%MSG|%MS");
    SetLogClock(nullptr);
    const std::string pid = std::to_string(getpid());
    std::set<std::string> milliseconds;
    for (int i = 0; i < 40; ++i) {
        Record("m");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::istringstream lines(ReadBytes(m_file));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.substr(3), "|" + pid + "|m|" + line.substr(0, 3));
        milliseconds.insert(line.substr(0, 3));
    }
    EXPECT_GT(milliseconds.size(), 5U);
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    ASSERT_EQ(items.GetSize(), 40);
    EXPECT_EQ(items[0].m_nProcessID, static_cast<unsigned>(getpid()));
    EXPECT_NE(log.GetXMLLogFormat().Find("<Milliseconds>%MS</Milliseconds>\r\n<ProcessID>%PID</ProcessID>"), -1);

    SetLogClock([] { return KeldTime(s_now.load()); });
    log.SetLogFormat("%DATETIME.%MS %MSG");
    log.SetUtc(1);
    EXPECT_EQ(log.Open(K(m_scratch / "day.log"), 0), 1);
    log.SetTimeInterval(Log::Day);
    Record("a"); // 01:34 of a day that began at 08:00 here
    s_now = Saturday + 20 * 3600;
    Record("b");
    s_now = Saturday + 23 * 3600;
    Record("c");
    log.SetTimeInterval(Log::None);
    EXPECT_EQ(ReadBytes(m_scratch / "day.log"), "2026-11-21 01:34:56.000 a\n2026-11-21 21:34:56.000 b\n");
    EXPECT_EQ(ReadBytes(m_scratch / "day_2026-11-22_00-34-56.log"), "2026-11-22 00:34:56.000 c\n");
    log.SetUtc(0);
}

// ---- Rollover, and what is kept

TEST_F(LogTest, ClockThatGoesBackMakesNoFile) {
    log.Open(K(m_scratch.Path()), "a.log", Log::Hour);
    for (const int seconds : {1503, 1504, 1500, 1506, 1502, 1507}) { // 10:00 is 1504 seconds away
        s_now = Saturday + seconds;
        Record(std::to_string(seconds));
    }
    EXPECT_EQ(Files(m_scratch.Path()), "a.log: 1503\n;a_2026-11-21_10-00-00.log: 1504\n1500\n1506\n1502\n1507\n;");
    s_now = Saturday - 86400; // put right by a day: the next hour counts again
    Record("yesterday");
    s_now = Saturday - 86400 + 3600;
    Record("later");
    EXPECT_EQ(ReadBytes(m_scratch / "a_2026-11-20_10-34-56.log"), "later\n");
    log.SetTimeInterval(Log::None);
}

TEST_F(LogTest, OldFilesGo) {
    WriteBytes(m_scratch / "a(x).log", "not the log's");
    WriteBytes(m_scratch / "ab.log", "not the log's");
    log.Open(K(m_file));
    log.SetRetention(2, 0);
    log.SetFileSizeLimit(2, Log::NewFile);
    for (int i = 0; i < 8; ++i) {
        Record("item" + std::to_string(i));
        std::filesystem::last_write_time(log.GetFileName().Cstr(),
                                         std::filesystem::file_time_type::clock::now() - std::chrono::hours(10 - i));
    }
    EXPECT_EQ(Files(m_scratch.Path()), "a(5).log: item5\n;a(6).log: item6\n;a(7).log: item7\n;"
                                       "a(x).log: not the log's;ab.log: not the log's;");
    log.SetRetention(0, 7); // bytes: one file
    Record("item8");
    EXPECT_EQ(Files(m_scratch.Path()),
              "a(7).log: item7\n;a(8).log: item8\n;a(x).log: not the log's;ab.log: not the log's;");
    log.SetRetention(0, 0);
}

// ---- Memory and loss

TEST_F(LogTest, LossLeavesALine) {
    log.Open("/dev/full");
    log.SetLogCountInMemory(2);
    RecordAll({"1", "2", "3", "4", "5"});
    log.Close();
    log.Open(K(m_file));
    Record("6");
    EXPECT_EQ(ReadBytes(m_file), "3 items were lost: they could not be written\n4\n5\n6\n");
    // Through call-backs.
    static int s_refusals;
    static std::string s_taken;
    s_refusals = 4;
    s_taken.clear();
    Log::SetWriteCallBack([](void*, const QzLogItem& item) -> unsigned char {
        if (s_refusals-- > 0)
            return 0;
        s_taken += item.m_strDescription.Cstr() + ";"s;
        return 1;
    });
    log.Open(nullptr, "table");
    RecordAll({"a", "b", "c", "d", "e"});
    EXPECT_EQ(s_taken, "2 items were lost: they could not be written;c;d;e;");
}

TEST_F(LogTest, WhatWaitsIsBoundedByBytes) {
    log.Open(Log::Memory);
    const std::string message(1 << 20, 'x');
    for (int i = 0; i < 80; ++i)
        Record(std::to_string(i) + message, Log::error);
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    EXPECT_EQ(items.GetSize(), 63); // and a little for each
    EXPECT_EQ(items[62].m_strDescription.Left(3), "79x");
    EXPECT_EQ(QzErrorObj::GetInstance().GetCount(), 15);
    const std::string huge(100 << 20, 'y');
    Record(huge, Log::error);
    log.Query(QzLogQueryDef(), items);
    ASSERT_EQ(items.GetSize(), 1);
    EXPECT_EQ(items[0].m_strDescription.GetLength(), 100 << 20);
    EXPECT_EQ(QzErrorObj::GetInstance().GetCount(), 1);
    QzErrorObj::GetInstance().Clear();
    // Nothing is dropped while it can be written.
    log.SetLogCountToDisk(10000);
    log.Open(K(m_file));
    for (int i = 0; i < 80; ++i)
        Record(message);
    log.Close();
    EXPECT_EQ(std::filesystem::file_size(m_file), huge.size() + 1 + 80 * (message.size() + 1));
}

[[noreturn]] static void FillTheDisk(const std::string& file) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {0, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    int recorded = 0;
    for (int i = 0; i < 2000; ++i)
        recorded += Record(std::string(99, 'x'));
    limit.rlim_cur = 100050;
    setrlimit(RLIMIT_FSIZE, &limit);
    recorded += Record("last");
    std::_Exit(recorded == 0 && std::filesystem::file_size(file) == 100000 ? 0 : 1);
}

// As much as has room, in one call, and no part of an item.
TEST_F(LogTest, BacklogDrainsAsFarAsTheDiskHasRoom) {
    log.Open(K(m_file));
    EXPECT_EXIT(FillTheDisk(m_file), testing::ExitedWithCode(0), "");
}

TEST_F(LogTest, RepeatsCanBeReported) {
    log.Open(K(m_file));
    log.SetFilterRepeat(1);
    log.SetReportRepeats(1);
    EXPECT_EQ(RecordAll({"same", "same", "same", "other"}), 2);
    EXPECT_EQ(RecordAll({"other"}), 0);
    log.Close();
    log.SetReportRepeats(0);
    EXPECT_EQ(ReadBytes(m_file), "same\n2 repeats were left out\nother\n1 repeats were left out\n");
}

TEST_F(LogTest, CallBackThatThrowsLosesNothing) {
    log.Open(K(m_file));
    Log::SetCallBack([](const char*) { throw 1; });
    EXPECT_EQ(Record("echoed"), 1);
    Log::SetCallBack(nullptr);
    EXPECT_EQ(ReadBytes(m_file), "echoed\n");
    Log::SetOpenCallBack([](void*, const char*) -> unsigned char { throw 2; });
    EXPECT_EQ(log.Open(Log::Memory), 0);
    Log::SetOpenCallBack(nullptr);
    log.Open(Log::Memory);
    Log::SetWriteCallBack([](void* count, const QzLogItem& item) -> unsigned char {
        static_cast<void>(count);
        if (item.m_strDescription == "bad")
            throw 3;
        return 1;
    });
    EXPECT_EQ(RecordAll({"good", "bad", "behind"}), 1);
    EXPECT_EQ(Messages(), "bad;behind;");
    Log::SetWriteCallBacks([](void*, const KeldArray<QzLogItem>&) -> unsigned char { throw 4; });
    EXPECT_EQ(Record("third"), 0);
    EXPECT_EQ(Messages(), "bad;behind;third;");
    Log::SetCloseCallBack([](void*) { throw 5; });
    EXPECT_EQ(log.Close(), 0);
}

// ---- Charsets of XML

TEST_F(LogTest, XmlKeepsTheCharsetThatItWasOpenedIn) {
    ASSERT_EQ(log.Open(K(m_file), 0, Log::XML), 1);
    Record("\xE4\xB8\xAD");
    {
        CurrentCharset chinese(KELDCharset::GB2312);
        Record("\xD6\xD0"); // the same character
        Record("\xD6");     // half of one
        std::filesystem::remove(m_file);
        Record("\xB9\xFA");
    }
    EXPECT_EQ(Messages(), "\xE5\x9B\xBD;");
    Record("\xE4\xB8\xAD");
    EXPECT_EQ(CountXmlItems(m_file), 2);
    EXPECT_EQ(ReadBytes(m_file).find("GB"), std::string::npos);
}

// What is text, against iconv.
TEST(LogXmlText, TellsTextFromBytes) {
    CurrentCharset utf8(KELDCharset::UTF8);
    QzTextCodec codec(KELDCharset::UCS4LE, KELDCharset::UTF8);
    std::mt19937 random(3);
    const std::string bytes =
        "\x41\x7F\x80\x8F\x90\x9F\xA0\xBE\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF";
    LogXmlText xml;
    int texts = 0;
    for (int i = 0; i < 200000; ++i) {
        std::string text(1 + random() % 4, ' ');
        for (char& c : text)
            c = bytes[random() % bytes.size()];
        KeldMBString wide;
        bool isText = codec.Convert(wide, KeldMBString(text)) != 0;
        for (int unit = 0; unit < wide.GetLength(); unit += 4)
            // iconv goes on behind U+10FFFF, where XML ends
            isText = isText && (static_cast<unsigned char>(wide[unit + 2]) <= 0x10) &&
                     wide.Mid(unit, 4) != K("\xFE\xFF\0\0"s) && wide.Mid(unit, 4) != K("\xFF\xFF\0\0"s);
        std::string markup;
        xml.Append(markup, text);
        ASSERT_EQ(markup == text, isText) << testing::PrintToString(text);
        ASSERT_TRUE(ReadXmlText(markup).View() == text);
        texts += isText ? 1 : 0;
    }
    EXPECT_GT(texts, 1000);
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
    const std::string command = "LD_LIBRARY_PATH='" + (scratch / "lib") + "' " + InFrontOfPrograms() + "'" +
                                std::filesystem::read_symlink("/proc/self/exe").string() +
                                "' --gtest_also_run_disabled_tests --gtest_brief=1 "
                                "--gtest_filter=LogConfiguration.DISABLED_InfoID";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(LogConfiguration, DISABLED_InfoID) {
    Log& log = Log::GetInstance(false);
    log.SetLevel(Log::fatal);
    EXPECT_EQ(log.RecordLog(Log::debug, 4711, "passes"), 1);
    EXPECT_EQ(log.RecordLog(Log::debug, 4711, "passes"), 0) << "the repeat filter acts";
    EXPECT_EQ(log.RecordLog(Log::warning, 4712, "does not"), 0);
    log.SetBlocked(1);
    EXPECT_EQ(log.RecordLog(Log::debug, 4711, "blocked"), 0);
}
