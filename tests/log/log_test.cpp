#include "log_support.h"

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <random>

#include "platform/sharedfile.h"
#include "toolkit/log/logprint.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzlogmacros.h"

namespace {

// A file as a log of another process has it open.
class Fellow {
public:
    explicit Fellow(const std::string& path) {
        int error = 0;
        EXPECT_TRUE(m_file.Open(path, Platform::SharedFile::Creation::Never, error)) << error;
        m_file.Mark(ProcessId() + 1);
    }

private:
    Platform::SharedFile m_file;
};

} // namespace

// ---- Formats and levels

TEST_F(LogTest, LineText) {
    log.Open(K(m_file));
    log.SetLogFormat("%DATETIME|%RESID|%LEVEL|%MSG|%CODEFILE(%CODELINE)%%MSG%THREAD %PID.%MS");
    const std::string end = " " + std::to_string(ProcessId()) + ".000\n";
    log.RecordLog(Log::info, -12, "say %RESID %MSG", "a.cpp", 34);
    log.RecordLog(Log::warning, 1234567, "", "", -1);
    log.SetDateTimeFormat("%d.%m.");
    log.RecordLog(Log::fatal, "short");
    EXPECT_EQ(ReadBytes(m_file), "2026-11-21 09:34:56|   -12|   info|say %RESID %MSG|a.cpp(34)%say %RESID %MSG%THREAD" +
                                     end + "2026-11-21 09:34:56|1234567|warning||(-1)%%THREAD" + end +
                                     "21.11.|     0|  fatal|short|(0)%short%THREAD" + end);
}

TEST_F(LogTest, LevelsAndMacros) {
    log.Open(K(m_file));
    log.SetLogFormat("%RESID|%MSG|%CODEFILE(%CODELINE)");
    std::string expected;
    for (const int threshold : {100, 300, 450, 501}) {
        log.SetLevel(static_cast<Log::LogLevelType>(threshold));
        for (const int number : {100, 200, 300, 400, 500, -1}) {
            log.SetBlocked(number < 0);
            const auto level = number < 0 ? Log::fatal : static_cast<Log::LogLevelType>(number);
            const bool passes = number >= threshold || number >= 400;
            EXPECT_EQ(Record("plain", level), passes ? 1 : 0) << threshold << ' ' << number;
            EXPECT_EQ(Log::IsEnabled(level), passes);
            int evaluated = 0;
            const std::string position = __FILE__ "(" + std::to_string(__LINE__ + 1) + ")\n";
            QZ_LOG(level, number, "%d %s", ++evaluated, "printed");
            EXPECT_EQ(evaluated, passes ? 1 : 0);
            if (passes)
                expected += "     1|plain|test.cpp(7)\n   " + std::to_string(number) + "|1 printed|" + position;
        }
    }
    log.SetBlocked(0);
    EXPECT_EQ(ReadBytes(m_file), expected);
}

TEST_F(LogTest, ErrorsAreStacked) {
    log.Open(K(m_file));
    QzErrorObj& errors = QzErrorObj::GetInstance();
    errors.Clear();
    Record("warning", Log::warning);
    for (int i = 0; i < 1003; ++i)
        log.RecordLog(i % 2 == 0 ? Log::error : Log::fatal, i, K("e" + std::to_string(i)), "f.cpp", i);
    ASSERT_EQ(errors.GetCount(), 1000);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(errors.GetAll()[i].m_strMessage, K("e" + std::to_string(1002 - i)));
    errors.Clear();
}

