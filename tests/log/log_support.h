#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support.h"
#include "toolkit/log/logclock.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzthread.h"

using namespace Qzc;
using namespace std::string_literals;

using Log = QzLogFile;

constexpr std::int64_t Saturday = 1795224896; // 2026-11-21 01:34:56 UTC, 09:34:56 in the tests' time zone
constexpr Log::Mode FileModes[] = {Log::Text, Log::XML};
constexpr const char* DefaultFormat =
    "%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)"; // as documented
inline std::atomic<std::int64_t> s_now{Saturday};

inline KeldMBString K(const std::string& text) {
    return KeldMBString(text);
}

inline unsigned char Record(const std::string& message, Log::LogLevelType level = Log::info) {
    return Log::GetInstance(false).RecordLog(level, 1, K(message), "test.cpp", 7);
}

// How many were recorded.
inline int RecordAll(const std::vector<std::string>& messages) {
    return static_cast<int>(
        std::count_if(messages.begin(), messages.end(), [](const auto& m) { return Record(m) == 1; }));
}

// The messages, a semicolon behind each.
inline std::string MessagesOf(const KeldArray<QzLogItem>& items) {
    std::string messages;
    for (const QzLogItem& item : items)
        messages += std::string(item.m_strDescription.View()) + ";";
    return messages;
}

// What a query finds.
inline std::string Messages(const QzLogQueryDef& query = QzLogQueryDef()) {
    KeldArray<QzLogItem> items;
    Log::GetInstance(false).Query(query, items);
    return MessagesOf(items);
}

// The messages of an XML log, as a parser reads them, `end` behind each.
inline std::string XmlMessages(const std::string& path, char end = ';') {
    const std::string text = ReadBytes(path);
    QzMarkup markup;
    // The parser does not look behind the end tag.
    if (!markup.Load(path.c_str()) || !markup.FindElem("Log") || text.find("</Log>\r\n") != text.size() - 8)
        return "no document";
    std::string messages;
    while (markup.FindChildElem("LogItem")) {
        markup.IntoElem();
        if (markup.FindChildElem("Description"))
            messages += std::string(markup.GetChildData().View()) + end;
        markup.OutOfElem();
    }
    return messages;
}

// Every file's bytes, by its name.
inline std::map<std::string, std::string> FilesOf(const std::string& directory) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        files[entry.path().filename().string()] = ReadBytes(entry.path().string());
    return files;
}

/// Another time zone while it lives, where a process can choose one.
class TimeZone {
public:
    explicit TimeZone(const char* zone) : m_variable("TZ", zone) {
        std::tm time = {};
        std::mktime(&time); // looks at it
    }

private:
    EnvironmentVariable m_variable;
};

/// The log with plain settings, in the time zone and at the moment of the tests.
class LogTest : public testing::Test {
protected:
    LogTest() {
        s_now = Saturday;
        SetLogClock([] { return KeldTime(s_now.load()); });
        log.SetRecordOnlyLog();
        log.SetDateTimeFormat("%Y-%m-%d %H:%M:%S");
        log.SetLevel(Log::debug);
        log.SetFileSizeLimit(-1);
        log.SetLogCountInMemory(10000);
        log.SetLogCountToDisk(1);
        log.SetQueryMaxNum(1000);
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

    // `messages` as Messages gives them; an XML file is a document besides.
    void ExpectFile(Log::Mode mode, const std::string& messages) const {
        EXPECT_EQ(Messages(), messages);
        if (mode == Log::XML) {
            EXPECT_EQ(XmlMessages(m_file), messages);
        }
    }

    TimeZone m_zone{"CST-8"};
    CurrentCharset m_charset{KELDCharset::UTF8};
    ScratchDirectory m_scratch;
    std::string m_file = m_scratch / "a.log";
    Log& log = Log::GetInstance(false);
};
