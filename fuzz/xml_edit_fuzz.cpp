// A document and a way to edit it, both drawn from the bytes. After every step the records must be those of
// the text parsed afresh, and what the step promises must hold.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/keldsystem.h"
#include "xml_steps.h"

namespace {

void Require(bool holds, const char* what, const CheckedMarkup& markup) {
    if (holds)
        return;
    std::fprintf(stderr, "%s\n%s\n", what, markup.GetDoc().Cstr());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using KELD::KELDCharset;
    // The first line is the document, the rest draws the steps.
    std::size_t used = 0;
    while (used < size && data[used] != '\f')
        ++used;
    const std::string text(reinterpret_cast<const char*>(data), used);
    const auto next = [&](unsigned n) { return used + 1 < size ? data[++used] % n : 0U; };
    KELD::KeldSystem::SetCurCharset(next(2) == 0 ? KELDCharset::UTF8 : KELDCharset::Japanese);

    CheckedMarkup markup(text.c_str());
    while (used + 1 < size) {
        const std::string broken = RandomStep(markup, next);
        Require(broken.empty(), broken.c_str(), markup);
        Require(markup.RecordsMatchText(), "the records are not those of the text", markup);
    }

    // Saving leaves the records behind the text: whatever they then point at, reading and editing end.
    markup.SetEncoding(KELDCharset::GB2312);
    markup.Save("/dev/null");
    WalkAll(markup);
    used = size > 40 ? size - 40 : 0;
    while (used + 1 < size)
        RandomStep(markup, next);
    return 0;
}
