// The document at the file's edge: Load, Save and the charsets between them.

#include "toolkit/qzmarkup.h"

#include <string>
#include <utility>

#include "stream/qzfile.h"
#include "toolkit/failure.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/text/charsettraits.h"
#include "toolkit/xml/qzxmldeclaration.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

constexpr const char* LineEnd = "\r\n";
constexpr int OpenFailure = -100; // the message code of a file that cannot be opened

KeldMBString ByteCount(std::int64_t count) {
    KeldMBString text;
    text.Format("%d bytes", static_cast<int>(count));
    return text;
}

// What is put in the place of a part of the text when it is saved; nothing at all where all stays.
struct Change {
    int at = 0;
    int replaced = 0;
    KeldMBString text;
};

// Whether the text that the instruction at `start` belongs to declares, if anything, what its bytes are in `written`:
// whoever reads them by it gets the same text.
bool IsDeclarationTrue(const KeldMBString& text, int start, Charset written) {
    Charset declared = DeclaredCharset(text.View());
    if (declared == KELDCharset::Current)
        declared = DeclaredCharset(text.View().substr(static_cast<std::size_t>(start)));
    if (declared == KELDCharset::Current || declared == written)
        return true;
    KeldMBString read;
    return QzTextCodec(written, declared).Convert(read, text) && read == text;
}

// How the declaration has to change for a file in `encoding`.
Change DeclarationChange(const KeldMBString& text, Charset encoding) {
    Change change;
    if (encoding == KELDCharset::Unknown)
        return change;
    const Charset current = QzToolkit::GetCurCharset();
    const int start = text.Find("<?");
    const int end = text.Find("?>");
    const bool hasInstruction = start >= 0 && start < end;
    if (hasInstruction && encoding == current && IsDeclarationTrue(text, start, encoding))
        return change;
    change.text = XmlFileHeader(encoding);
    const bool isReplaced =
        hasInstruction &&
        (encoding != current || !XmlDeclaration(text.View().substr(static_cast<std::size_t>(start))).empty());
    if (!isReplaced) {
        change.text += LineEnd;
        return change;
    }
    change.at = start;
    change.replaced = end + 2 - start;
    return text.Mid(start, change.replaced) != change.text ? change : Change();
}

// Writes text to a file in another charset, a part at a time, so that the whole is never held twice.
class EncodedFile {
public:
    /// `codec` from the current charset; null: the text is written as it stands.
    EncodedFile(QzFile& file, QzTextCodec* codec) : m_file(file), m_codec(codec) {}

    bool Write(std::string_view text) {
        while (!text.empty() && m_converted && m_complete) {
            const std::size_t size = m_codec != nullptr ? PartSize(text) : text.size();
            if (m_codec == nullptr) {
                Put(text);
            } else {
                m_converted = m_codec->Convert(m_part, text.data(), static_cast<int>(size)) != 0;
                if (m_converted)
                    Put(m_part.View());
            }
            text.remove_prefix(size);
        }
        return m_converted && m_complete;
    }
    void Put(std::string_view bytes) {
        const auto size = static_cast<std::int64_t>(bytes.size());
        m_count += size;
        m_converted = m_count <= KeldMBString::MaxLength; // of a larger file nobody could read the text
        m_complete = m_converted && m_file.Write(bytes.data(), size) == size;
    }

    bool IsConverted() const { return m_converted; }
    std::int64_t Count() const { return m_count; }

private:
    // A blank is no part of a longer character in charsets that contain ASCII, and joins with nothing.
    static std::size_t PartSize(std::string_view text) {
        constexpr std::size_t Wanted = 1 << 16;
        constexpr std::string_view Blanks = " \t\r\n";
        if (text.size() <= Wanted || GetCharsetTraits(QzToolkit::GetCurCharset()).asciiUnit != 1)
            return text.size();
        std::size_t last = text.find_last_of(Blanks, Wanted - 1);
        if (last == std::string_view::npos)
            last = text.find_first_of(Blanks, Wanted);
        return last == std::string_view::npos ? text.size() : last + 1;
    }

