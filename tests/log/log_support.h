#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
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

// -1 for what is no document.
inline int CountXmlItems(const std::string& path) {
    QzMarkup markup;
    if (!markup.Load(path.c_str()) || !markup.FindElem("Log"))
        return -1;
    int count = 0;
    while (markup.FindChildElem("LogItem"))
        ++count;
    const std::string text = ReadBytes(path); // the parser does not look behind the end tag
    return text.substr(text.find("</Log>")) == "</Log>\r\n" ? count : -1;
}

inline std::string ThreadText() {
    char text[16];
    std::snprintf(text, sizeof(text), "%5u", QzThread::GetCurrentThreadId());
    return text;
}

/// The log with plain settings, in the time zone and at the moment of the tests.
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

    // `messages` as Messages gives them; an XML file is a document besides.
    void ExpectFile(Log::Mode mode, const std::string& messages) const {
        EXPECT_EQ(Messages(), messages);
        if (mode == Log::XML) {
            EXPECT_EQ(CountXmlItems(m_file), std::count(messages.begin(), messages.end(), ';'));
        }
    }

    CurrentCharset m_charset{KELDCharset::UTF8};
    ScratchDirectory m_scratch;
    std::string m_file = m_scratch / "a.log";
    Log& log = Log::GetInstance(false);
};
