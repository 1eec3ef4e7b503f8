#include "toolkit/qzstringutf8.h"

#include "toolkit/qztextcodec.h"

namespace Qzc {

QzStringUTF8::QzStringUTF8(const KeldMBString& text, KELDCharset::Charset from) {
    KeldMBString converted;
    if (from != KELDCharset::UTF8)
        QzTextCodec(KELDCharset::UTF8, from).Convert(converted, text);
    m_text = from == KELDCharset::UTF8 ? text.Cstr() : converted.Cstr();
}

KeldMBString QzStringUTF8::ToString(KELDCharset::Charset to) const {
    if (to == KELDCharset::UTF8)
        return KeldMBString(m_text);
    KeldMBString converted;
    QzTextCodec(to, KELDCharset::UTF8).Convert(converted, m_text.c_str(), GetLength());
    converted.TrimRight('\0');
    return converted;
}

} // namespace Qzc
