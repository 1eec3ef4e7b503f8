// What the other tests rely on: a child that fails in any way is told from one that succeeds.

#include <gtest/gtest.h>

#include "system/system.h"

namespace {

const ChildRole Ends("ends", [](const Arguments& arguments) {
    EXPECT_NE(arguments[0], "with a failed expectation");
    if (arguments[0] == "killed")
        KillThisProcess();
    return arguments[0] != "false";
});

} // namespace

TEST(System, KnowsHowAChildEnded) {
    EXPECT_TRUE(ChildProcess(Ends, {"well"}).Succeeds());
    for (const char* how : {"with a failed expectation", "killed", "false"})
        EXPECT_FALSE(ChildProcess(Ends, {how}).Succeeds()) << how;
    EXPECT_FALSE(ChildProcess(Ends, {"well"}, {"/no such directory", {}}).Succeeds());
}
