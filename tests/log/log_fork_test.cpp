// The log along forks: children that go on from where their parent stood.

#include <thread>

#include "childprocess.h"
#include "log_writers.h"

using LogFork = LogTest;

TEST_F(LogFork, ChildrenLogWhileThreadsDo) {
    if (!HeapIsWholeInChildren)
        GTEST_SKIP() << "takes memory in children";
    for (const Log::Mode mode : FileModes) {
        ASSERT_EQ(log.Open(K(m_file), 0, mode), 1);
        std::atomic<bool> stop{false};
        std::map<std::string, int> expected;
        int own = 0;
        std::thread busy([&] {
            while (!stop)
                own += Record(Line("p", own));
        });
        for (int i = 0; i < 20; ++i) {
            const std::string writer = "c" + std::to_string(i);
            expected[writer] = 5;
            EXPECT_TRUE(Child([&] { return RecordLines(writer, 5) == 5; }).Succeeds());
        }
        stop = true;
        busy.join();
        log.Close();
        expected["p"] = own;
        EXPECT_EQ(CountLines({LinesOf(m_file, mode)}), expected);
    }
}

TEST_F(LogFork, WhatWaitsAtAForkIsWrittenOnce) {
    log.SetLogCountToDisk(100);
    ASSERT_EQ(log.Open(K(m_file)), 1);
    RecordAll({"1", "2"});
    Child child([&] {
        Record("child");
        return log.Close() == 1;
    });
    EXPECT_TRUE(child.Succeeds());
    Record("3");
    log.Close();
    EXPECT_EQ(ReadBytes(m_file), "1\n2\nchild\n3\n");
    // What is meant to stay in memory is not the child's.
    log.Open(Log::Memory);
    Record("kept");
    EXPECT_TRUE(Child([] { return Messages().empty(); }).Succeeds());
    EXPECT_EQ(Messages(), "kept;");
}
