#include <gtest/gtest.h>

#include "support.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;

TEST(TextThreads, ACodecMayPassFromThreadToThread) {
    QzTextCodec codec;
    Together([&] { codec.Open(KELDCharset::GB2312, KELDCharset::UTF8); });
    for (int round = 0; round < 3; ++round) {
        Together([&] {
            KeldMBString text;
            EXPECT_TRUE(codec.Convert(text, "\xE4\xB8\xAD"));
            EXPECT_EQ(text, "\xD6\xD0");
            codec.Open(KELDCharset::GB2312, KELDCharset::UTF8);
        });
    }
}