TEST_F(LogTest, RepeatsAreDroppedAsTheRuleSays) {
    log.Open(K(m_file));
    const auto hash = [](const std::string& text) {
        return static_cast<unsigned>(QzHashCode::FastStringToHashCode(K(text)));
    };
    std::deque<unsigned> recent;
    std::string last;
    std::string written;
    std::mt19937 random(4);
    for (int step = 0; step < 40000; ++step) {
        // So few that counts reach their limit, and so many that they fall below it again.
        const std::string message = "m" + std::to_string(random() % 250);
        const int line = static_cast<int>(random() % 2);
        const std::string item = message + ":" + std::to_string(line);
        const unsigned key = hash("repeat.cpp") + hash(message) + static_cast<unsigned>(line);
        const bool filters = random() % 8 != 0;
        const bool repeat = filters && (item == last || std::count(recent.begin(), recent.end(), key) >= 5);
        log.SetFilterRepeat(filters ? 1 : 0);
        ASSERT_EQ(log.RecordLog(Log::info, step, K(message), "repeat.cpp", line), repeat ? 0 : 1) << step;
        if (repeat)
            continue;
        written += message + "\n";
        last = item;
        if (filters)
            recent.push_back(key);
        if (recent.size() > 1000)
            recent.pop_front();
    }
    EXPECT_TRUE(ReadBytes(m_file) == written); // too long to be shown
}

// ---- Printing

static std::string Print(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text(LogPrint(format, arguments).View());
    va_end(arguments);
    return text;
}

// Against the C library, with random values and conversions of all kinds.
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
    char nan[8]; // its sign is the C library's choice
    std::snprintf(nan, sizeof(nan), "%f", -NAN);
    const double signedNan = nan[0] == '-' ? -NAN : NAN;
    for (int i = 0; i < 30000; ++i) {
        const std::string start = pick("%", "some text %", "%%%") + pick("", "", "", "", "-12", "+", "#", "1", "012");
        const std::string rest = pick("|%d %s", "%%|%3d|%5s", "|%c|%.2s", "%x%%%s", "|%i|%s|");
        const std::uint64_t bits = random() >> random() % 64;
        check(start + pick("d", "i", "u", "x", "X", "o", "hd", "hhu", "c", ".3d") + rest, static_cast<int>(bits));
        check(start + pick("lld", "lli", "llu", "jx") + rest, bits);
        check(start + pick("ld", "lu", "lx") + rest, static_cast<unsigned long>(bits));
        check(start + pick("zu", "zd", "to") + rest, static_cast<std::size_t>(bits));
        // Numbers of all sizes, ties between two last digits, and what is none.
        const double wide =
            std::ldexp(static_cast<double>(random() % 1000000007), static_cast<int>(random() % 200) - 100);
        const double tie = static_cast<double>(static_cast<std::int64_t>(random() % 200001) - 100000) / 16;
        const double odd[] = {0.0, -0.0, 1.0 / 0.0, -1.0 / 0.0, NAN, signedNan, 999999.9999995, DBL_MAX, DBL_MIN};
        const double usual = std::ldexp(static_cast<double>(random() >> 12), -static_cast<int>(20 + random() % 33));
        const double values[] = {wide, tie, usual, odd[random() % std::size(odd)]};
        const double value = values[i % 4];
        check(start + pick("f", "f", ".0f", ".1f", ".2f", ".9f", ".15f", ".f", "F", "e", ".3g", "a") + rest, value);
        check(start + "s" + rest, i % 2 == 0 ? "" : "roads and rivers");
    }
    EXPECT_EQ(Print("%s%d", std::string(5000, 'x').c_str(), 1), std::string(5000, 'x') + "1");
    EXPECT_EQ(Print("%*d|%.*f", 5, 1, 2, 0.125), "    1|0.12");
}

// ---- Batches and memory

TEST_F(LogTest, WhatWaitsIsBoundedByBytes) {
    log.Open(Log::Memory);
    const std::string message(1 << 20, 'x');
    for (int i = 0; i < 80; ++i)
        Record(std::to_string(i) + message);
    KeldArray<QzLogItem> items;
    log.Query(QzLogQueryDef(), items);
    EXPECT_EQ(items.GetSize(), 63); // and a little for each
    EXPECT_EQ(items[62].m_strDescription.Left(3), "79x");
    // Nothing is dropped while it can be written.
    log.SetLogCountToDisk(10000);
    log.Open(K(m_file), 0);
    for (int i = 0; i < 80; ++i)
        Record(message);
    log.Close();
    EXPECT_EQ(std::filesystem::file_size(m_file) / message.size(), 63U + 80);
}

