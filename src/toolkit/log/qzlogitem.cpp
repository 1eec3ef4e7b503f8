#include "toolkit/qzlogitem.h"

#include "toolkit/log/loglayout.h"

namespace Qzc {

KeldMBString QzLogItem::GetReplaceString(const KeldMBString& format, const KeldMBString& dateTimeFormat) const {
    std::string line;
    LogLayout(format, dateTimeFormat, LogLayout::Values::Plain).Append(line, *this);
    return KeldMBString(std::move(line));
}

} // namespace Qzc
