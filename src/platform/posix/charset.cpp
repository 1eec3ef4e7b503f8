#include "platform/charset.h"

#include <langinfo.h>
#include <locale.h>

namespace Platform {

namespace {

// Takes the locale over. Empty for none, and for the plain "C" locale, which names ASCII for want of a
// choice.
std::string CharsetNameOf(locale_t locale) {
    if (locale == nullptr)
        return std::string();
    std::string name = nl_langinfo_l(CODESET, locale);
    freelocale(locale);
    return name == "ANSI_X3.4-1968" ? std::string() : name;
}

} // namespace

std::string LocaleCharsetName() {
    const std::string name = CharsetNameOf(duplocale(LC_GLOBAL_LOCALE));
    return !name.empty() ? name : CharsetNameOf(newlocale(LC_CTYPE_MASK, "", nullptr));
}

void SetPathCharset(std::string_view) {}

} // namespace Platform
