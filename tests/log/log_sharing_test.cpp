// The log's file among several processes, under what others do to it, and along forks. Programs of their own are this
// one, started once more with a role to play; children that go on as they are forked.

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "log_support.h"
#include "stream/qzfile.h"

namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string Line(const std::string& writer, int number) {
    return writer + std::string(static_cast<std::size_t>(1 + number % 60), '.') + std::to_string(number);
}

// Items "WRITER....NUMBER"; how many were acknowledged.
int RecordLines(const std::string& writer, int count) {
    int done = 0;
    for (int i = 0; i < count; ++i)
        done += Record(Line(writer, i));
    return done;
}

// Another program in `directory`, which plays a role as the variables say. It ends with 0 when that went well.
class Program {
public:
    Program(const std::string& directory, const std::string& role, const std::map<std::string, std::string>& variables)
        : m_process(fork()) {
        if (m_process != 0)
            return;
        if (chdir(directory.c_str()) != 0)
            _exit(2);
        for (const auto& [name, value] : variables)
            setenv(name.c_str(), value.c_str(), 1);
        const std::string filter = "--gtest_filter=LogRole.DISABLED_" + role;
        execl("/proc/self/exe", "log_test", filter.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1",
              nullptr);
        _exit(2);
    }
    Program(Program&& other) noexcept : m_process(std::exchange(other.m_process, 0)) {}
    ~Program() { Wait(); }

    int Wait() {
        int status = 0;
        if (m_process > 0)
            waitpid(std::exchange(m_process, 0), &status, 0);
        return status;
    }
    void Kill() const { kill(m_process, SIGKILL); }

private:
    pid_t m_process;
};

// What a file holds of each writer: its numbers in their order. Other lines fail.
std::map<std::string, std::vector<int>> ReadLines(const std::string& text) {
    std::map<std::string, std::vector<int>> numbers;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t number = line.find_last_not_of("0123456789") + 1;
        const std::string writer = line.substr(0, line.find('.'));
        const int value = std::atoi(line.c_str() + number);
        EXPECT_TRUE(number < line.size() && number > 0 && line.find('.') < number);
        EXPECT_EQ(line, Line(writer, value));
        numbers[writer].push_back(value);
    }
    return numbers;
}

// The messages of an XML log, a line each.
std::string XmlMessages(const std::string& path) {
    QzMarkup markup;
    EXPECT_TRUE(markup.Load(path.c_str()) != 0 && markup.FindElem("Log") != 0) << path;
    std::string lines;
    while (markup.FindChildElem("LogItem")) {
        markup.IntoElem();
        if (markup.FindChildElem("Description"))
            lines += std::string(markup.GetChildData().View()) + "\n";
        markup.OutOfElem();
    }
    return lines;
}

void ExpectAll(const std::map<std::string, std::vector<int>>& numbers, const std::set<std::string>& writers,
               int count) {
    for (const std::string& writer : writers) {
        const auto found = numbers.find(writer);
        ASSERT_NE(found, numbers.end()) << writer;
        std::vector<int> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        ASSERT_EQ(sorted.size(), static_cast<std::size_t>(count)) << writer;
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(sorted[static_cast<std::size_t>(i)], i) << writer;
    }
    EXPECT_EQ(numbers.size(), writers.size());
}

// As KeldTime in the tests, but an hour passes in a tenth of a second.
KeldTime FastClock() {
    const std::int64_t start = std::atoll(Variable("LOG_START").c_str());
    const auto now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    return KeldTime(Saturday + (now - start) * 36);
}

class LogSharing : public LogTest {
protected:
    std::string AllFiles() const {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(m_scratch.Path()))
            all += ReadBytes(entry.path().string());
        return all;
    }
    std::size_t CountFiles() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(m_scratch.Path()),
                                                      std::filesystem::directory_iterator()));
    }
    std::vector<Program> Start(int count, const std::string& role, std::map<std::string, std::string> variables) const {
        std::vector<Program> programs;
        for (int i = 0; i < count; ++i) {
            variables["LOG_WRITER"] = std::string(1, static_cast<char>('a' + i));
            programs.emplace_back(m_scratch.Path(), role, variables);
        }
        return programs;
    }
    static void ExpectDone(std::vector<Program>& programs) {
        for (Program& program : programs)
            EXPECT_EQ(program.Wait(), 0);
    }
};

} // namespace

// ---- Roles

