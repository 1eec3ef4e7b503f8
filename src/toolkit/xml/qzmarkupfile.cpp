// The document at the file's edge: Load, Save and the charsets between them.

#include "toolkit/qzmarkup.h"

#include <utility>

#include "stream/qzfile.h"
#include "toolkit/failure.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/xml/qzxmldeclaration.h"

namespace Qzc {

namespace {

constexpr const char* LineEnd = "\r\n";
constexpr int OpenFailure = -100; // the message code of a file that cannot be opened

KeldMBString ByteCount(int count) {
    KeldMBString text;
    text.Format("%d bytes", count);
    return text;
}

} // namespace

unsigned char QzMarkup::Load(const char* szFileName) {
    QzFile file;
    if (!file.Open(szFileName, QzFile::Access::Read)) {
        m_strError = file.GetError();
        KeldMBString message;
        message.Format("Can not open file  %s Error message %s", szFileName != nullptr ? szFileName : "",
                       m_strError.Cstr());
        RecordFailure(OpenFailure, message, "qzmarkup", __LINE__);
        return 0;
    }
    KeldMBString text;
    if (!file.ReadAll(text)) {
        m_strError = file.GetError();
        return 0;
    }
    m_strError = ByteCount(text.GetLength());
    m_encoding = DecodeXmlFile(text);
    SetText(std::move(text));
    return ParseDoc();
}

unsigned char QzMarkup::Save(const char* szFileName) {
    const KELDCharset::Charset current = QzToolkit::GetCurCharset();
    const bool converts =
        m_encoding != current && m_encoding != KELDCharset::Current && m_encoding != KELDCharset::Unknown;
    KeldMBString text = GetDoc();
    const int declaration = text.Find("<?");
    const int end = text.Find("?>");
    if (end <= 0 && m_encoding != KELDCharset::Unknown)
        text.Insert(0, GetXMLFileHeader() + LineEnd);
    else if (converts && declaration >= 0 && declaration < end)
        text.Replace(declaration, end + 2 - declaration, GetXMLFileHeader().View());

    KeldMBString bytes;
    if (converts && !QzTextCodec(m_encoding, current).Convert(bytes, text)) {
        m_strError.Format("Cannot convert to %s", QzTextCodec::GetCharsetName(m_encoding).Cstr());
        return 0;
    }
    SetText(std::move(text));
    const KeldMBString& written = converts ? bytes : GetDoc();
    QzFile file;
    if (!file.Open(szFileName, QzFile::Access::Write)) {
        m_strError = "Cannot open file .\n";
        return 0;
    }
    m_strError = ByteCount(written.GetLength());
    const bool complete = file.Write(written.Cstr(), written.GetLength()) == written.GetLength();
    if (!file.Close() || !complete) {
        m_strError = "Cannot write file .\n";
        return 0;
    }
    return 1;
}

KeldMBString QzMarkup::GetXMLFileHeader() const {
    return QzToolkit::GetXmlFileHeader(m_encoding);
}

} // namespace Qzc