    QzFile& m_file;
    QzTextCodec* m_codec;
    KeldMBString m_part;
    bool m_converted = true;
    bool m_complete = true;
    std::int64_t m_count = 0;
};

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
    const XmlFileForm form = DecodeXmlFile(text);
    m_encoding = form.encoding;
    m_fileForm = {form.isConverted, form.hasMark};
    SetText(std::move(text));
    return ParseDoc();
}

unsigned char QzMarkup::Save(const char* szFileName) {
    return SaveAs(szFileName, false);
}

unsigned char QzMarkup::SaveIndented(const char* szFileName) {
    return SaveAs(szFileName, true);
}

unsigned char QzMarkup::SaveAs(const char* szFileName, bool bIndented) {
    const Charset current = QzToolkit::GetCurCharset();
    const Charset encoding = m_encoding != KELDCharset::Current ? m_encoding : current;
    if (bIndented && !m_fileForm.isConverted && FindWideForm(encoding) != nullptr) {
        // Its bytes are no text, and what is put between them would make others of them.
        m_strError.Format("Cannot convert to %s", QzTextCodec::GetCharsetName(encoding).Cstr());
        return 0;
    }
    const KeldMBString& doc = GetDoc();
    Change change;
    if (m_fileForm.isConverted)
        change = DeclarationChange(doc, encoding);
    const std::string_view view = doc.View();
    std::string_view head = view.substr(0, static_cast<std::size_t>(change.at));
    const int behind = change.at + change.replaced;
    std::string_view tail = view.substr(static_cast<std::size_t>(behind));
    QzMarkup indented;
    if (bIndented) {
        std::string whole(head);
        whole.append(change.text.View()).append(tail);
        if (!indented.SetIndented(KeldMBString(std::move(whole)))) {
            m_strError = std::move(indented.m_strError);
            return 0;
        }
        head = indented.GetDoc().View();
        tail = std::string_view();
    }

    const KeldMBString charset = QzTextCodec::GetCharsetName(encoding);
    // Two numbers may stand for one charset.
    const bool recodes = m_fileForm.isConverted && encoding != current && encoding != KELDCharset::Unknown &&
                         charset != QzTextCodec::GetCharsetName(current);
    QzTextCodec codec;
    const WideForm* const wide = recodes ? FindWideForm(encoding) : nullptr;
    bool encoded = !recodes || codec.Open(wide != nullptr ? KeldMBString(wide->name) : charset,
                                          QzTextCodec::GetCharsetName(current)) != 0;
    bool opened = false;
    std::int64_t count = 0;
    const auto write = [&](QzFile& file) {
        opened = true;
        EncodedFile target(file, recodes ? &codec : nullptr);
        if (m_fileForm.hasMark && (!m_fileForm.isConverted || encoding == KELDCharset::UTF8))
            target.Put(Utf8Mark);
        else if (wide != nullptr)
            target.Put(wide->mark);
        const bool written =
            target.Write(head) && (bIndented || target.Write(change.text.View())) && target.Write(tail);
        encoded = target.IsConverted();
        count = target.Count();
        return written;
    };
    KeldMBString error;
    const bool saved = encoded && QzFile::ReplaceAll(szFileName, write, error);
    if (!encoded)
        m_strError.Format("Cannot convert to %s", charset.Cstr());
    else if (!opened)
        m_strError = "Cannot open file .\n";
    else if (!saved)
        m_strError = "Cannot write file .\n";
    if (!saved)
        return 0;
    m_strError = ByteCount(count);
    if (!bIndented && !change.text.IsEmpty()) {
        KeldMBString text = doc;
        text.Replace(change.at, change.replaced, change.text.View());
        SetText(std::move(text));
    }
    return 1;
}

unsigned char QzMarkup::IsConverted() const {
    return m_fileForm.isConverted;
}

KeldMBString QzMarkup::GetXMLFileHeader() const {
    return QzToolkit::GetXmlFileHeader(m_encoding);
}

} // namespace Qzc
