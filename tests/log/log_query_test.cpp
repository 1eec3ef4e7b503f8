#include "log_support.h"

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