// ---- Files: rollover, what is kept

TEST_F(LogTest, OldFilesGo) {
    for (const char* const name : {"a(x).log", "ab.log"})
        WriteBytes(m_scratch / name, "not the log's");
    WriteBytes(m_scratch / "a(9).log", "in use");
    const Fellow fellow(m_scratch / "a(9).log");
    const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
    std::filesystem::last_write_time(m_scratch / "a(9).log", old);
    log.Open(K(m_file));
    log.SetRetention(2, 0);
    log.SetFileSizeLimit(2, Log::NewFile);
    for (int i = 0; i < 8; ++i) {
        Record("item" + std::to_string(i));
        std::filesystem::last_write_time(log.GetFileName().Cstr(), old + std::chrono::hours(i + 1));
    }
    const auto kept = [&] {
        std::string names;
        for (const auto& [name, bytes] : FilesOf(m_scratch.Path()))
            names += name + ";";
        return names;
    };
    EXPECT_EQ(kept(), "a(5).log;a(6).log;a(7).log;a(9).log;a(x).log;ab.log;");
    log.SetRetention(0, 7); // bytes: one file
    Record("item8");
    EXPECT_EQ(kept(), "a(7).log;a(8).log;a(9).log;a(x).log;ab.log;");
    log.SetRetention(0, 0);
}

// ---- XML

TEST_F(LogTest, XmlDocument) {
    log.SetLogFormat("%DATETIME %RESID %LEVEL %MSG %CODELINE");
    ASSERT_EQ(log.Open(K(m_file), 1, Log::XML), 1);
    EXPECT_EQ(XmlMessages(m_file), "");
    log.RecordLog(Log::warning, 17, "a<b> & \"c\"\n\xE4\xB8\xAD\r\x01", "f.cpp", 3);
    EXPECT_EQ(ReadBytes(m_file), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<Log>\r\n<LogItem>\r\n"
                                 "<DateTime>2026-11-21 09:34:56</DateTime>\r\n<TimeSpan/>\r\n"
                                 "<Level>warning</Level>\r\n<ResID>    17</ResID>\r\n"
                                 "<Description>a&lt;b&gt; &amp; \"c\"\n\xE4\xB8\xAD&#13;<?byte 01?></Description>\r\n"
                                 "<ThreadID/>\r\n<CodeFile/>\r\n<CodeLine>3</CodeLine>\r\n</LogItem>\r\n</Log>\r\n");
    // What no parser would take stands as bytes.
    for (const char* const none : {"\xC0\xBC", "\xED\xA0\x80", "\xEF\xBF\xBF", "\xF4\x90\x80\x80"}) {
        Record(none);
        EXPECT_EQ(ReadBytes(m_file).find(none), std::string::npos);
    }
    const std::string foreign = "<?xml version=\"1.0\" encoding=\"GBK\"?>\r\n<Log>\r\n</Log>\r\n";
    WriteBytes(m_file, foreign);
    EXPECT_EQ(log.Open(K(m_file), 1, Log::XML), 0);
    EXPECT_EQ(ReadBytes(m_file), foreign);
    CurrentCharset chinese(KELDCharset::GB2312);
    EXPECT_EQ(log.Open(K(m_file), 1, Log::XML), 1);
    EXPECT_EQ(log.Open(K(m_file), 0, Log::XML), 1);
    EXPECT_EQ(ReadBytes(m_file), foreign);
}

