#include "platform/charset.h"

#include "platform/win32/system.h"

namespace Platform {

std::string LocaleCharsetName() {
    const unsigned int page = GetACP();
    switch (page) {
    case 65001: return "UTF-8";
    case 932: return "SHIFT_JIS";
    case 936: return "GBK";
    case 949: return "CP949";
    case 950: return "BIG5";
    case 54936: return "GB18030";
    default: return "CP" + std::to_string(page);
    }
}

} // namespace Platform