TEST(LogRole, DISABLED_Write) {
    Log& log = Log::GetInstance(false);
    log.SetRecordOnlyLog();
    log.SetFilterRepeat(0);
    log.SetLogCountToDisk(std::atoi(Variable("LOG_BATCH").c_str()));
    if (!Variable("LOG_LIMIT").empty())
        log.SetFileSizeLimit(std::atoi(Variable("LOG_LIMIT").c_str()), Log::NewFile);
    if (!Variable("LOG_START").empty()) {
        SetLogClock(FastClock);
        log.SetTimeInterval(Log::Hour);
    }
    const auto mode = Log::GetModeAsEnum(K(Variable("LOG_MODE")));
    const auto interval = Variable("LOG_START").empty() ? Log::None : Log::Hour;
    ASSERT_EQ(log.Open(K("."), K(Variable("LOG_FILE")), interval, mode), 1);
    const int count = std::atoi(Variable("LOG_COUNT").c_str());
    if (Variable("LOG_PACE").empty()) {
        EXPECT_EQ(RecordLines(Variable("LOG_WRITER"), count), count);
    } else {
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(Record(Line(Variable("LOG_WRITER"), i)), 1);
            std::this_thread::sleep_for(std::chrono::microseconds(std::atoi(Variable("LOG_PACE").c_str())));
        }
    }
    EXPECT_EQ(log.Close(), 1);
}

TEST(LogRole, DISABLED_DefaultName) {
    setenv("TZ", "CST-8", 1);
    SetLogClock([] { return KeldTime(Saturday); }); // all of them in one second
    Log& log = Log::GetInstance(true);
    log.SetRecordOnlyLog();
    EXPECT_EQ(RecordLines(Variable("LOG_WRITER"), 100), 100);
}

// Says how many items are acknowledged, until it is killed.
TEST(LogRole, DISABLED_Endless) {
    Log& log = Log::GetInstance(false);
    log.SetRecordOnlyLog();
    ASSERT_EQ(log.Open(K(Variable("LOG_FILE")), 1, Log::GetModeAsEnum(K(Variable("LOG_MODE")))), 1);
    const std::string acknowledged = Variable("LOG_FILE") + "." + Variable("LOG_WRITER");
    const int out = open(acknowledged.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    for (int i = 0;; ++i) {
        if (Record(Line(Variable("LOG_WRITER"), i)) != 0 && pwrite(out, &i, sizeof(i), 0) != sizeof(i))
            break;
    }
}

TEST(LogRole, DISABLED_WaitsAtExit) {
    Log& log = Log::GetInstance(false);
    log.SetRecordOnlyLog();
    log.SetLogCountToDisk(100);
    ASSERT_EQ(log.Open("exit.log"), 1);
    EXPECT_EQ(RecordLines("x", 3), 3);
}

TEST(LogRole, DISABLED_FailingWrite) {
    Log& log = Log::GetInstance(false);
    log.SetRecordOnlyLog();
    ASSERT_EQ(log.Open(K(Variable("LOG_FILE"))), 1);
    std::signal(SIGXFSZ, SIG_IGN);
    const auto length = std::filesystem::file_size(Variable("LOG_FILE"));
    const rlimit limit = {length + 20, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    const bool failed = Record(std::string(100, 'x')) == 0;
    _exit(failed ? 0 : 1); // at an exit it would be tried again
}

TEST(LogRole, DISABLED_Defaults) {
    Log& log = Log::GetInstance(false);
    EXPECT_EQ(log.GetLogFormat(), "%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)");
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
        ASSERT_EQ(log.RecordLog(Log::debug, i, K("m" + std::to_string(i))), 1);
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    EXPECT_EQ(items.GetSize(), 1000);
    EXPECT_EQ(items[999].m_nThreadID, QzThread::GetCurrentThreadId());
    log.SetQueryMaxNum(20000);
    log.Query(QzLogQueryDef(), items);
    EXPECT_EQ(items.GetSize(), 10000);
    ASSERT_EQ(log.Open("default.log"), 1);
    log.SetRecordOnlyLog();
    Record("at once");
    Record("two\nlines");
    const std::string text = ReadBytes("default.log");
    EXPECT_EQ(text.substr(text.size() - 18), "at once\ntwo\nlines\n"); // saved, item by item
    EXPECT_NE(text.find("2 items were lost"), std::string::npos);
    EXPECT_EQ(log.RecordLog(Log::debug, 0, "seen", "a", 1), 1);
    Record("between");
    EXPECT_EQ(log.RecordLog(Log::debug, 0, "seen", "a", 1), 1) << "5 of 1000 pass";
}

// ---- Several processes in one file

TEST_F(LogSharing, ProgramsShareAFile) {
    constexpr int Count = 2000;
    for (const char* const mode : {"Text", "XML"}) {
        for (const char* const batch : {"1", "7"}) {
            const std::string name = mode + std::string(batch);
            std::vector<Program> programs = Start(
                4, "Write",
                {{"LOG_FILE", name}, {"LOG_MODE", mode}, {"LOG_BATCH", batch}, {"LOG_COUNT", std::to_string(Count)}});
            std::set<std::string> writers = {"a", "b", "c", "d"};
            if (mode == "Text"s) {
                // One that is no log adds to the file, too.
                writers.insert("s");
                for (int i = 0; i < Count; ++i)
                    std::ofstream(m_scratch / name, std::ios::app) << Line("s", i) + "\n";
            }
            ExpectDone(programs);
            const std::string file = m_scratch / name;
            const std::string text = mode == "XML"s ? XmlMessages(file) : ReadBytes(file);
            ExpectAll(ReadLines(text), writers, Count);
            for (const auto& [writer, numbers] : ReadLines(text))
                EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end())) << writer;
        }
    }
}

