#include "toolkit/qztoolkit.h"

#include "base/keldsystem.h"
#include "platform/processor.h"

namespace Qzc {

KELDCharset::Charset QzToolkit::GetCurCharset() {
    return KeldSystem::GetCurCharset();
}

bool QzToolkit::SetCurCharset(KELDCharset::Charset charset) {
    return KeldSystem::SetCurCharset(charset);
}

int QzToolkit::GetCPUCount() {
    return Platform::ProcessorCount();
}

KeldMBString QzToolkit::GetXmlFileHeader(KELDCharset::Charset charset) {
    KeldMBString header;
    const bool isWhole = TryCopies<KeldMBString>([&] {
        header = R"(<?xml version="%VERSION" encoding="%ENCODING"?>)";
        header.Replace("%VERSION", "1.0");
        header.Replace("%ENCODING", KeldSystem::GetCharsetName(charset));
    });
    return isWhole ? header : KeldMBString();
}

} // namespace Qzc
