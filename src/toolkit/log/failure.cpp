#include "toolkit/failure.h"

#include "toolkit/qzlogfile.h"

namespace Qzc {

void RecordFailure(int code, const KeldMBString& message, const char* source, int line) {
    QzLogFile::GetInstance(false).RecordLog(QzLogFile::error, code, message, source, line);
}

} // namespace Qzc