TEST_F(LogSharing, DefaultNamesAreExclusive) {
    std::vector<Program> programs = Start(4, "DefaultName", {});
    ExpectDone(programs);
    EXPECT_EQ(CountFiles(), 4U);
    ExpectAll(ReadLines(AllFiles()), {"a", "b", "c", "d"}, 100);
    EXPECT_TRUE(std::filesystem::exists(m_scratch / "Zp2026-11-21_09-34-56.log"));
    EXPECT_TRUE(std::filesystem::exists(m_scratch / "Zp2026-11-21_09-34-56(3).log"));
}

TEST_F(LogSharing, RolloverBySizeAgrees) {
    constexpr int Count = 3000;
    constexpr int Limit = 20000;
    for (const char* const mode : {"Text", "XML"}) {
        const ScratchDirectory directory;
        const std::map<std::string, std::string> variables = {{"LOG_FILE", "a.log"},
                                                              {"LOG_MODE", mode},
                                                              {"LOG_BATCH", "1"},
                                                              {"LOG_LIMIT", std::to_string(Limit)},
                                                              {"LOG_COUNT", std::to_string(Count)}};
        std::vector<Program> programs;
        for (const char* const writer : {"a", "b", "c"}) {
            auto all = variables;
            all["LOG_WRITER"] = writer;
            programs.emplace_back(directory.Path(), "Write", all);
        }
        ExpectDone(programs);
        std::string text;
        int shortFiles = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
            text += mode == "XML"s ? XmlMessages(entry.path().string()) : ReadBytes(entry.path().string());
            shortFiles += entry.file_size() <= Limit ? 1 : 0;
        }
        // One file is not full yet. A program that still follows when others have ended may make another.
        EXPECT_LE(shortFiles, 3);
        ExpectAll(ReadLines(text), {"a", "b", "c"}, Count);
    }
}

TEST_F(LogSharing, RolloverByTimeAgrees) {
    const auto now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    constexpr int Count = 500;
    // Whoever comes late still finds the first hour: it lasts 0.7 seconds, for the tests' clock starts at 09:34:56.
    std::vector<Program> programs = Start(3, "Write",
                                          {{"LOG_FILE", "a.log"},
                                           {"LOG_MODE", "Text"},
                                           {"LOG_BATCH", "1"},
                                           {"LOG_START", std::to_string(now + 60)},
                                           {"LOG_PACE", "1000"},
                                           {"LOG_COUNT", std::to_string(Count)}});
    ExpectDone(programs);
    ExpectAll(ReadLines(AllFiles()), {"a", "b", "c"}, Count);
    std::map<std::string, int> hours;
    for (const auto& entry : std::filesystem::directory_iterator(m_scratch.Path())) {
        const std::string name = entry.path().filename().string();
        ++hours[name.substr(0, name.find('-', 13))]; // up to the hour
    }
    EXPECT_GT(hours.size(), 2U);
    for (const auto& [hour, files] : hours)
        EXPECT_EQ(files, 1) << hour;
}

TEST_F(LogSharing, KilledProgramsLoseNothing) {
    for (const char* const mode : {"Text", "XML"}) {
        const std::string file = m_scratch / mode;
        std::vector<Program> programs = Start(2, "Endless", {{"LOG_FILE", file}, {"LOG_MODE", mode}});
        ASSERT_EQ(log.Open(K(file), 1, Log::GetModeAsEnum(mode)), 1);
        int own = 0;
        for (; own < 2000 || QzFile::IsExist(K(file + ".b")) == 0; ++own)
            ASSERT_EQ(Record(Line("o", own)), 1);
        programs[0].Kill();
        programs[1].Kill();
        programs.clear();
        ASSERT_EQ(Record(Line("o", own++)), 1); // mends what was left
        const auto numbers = ReadLines(mode == "XML"s ? XmlMessages(file) : ReadBytes(file));
        for (const char* const writer : {"a", "b"}) {
            int last = -1;
            std::ifstream(file + "." + writer, std::ios::binary).read(reinterpret_cast<char*>(&last), sizeof(last));
            const auto found = numbers.find(writer);
            EXPECT_GE(found != numbers.end() ? static_cast<int>(found->second.size()) : 0, last + 1) << writer;
        }
        EXPECT_EQ(static_cast<int>(numbers.at("o").size()), own);
        log.Close();
    }
}

