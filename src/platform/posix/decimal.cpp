#include "platform/decimal.h"

#include <cstdlib>
#include <locale.h>

namespace Platform {

double ReadDecimal(const char* text) {
    static const locale_t s_plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, nullptr, s_plain);
}

} // namespace Platform
