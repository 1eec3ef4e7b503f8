#include "toolkit/recordlog.h"

#include "stream/qztrace.h"

namespace Qzc {

void RecordError(int code, const KeldMBString& message, const char* codeFile, int codeLine) {
    qztrace("error %d: %s (%s:%d)\n", code, message.Cstr(), codeFile, codeLine);
}

void RecordWarning(int code, const KeldMBString& message, const char* codeFile, int codeLine) {
    qztrace("warning %d: %s (%s:%d)\n", code, message.Cstr(), codeFile, codeLine);
}

} // namespace Qzc
