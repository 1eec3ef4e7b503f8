// What the other tests rely on: a child that fails in any way is told from one that succeeds.

#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include "system/system.h"

namespace {

const ChildRole Ends("ends", [](const Arguments& arguments) {
    EXPECT_NE(arguments[0], "with a failed expectation");
    if (arguments[0] == "killed")
        KillThisProcess();
    return arguments[0] != "false";
});

const ChildRole Waits("waits", [](const Arguments& arguments) {
    auto& count = SharedObject<std::atomic<int>>(arguments[0]); // in the directory that it was given
    count += std::getenv("TEST_ADDEND") != nullptr ? std::atoi(std::getenv("TEST_ADDEND")) : 1;
    while (arguments[1] == "for ever" || count != 0) {
    }
    return true;
});

} // namespace

TEST(System, KnowsHowAChildEnded) {
    EXPECT_TRUE(ChildProcess(Ends, {"well"}).Succeeds());
    for (const char* how : {"with a failed expectation", "killed", "false"})
        EXPECT_FALSE(ChildProcess(Ends, {how}).Succeeds()) << how;
    EXPECT_FALSE(ChildProcess(Ends, {"well"}, {"/no such directory", {}}).Succeeds());
}

TEST(System, SharesMemoryWithItsChildren) {
    const ScratchDirectory scratch;
    auto& count = SharedObject<std::atomic<int>>(scratch / "shared");
    EXPECT_EQ(count, 0);
    ChildProcess first(Waits, {"shared", "to the end"}, {scratch.Path(), {{"TEST_ADDEND", "20"}}});
    ChildProcess second(Waits, {"shared", "for ever"}, {scratch.Path(), {}});
    EXPECT_NE(first.Id(), second.Id());
    while (count != 21) {
    }
    second.Kill();
    EXPECT_FALSE(second.Succeeds());
    count = 0;
    EXPECT_TRUE(first.Succeeds());
}
