#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "xml/markup_records.h"

using namespace Qzc;

namespace {

std::string ReadPosition(const QzMarkup& markup) {
    std::string text(markup.GetTagNameView());
    for (int n = 0; n < markup.GetAttribCount(); ++n)
        text.append(markup.GetAttribNameView(n)).append(markup.GetAttribValueView(n));
    for (int n = markup.GetChildAttribCount(); n >= 0; --n)
        text.append(markup.GetChildAttribName(n).View()).append(markup.GetChildAttribValue(n).View());
    text.append(markup.GetDataView()).append(markup.GetChildDataView()).append(markup.GetAttrib("k").View());
    text.append(markup.GetSubDoc().View()).append(markup.GetDoc().View());
    int line = 0;
    int column = 0;
    markup.GetChildElemPosition(line, column);
    const QzMarkup copy(markup);
    return text + std::to_string(line) + ',' + std::to_string(column) + copy.GetChildSubDoc().Cstr();
}

TEST(MarkupThreads, ReadOneDocumentAtOnce) {
    QzMarkup markup("<top/>");
    ASSERT_TRUE(markup.FindElem());
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(markup.AddChildElem("item", "a < b & so on, to make a text of some length"));
        for (int n = 0; n < i % 30; ++n)
            ASSERT_TRUE(markup.SetChildAttrib(("k" + std::to_string(n)).c_str(), "<&>"));
    }
    for (int round = 0; round < 40; ++round) {
        // An edit in the middle: whoever reads first finds the text in two pieces.
        markup.ResetChildPos();
        for (int i = 0; i < 1 + round; ++i)
            ASSERT_TRUE(markup.FindChildElem());
        ASSERT_TRUE(markup.SetChildAttrib("k", round));
        QzMarkup alone(markup);
        const std::string everything = Content(alone.TopElement());
        const std::string position = ReadPosition(alone);
        constexpr int Threads = 4;
        std::atomic<int> ready{0};
        std::atomic<int> same{0};
        std::vector<std::thread> threads;
        threads.reserve(Threads);
        for (int i = 0; i < Threads; ++i) {
            threads.emplace_back([&, i] {
                const QzMarkup& shared = markup;
                for (++ready; ready != Threads;)
                    std::this_thread::yield();
                const bool first = i % 2 == 0 ? Content(shared.TopElement()) == everything : true;
                if (ReadPosition(shared) == position && first && Content(shared.TopElement()) == everything)
                    ++same;
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(same, Threads) << round;
    }
}

} // namespace