TEST_F(LogTest, XmlKeepsTheCharsetThatItWasOpenedIn) {
    ASSERT_EQ(log.Open(K(m_file), 0, Log::XML), 1);
    Record("\xE4\xB8\xAD");
    {
        CurrentCharset chinese(KELDCharset::GB2312);
        Record("\xD6\xD0"); // the same character
        Record("\xD6");     // half of one
        EXPECT_EQ(Messages(), "\xE4\xB8\xAD;\xE4\xB8\xAD;\xD6;");
        std::filesystem::rename(m_file, m_scratch / "old");
        EXPECT_EQ(log.Reopen(), 1);
        Record("\xB9\xFA");
    }
    Record("\xE4\xB8\xAD");
    ExpectFile(Log::XML, "\xE5\x9B\xBD;\xE4\xB8\xAD;");
    EXPECT_EQ(ReadBytes(m_file).find("GB"), std::string::npos);
    // One whose second byte looks like markup.
    CurrentCharset korean(KELDCharset::Johab);
    ASSERT_EQ(log.Open(K(m_file), 0, Log::XML), 1);
    Record("\xD9<");
    EXPECT_NE(ReadBytes(m_file).find(">\xD9<<"), std::string::npos);
}

// ---- Failures

// A write that fails half-way leaves whole items, and a document. Once there is room again all goes in at once, as far
// as there is.
TEST_F(LogTest, FullDiskTakesWholeItems) {
    if (!FullDisk(1).Is())
        GTEST_SKIP() << "no disk here can be filled";
    const std::string message(99, 'x');
    for (const Log::Mode mode : FileModes) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        const auto empty = std::filesystem::file_size(m_file);
        Record(message);
        const auto item = std::filesystem::file_size(m_file) - empty;
        {
            const FullDisk disk(empty + item + item / 2);
            EXPECT_EQ(RecordAll(std::vector<std::string>(1999, message)), 0);
            EXPECT_EQ(std::filesystem::file_size(m_file), empty + item);
        }
        for (const unsigned room : {1000U, 1005U, 1009U}) { // some of them filled by steps of few items
            const FullDisk disk(empty + room * item + item / 2);
            EXPECT_EQ(Record("behind"), 0);
            EXPECT_EQ(std::filesystem::file_size(m_file), empty + room * item);
        }
        log.SetQueryMaxNum(3000);
        EXPECT_EQ(Record("last"), 1);
        std::string all;
        for (int i = 0; i < 2000; ++i)
            all += message + ";";
        ExpectFile(mode, all + "behind;behind;behind;last;");
    }
    // Where others have the file open, what was left becomes an empty line.
    log.Open(K(m_file), 0);
    const Fellow fellow(m_file);
    Record("first");
    {
        const FullDisk disk(20);
        EXPECT_EQ(Record(message), 0);
    }
    EXPECT_EQ(ReadBytes(m_file), "first\n" + std::string(13, ' ') + "\n");
    Record("second");
    EXPECT_EQ(ReadBytes(m_file), "first\n" + std::string(13, ' ') + "\n" + message + "\nsecond\n");
}

TEST_F(LogTest, CutOffLineDoesNotSwallowTheNext) {
    WriteBytes(m_file, "whole\nhal");
    log.Open(K(m_file));
    Record("next");
    EXPECT_EQ(ReadBytes(m_file), "whole\nhal\nnext\n");
}

// ---- Call-backs

TEST_F(LogTest, EchoMayLogAndThrow) {
    log.Open(K(m_file));
    Log::SetCallBack([](const char* line) {
        Record("echo of "s + line);
        throw 1;
    });
    EXPECT_EQ(RecordAll({"a", "b"}), 2);
    EXPECT_EQ(ReadBytes(m_file), "a\necho of a\nb\necho of b\n");
}

TEST_F(LogTest, CallBacksGetTheirSource) {
    std::string source;
    Log::SetOpenCallBack([](void* data, const char* name) -> unsigned char {
        if (name == "bad"s)
            throw 1;
        *static_cast<std::string*>(data) += name + ":"s;
        return 1;
    });
    Log::SetCloseCallBack([](void* data) {
        *static_cast<std::string*>(data) += "closed";
        throw 2;
    });
    EXPECT_EQ(log.Open(&source, "bad"), 0);
    EXPECT_EQ(log.Open(&source, "table"), 1);
    EXPECT_EQ(log.Close(), 1);
    EXPECT_EQ(source, "table:closed");
}
