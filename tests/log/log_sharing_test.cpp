// The log's file among several processes, and under what others do to it.

#include <filesystem>
#include <fstream>
#include <thread>

#include "log_writers.h"

namespace {

std::int64_t Milliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

using LogSharing = LogTest;

// ---- Roles

/// What a program writes: as an hour passes in 0.3 seconds from `start` on, if that is given; on a slow target later,
/// for a program that falls an hour behind the others makes a file of its own.
struct Writing {
    std::string file;
    Log::Mode mode = Log::Text;
    int batch = 1, limit = -1;
    std::int64_t start = 0;
    bool leaves = false; ///< ends without closing the log
};

std::int64_t s_start;

const ChildRole Writer("writer", [](const Arguments& arguments) {
    const auto number = [&](std::size_t i) { return std::stoll(arguments[i]); };
    const CurrentCharset charset(KELDCharset::UTF8);
    Log& log = Log::GetInstance(false);
    log.SetRecordOnlyLog();
    log.SetFilterRepeat(0);
    log.SetLogCountToDisk(static_cast<int>(number(4)));
    log.SetFileSizeLimit(static_cast<int>(number(5)), Log::NewFile);
    s_start = number(6);
    SetLogClock([] { return KeldTime(Saturday + (s_start != 0 ? (Milliseconds() - s_start) * 12 / Slowness : 0)); });
    EXPECT_EQ(log.Open(".", K(arguments[2]), s_start != 0 ? Log::Hour : Log::None, static_cast<Log::Mode>(number(3))),
              1);
    std::ofstream acknowledged("acknowledged." + arguments[0]);
    for (int i = 0; i < number(1); ++i) {
        EXPECT_EQ(Record(Line(arguments[0], i)), 1);
        acknowledged.seekp(0) << i + 1 << std::flush;
        if (s_start != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2 * Slowness));
    }
    return number(7) != 0 || log.Close() == 1;
});

ChildProcess StartWriter(const ScratchDirectory& directory, const std::string& name, int count,
                         const Writing& writing) {
    return ChildProcess(Writer,
                        {name, std::to_string(count), writing.file, std::to_string(writing.mode),
                         std::to_string(writing.batch), std::to_string(writing.limit), std::to_string(writing.start),
                         writing.leaves ? "1" : "0"},
                        {directory.Path(), {}});
}

const ChildRole Defaults("defaults", [](const Arguments&) {
    Log& log = Log::GetInstance(false);
    EXPECT_EQ(log.GetLogFormat(), DefaultFormat);
    EXPECT_EQ(log.GetDateTimeFormat(), "%Y-%m-%d %H:%M:%S");
    EXPECT_EQ(log.GetXMLLogFormat(),
              "<LogItem>\r\n<DateTime>%DATETIME</DateTime>\r\n<TimeSpan>%TIMESPAN</TimeSpan>\r\n"
              "<Level>%LEVEL</Level>\r\n<ResID>%RESID</ResID>\r\n"
              "<Description>%MSG</Description>\r\n<ThreadID>%THREADID</ThreadID>\r\n"
              "<CodeFile>%CODEFILE</CodeFile>\r\n<CodeLine>%CODELINE</CodeLine>\r\n</LogItem>\r\n");
    EXPECT_EQ(log.GetMode(), Log::Text);
    EXPECT_EQ(log.GetLevel(), 100);
    EXPECT_EQ(log.GetFileSizeLimit(), -1);
    EXPECT_EQ(log.GetSizeLimitMode(), Log::Rolling);
    EXPECT_EQ(log.GetTimeInterval(), Log::None);
    EXPECT_EQ(log.GetPrefix(), "Log");
    EXPECT_EQ(log.GetFileName(), "");
    EXPECT_EQ(log.IsBlocked() + log.IsOpen() + log.IsUtc(), 0);
    EXPECT_EQ(Record("again"), 1);
    EXPECT_EQ(Record("again"), 0) << "repeats are dropped";
    for (int i = 0; i < 10001; ++i)
        EXPECT_EQ(log.RecordLog(Log::debug, i, K("m" + std::to_string(i))), 1);
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    EXPECT_EQ(items.GetSize(), 1000);
    EXPECT_EQ(items[999].m_nThreadID, QzThread::GetCurrentThreadId());
    log.SetQueryMaxNum(20000);
    log.Query(QzLogQueryDef(), items);
    EXPECT_EQ(items.GetSize(), 10000);
    EXPECT_EQ(log.Open("default.log"), 1);
    log.SetRecordOnlyLog();
    Record("at once");
    const std::string text = ReadBytes("default.log");
    EXPECT_EQ(text.substr(text.size() - 8), "at once\n");
    EXPECT_NE(text.find("2 items were lost"), std::string::npos);
    EXPECT_EQ(log.RecordLog(Log::debug, 0, "seen", "a", 1), 1);
    Record("between");
    EXPECT_EQ(log.RecordLog(Log::debug, 0, "seen", "a", 1), 1) << "5 of 1000 pass";
    return true;
});

