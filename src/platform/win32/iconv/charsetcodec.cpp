#include "platform/win32/iconv/charsetcodec.h"

#include <algorithm>
#include <string>

#include "platform/win32/codepage.h"
#include "platform/win32/iconv/codecs.h"

namespace Platform {

std::unique_ptr<CharsetCodec> MakeCharsetCodec(std::string_view name) {
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    for (const auto make : {&MakeUnicode, &MakeUtf7, &MakeOwnTable, &MakeIso2022, &MakeBig5Hkscs}) {
        if (std::unique_ptr<CharsetCodec> codec = make(upper))
            return codec;
    }
    const unsigned int codePage = CodePageOf(upper);
    switch (codePage) {
    case 0: return nullptr;
    case 1258: return MakeVietnamese();
    case 20127: return MakeAscii(); // the system's own cuts off the eighth bit
    case 20932: return MakeEucJp();
    case 54936: return MakeGb18030();
    default: break;
    }
    std::unique_ptr<CharsetCodec> codec = MakeSingleBytes(codePage);
    return codec != nullptr ? std::move(codec) : MakeDoubleBytes(codePage);
}

} // namespace Platform
