// Any text as a document: parsed, read from end to end, and each element's markup parsed on its own.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/keldsystem.h"
#include "xml_steps.h"

namespace {

void Require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using KELD::KELDCharset;
    const std::string text(reinterpret_cast<const char*>(data), size);
    KELD::KeldSystem::SetCurCharset(size % 2 == 0 ? KELDCharset::UTF8 : KELDCharset::Japanese);
    CheckedMarkup markup(text.c_str());
    const auto rows = markup.Rows();
    Require(markup.IsWellFormed() == !rows.empty(), "well formed without a top element");
    Require(markup.IsWellFormed() == markup.GetError().IsEmpty() || text.c_str()[0] == '\0',
            "a failure without its message");
    Require(WalkAll(markup) == static_cast<int>(rows.size()), "the walk does not meet every element");

    // The top element's markup alone gives the same records, moved to the front.
    markup.ResetPos();
    if (!markup.FindElem())
        return 0;
    const int shift = rows.front()[0];
    auto alone = CheckedMarkup(markup.GetSubDoc().Cstr()).Rows();
    for (auto& row : alone) {
        for (std::size_t i = 0; i < 4; ++i)
            row[i] += shift;
    }
    Require(alone == rows, "an element alone parses to other records");

    // And so does each child's.
    for (int budget = 16; budget > 0 && markup.FindChildElem(); --budget) {
        CheckedMarkup child(markup.GetChildSubDoc().Cstr());
        Require(child.IsWellFormed() && child.FindElem(), "a child alone does not parse");
        Require(child.GetTagName() == markup.GetChildTagName() && child.GetData() == markup.GetChildData() &&
                    Attributes(child, false) == Attributes(markup, true),
                "a child alone reads otherwise");
    }
    return 0;
}
