#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "base/keldcharset.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/qztextcodec.h"

namespace Qzc {

/// Writes texts in the current charset as the content of elements that every XML reader takes. Bytes that no such
/// content can hold (control characters, what is no text of the charset, characters that the document's charset lacks)
/// become instructions: the byte 1 is <?byte 01?>. One thread at a time.
class LogXmlText {
public:
    /// The document's charset, if it is not the current one.
    void SetCharset(KELDCharset::Charset charset) { m_charset = charset; }

    void Append(std::string& markup, std::string_view text);

private:
    bool IsText(std::string_view text, KELDCharset::Charset charset);
    void AppendAll(std::string& markup, std::string_view text, KELDCharset::Charset charset, bool isText) const;
    QzTextCodec& Codec(KELDCharset::Charset to, KELDCharset::Charset from);

    KELDCharset::Charset m_charset = KELDCharset::Current;
    std::unique_ptr<QzTextCodec> m_codec; ///< the last one that was needed
    KELDCharset::Charset m_codecTo = KELDCharset::Current;
    KELDCharset::Charset m_codecFrom = KELDCharset::Current;
    KeldMBString m_converted;
};

/// The text again.
KeldMBString ReadXmlText(std::string_view markup);

} // namespace Qzc
