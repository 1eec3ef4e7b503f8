// Arbitrary bytes as an XML file, the first of them choosing the current charset: loading and saving gives back the
// same text or the same bytes, and laying it out what has been laid out already.

#include <cstddef>
#include <cstdint>

#include "fuzzfile.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr KELDCharset::Charset Charsets[] = {KELDCharset::UTF8, KELDCharset::ISO8859_1, KELDCharset::GB2312};
    if (size == 0)
        return 0;
    QzToolkit::SetCurCharset(Charsets[data[0] % 3]);
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const FuzzFile file(bytes);
    const std::string path = FuzzFile::Path();
    QzMarkup markup;
    markup.Load(path.c_str());
    QzMarkup again(markup);
    if (markup.IsConverted()) {
        if (!again.Save(path.c_str()))
            return 0; // iconv may read what it would not write
        QzMarkup loaded;
        loaded.Load(path.c_str());
        // A charset that has other bytes for ASCII does not tell its name.
        Require(loaded.GetDoc() == again.GetDoc() || loaded.GetEncoding() != again.GetEncoding());
    } else {
        Require(again.Save(path.c_str()) && FuzzFile::Bytes() == bytes);
    }
    if (!markup.SaveIndented(path.c_str()))
        return 0;
    const std::string indented = FuzzFile::Bytes();
    QzMarkup loaded;
    Require(loaded.Load(path.c_str()) || loaded.GetEncoding() != markup.GetEncoding()); // as above
    if (loaded.SaveIndented(path.c_str()) && loaded.GetEncoding() == markup.GetEncoding())
        Require(FuzzFile::Bytes() == indented);
    return 0;
}