// A program whose write fails half-way takes nothing of the others' away: what it has left becomes an empty line.
TEST_F(LogSharing, FailedWriteLeavesOthersAlone) {
    ASSERT_EQ(log.Open(K(m_file)), 1);
    Record("first");
    EXPECT_EQ(Program(m_scratch.Path(), "FailingWrite", {{"LOG_FILE", m_file}}).Wait(), 0);
    Record("second");
    EXPECT_EQ(ReadBytes(m_file), "first\n" + std::string(19, ' ') + "\nsecond\n");
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
        EXPECT_EQ(log.Reopen(), 1);
        std::filesystem::rename(m_file, m_scratch / "a.2");
        EXPECT_EQ(log.Reopen(), 1);
        Record("new");
        ExpectFile(mode, "new;");
        EXPECT_NE(ReadBytes(m_scratch / "a.1").find("old"), std::string::npos);
        EXPECT_NE(ReadBytes(m_scratch / "a.2").find(batch), std::string::npos);
        // A small write notices, too, but half a second later.
        std::filesystem::rename(m_file, m_scratch / "a.3");
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        Record("newer");
        ExpectFile(mode, "newer;");
        log.Close();
        EXPECT_EQ(log.Reopen(), 0);
    }
}

TEST_F(LogSharing, FileThatIsCutOffGoesOn) {
    for (const Log::Mode mode : FileModes) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        RecordAll({"1", "2"});
        std::filesystem::resize_file(m_file, 0);
        RecordAll({"3", "4"});
        ExpectFile(mode, "3;4;");
        EXPECT_EQ(ReadBytes(m_file).find('\0'), std::string::npos);
        EXPECT_EQ(log.Open(K(m_file), 1, mode), 1);
        ExpectFile(mode, "3;4;");
    }
    // The same while the file is overwritten.
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
    EXPECT_EQ(log.IsOpen(), 0);
    const std::string pipe = m_scratch / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    EXPECT_EQ(log.Open(K(pipe)), 0); // and does not wait
    for (const Log::Mode mode : FileModes) {
        const std::string link = m_scratch / ("link" + std::to_string(mode));
        std::filesystem::create_symlink(m_scratch / ("target" + std::to_string(mode)), link);
        ASSERT_EQ(log.Open(K(link), 1, mode), 1);
        Record("through");
        EXPECT_TRUE(std::filesystem::is_symlink(link));
        EXPECT_EQ(Messages(), "through;");
    }
    EXPECT_EQ(log.Open("/dev/null"), 1);
    EXPECT_EQ(Record("nowhere"), 1);
}

// ---- Forks

TEST_F(LogSharing, ChildrenLogWhileThreadsDo) {
    constexpr int Forks = 20;
    for (const Log::Mode mode : FileModes) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        std::atomic<bool> stop{false};
        std::atomic<int> own{0};
        std::thread busy([&] {
            while (!stop)
                own += Record(Line("p", own));
        });
        for (int i = 0; i < Forks; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(30); // instead of hanging
                _exit(RecordLines("c" + std::to_string(i), 5) == 5 ? 0 : 1);
            }
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
        stop = true;
        busy.join();
        log.Close();
        auto numbers = ReadLines(mode == Log::XML ? XmlMessages(m_file) : ReadBytes(m_file));
        EXPECT_EQ(static_cast<int>(numbers["p"].size()), own);
        numbers.erase("p");
        std::set<std::string> children;
        for (int i = 0; i < Forks; ++i)
            children.insert("c" + std::to_string(i));
        ExpectAll(numbers, children, 5);
    }
}

TEST_F(LogSharing, WhatWaitsAtAForkIsWrittenOnce) {
    log.SetLogCountToDisk(100);
    ASSERT_EQ(log.Open(K(m_file)), 1);
    RecordAll({"1", "2"});
    const pid_t child = fork();
    if (child == 0) {
        Record("child");
        _exit(log.Close() == 1 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    Record("3");
    log.Close();
    EXPECT_EQ(ReadBytes(m_file), "1\n2\nchild\n3\n");
}

// ---- A process's start and end

TEST_F(LogSharing, WhatWaitsIsWrittenAtExit) {
    EXPECT_EQ(Program(m_scratch.Path(), "WaitsAtExit", {}).Wait(), 0);
    ExpectAll(ReadLines(ReadBytes(m_scratch / "exit.log")), {"x"}, 3);
}

TEST_F(LogSharing, DefaultsOfAFreshLog) {
    EXPECT_EQ(Program(m_scratch.Path(), "Defaults", {}).Wait(), 0);
}