constexpr int Limit = 20000;

struct Sharing {
    Log::Mode mode;
    int batch, limit, count;
    bool isFast;
    std::size_t files; ///< at least
};

// Also with a program that is no log.
void ShareAFile(const std::vector<Sharing>& cases, bool withStranger) {
    for (const Sharing& c : cases) {
        const ScratchDirectory directory;
        std::map<std::string, int> expected;
        const std::int64_t start = c.isFast ? Milliseconds() : 0;
        std::vector<ChildProcess> programs;
        for (const char* const writer : {"a", "b", "c"}) {
            expected[writer] = c.count;
            programs.push_back(StartWriter(directory, writer, c.count, {"a.log", c.mode, c.batch, c.limit, start}));
        }
        for (int i = 0; withStranger && i < 2000; ++i) {
            expected["s"] = i + 1;
            AppendToFile(directory / "a.log", Line("s", i) + "\n");
        }
        for (ChildProcess& program : programs)
            EXPECT_TRUE(program.Succeeds());
        std::vector<std::string> texts;
        int shortFiles = 0;
        std::map<std::string, int> hours;
        for (const auto& [name, bytes] : FilesOf(directory.Path())) {
            if (name[0] != 'a' || name[1] == 'c')
                continue;
            texts.push_back(LinesOf(directory / name, c.mode));
            shortFiles += bytes.size() <= Limit ? 1 : 0;
            EXPECT_EQ(++hours[name.substr(0, name.find('-', 13))] > 1 && c.isFast, false) << name;
        }
        EXPECT_EQ(CountLines(texts), expected) << c.mode << c.batch << c.limit;
        EXPECT_TRUE(texts.size() >= c.files && (c.files > 1 || texts.size() == 1)) << texts.size();
        // One file is not full yet. A program that still follows when others have ended may make another.
        EXPECT_TRUE(c.limit < 0 || shortFiles <= 3) << shortFiles;
    }
}

} // namespace

TEST_F(LogSharing, DefaultsOfAFreshLog) {
    EXPECT_TRUE(ChildProcess(Defaults, {}, {m_scratch.Path(), {}}).Succeeds());
}

// ---- Several threads and processes in one file

TEST_F(LogSharing, ThreadsLoseAndTearNothing) {
    constexpr int Count = 5000;
    log.SetFilterRepeat(1);
    log.Open(K(m_file));
    const auto write = [&](const char* writer) { return [=] { EXPECT_EQ(RecordLines(writer, Count), Count); }; };
    Together(write("a"), write("b"), write("c"), [&] {
        for (int i = 0; i < 20; ++i)
            log.SetDateTimeFormat("%H");
    });
    const std::map<std::string, int> all = {{"a", Count}, {"b", Count}, {"c", Count}};
    EXPECT_EQ(CountLines({ReadBytes(m_file)}), all);
}

// With batches, and where they agree on the next file.
TEST_F(LogSharing, ProgramsShareAFile) {
    ShareAFile({{Log::XML, 1, -1, 2000, false, 1},
                {Log::XML, 7, -1, 2000, false, 1},
                {Log::XML, 1, Limit, 2000, false, 30},
                {Log::Text, 7, -1, 2000, false, 1},
                {Log::Text, 1, Limit, 2000, false, 7},
                {Log::Text, 1, -1, 500, true, 3}},
               false);
}

