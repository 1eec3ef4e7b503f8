#include "platform/charset.h"

#include <clocale>
#include <cstring>
#include <langinfo.h>
#include <locale.h>

namespace Platform {

std::string LocaleCharsetName() {
    const char* locale = std::setlocale(LC_CTYPE, nullptr);
    if (locale != nullptr && std::strcmp(locale, "C") != 0 && std::strcmp(locale, "POSIX") != 0)
        return nl_langinfo(CODESET);
    const locale_t asked = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (asked == nullptr)
        return std::string();
    std::string name = nl_langinfo_l(CODESET, asked);
    freelocale(asked);
    return name;
}

} // namespace Platform