TEST_F(LogSharing, AStrangerSharesTheFile) {
    if (!AppendsInOneStep)
        GTEST_SKIP() << "what a program appends here may overwrite what another does";
    ShareAFile({{Log::Text, 1, -1, 2000, false, 1},
                {Log::Text, 7, -1, 2000, false, 1},
                {Log::Text, 1, Limit, 2000, false, 8},
                {Log::Text, 1, -1, 500, true, 3}},
               true);
}

TEST_F(LogSharing, DefaultNamesAreExclusive) {
    std::vector<ChildProcess> programs;
    for (const char* const writer : {"a", "b", "c", "d"})
        programs.push_back(StartWriter(m_scratch, writer, 100, {}));
    for (ChildProcess& program : programs)
        EXPECT_TRUE(program.Succeeds());
    for (const char* const number : {"", "(1)", "(2)", "(3)"})
        EXPECT_EQ(CountLines({ReadBytes(m_scratch / ("Zp2026-11-21_09-34-56"s + number + ".log"))}).size(), 1U);
}

TEST_F(LogSharing, KilledProgramsLoseNothing) {
    for (const Log::Mode mode : FileModes) {
        const ScratchDirectory directory;
        const std::string file = directory / "a.log";
        ASSERT_EQ(log.Open(K(file), 1, mode), 1);
        ChildProcess a = StartWriter(directory, "a", 1000000000, {"a.log", mode});
        ChildProcess b = StartWriter(directory, "b", 1000000000, {"a.log", mode});
        const auto acknowledged = [&](const std::string& writer) {
            return std::atoi(ReadBytes(directory / ("acknowledged." + writer)).c_str());
        };
        int own = 0;
        for (; own < 2000 || acknowledged("a") == 0 || acknowledged("b") == 0; ++own)
            ASSERT_EQ(Record(Line("o", own)), 1);
        a.Kill();
        b.Kill();
        ASSERT_EQ(Record(Line("o", own++)), 1); // mends what was left
        const auto counts = CountLines({LinesOf(file, mode)});
        EXPECT_EQ(counts.at("o"), own);
        EXPECT_GE(counts.at("a"), acknowledged("a"));
        EXPECT_GE(counts.at("b"), acknowledged("b"));
        log.Close();
    }
}

TEST_F(LogSharing, WhatWaitsIsWrittenAtExit) {
    EXPECT_TRUE(StartWriter(m_scratch, "x", 3, {"exit.log", Log::Text, 100, -1, 0, true}).Succeeds());
    EXPECT_EQ(CountLines({ReadBytes(m_scratch / "exit.log")})["x"], 3);
}

// ---- Files that others move

TEST_F(LogSharing, RenamedFileIsLetGo) {
    const std::string batch(20000, 'b'); // large enough to be asked for
    for (const Log::Mode mode : FileModes) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        Record("old");
        std::filesystem::rename(m_file, m_scratch / "a.1");
        Record(batch);
        ExpectFile(mode, batch + ";");
        std::filesystem::rename(m_file, m_scratch / "a.2");
        EXPECT_EQ(log.Reopen(), 1);
        Record("new");
        ExpectFile(mode, "new;");
        EXPECT_NE(ReadBytes(m_scratch / "a.1").find("old"), std::string::npos);
        // A small write notices, too, but half a second later.
        std::filesystem::rename(m_file, m_scratch / "a.3");
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        Record("newer");
        ExpectFile(mode, "newer;");
    }
}

TEST_F(LogSharing, FileThatIsOverwrittenMayBeCutOff) {
    log.Open(K(m_file), 0);
    log.SetFileSizeLimit(10, Log::Rolling);
    RecordAll({"12345", "67890", "abc"});
    log.SetFileSizeLimit(-1);
    std::filesystem::resize_file(m_file, 0);
    Record("def");
    EXPECT_EQ(ReadBytes(m_file), "def\n");
}

TEST_F(LogSharing, OddPaths) {
    EXPECT_EQ(log.Open(K("a\0b"s)), 0);
    if (MakePipe(m_scratch / "pipe")) {
        EXPECT_EQ(log.Open(K(m_scratch / "pipe")), 0); // and does not wait
    }
    const std::string link = m_scratch / "link";
    if (!MakeSymbolicLink(m_scratch / "target", link))
        GTEST_SKIP() << "no symbolic links here";
    ASSERT_EQ(log.Open(K(link)), 1);
    Record("through");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(Messages(), "through;");
}
