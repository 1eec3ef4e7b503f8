#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/keldcharset.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "platform/sharedfile.h"
#include "toolkit/qztoolkit.h"

namespace Qzc {

/// The log's file, which other processes may write too. It holds whole items only: a batch is one write, and what a
/// failed one has left behind is taken back. Text is appended, which the system does in one piece; an XML file, a
/// document between any two writes, is locked while its end tag moves.
class LogOutput {
public:
    enum class Form { Text, Xml };
    enum class Start {
        Append, ///< behind the items of a file that is there
        Afresh, ///< without them
        New     ///< only if no such file is there
    };

    /// An XML file is in the charset. Also after a failure the path is known, and Write tries again to open it.
    bool Open(const KeldMBString& path, Form form, Start start,
              KELDCharset::Charset charset = QzToolkit::GetCurCharset());
    bool Close(bool sync); ///< the path is forgotten
    bool IsOpen() const { return !m_path.IsEmpty(); }

    /// Lets go of the file and takes what now has its name, or makes a new one.
    bool Reopen();
    /// Lets go of a file that is the parent's too; the next write takes it again.
    void Forget() { m_file.Close(); }

    /// Writes items, to which an XML file's end tag is added, at `now` on the millisecond clock. False: nothing of it
    /// stands in the file.
    ///
    /// A file that was removed behind our back is made again at once, with these items: asking for that costs half
    /// of a small write. One that was renamed is let go before a large write, and otherwise at the first one that comes
    /// half a second or more after the last question, which costs as much as the write.
    bool Write(std::string& items, std::int64_t now = 0);

    void Rewind(); ///< the next write goes over the oldest items; text only
    /// Whether the file is longer than the limit. The system is asked every half second, and more often the nearer the
    /// limit is: others may have written, though hardly 16 times as much as we have.
    bool IsLongerThan(std::int64_t limit, std::int64_t now);
    std::int64_t GetLength() const { return m_file.IsOpen() ? m_file.GetLength() : 0; }
    std::int64_t GetPosition() const; ///< where the next write goes
    bool IsOverwriting() const { return m_position >= 0; }
    const KeldMBString& GetPath() const { return m_path; }
    Form GetForm() const { return m_form; }
    KELDCharset::Charset GetCharset() const { return m_charset; }

    // ---- What logs in several processes agree by

    void LockChanges() { m_file.LockChanges(); }
    void UnlockChanges() { m_file.UnlockChanges(); }
    bool StartAfresh(); ///< empties the file; the changes are locked
    /// Whether a log has the file open, or a log of this process, its parent or its children.
    static bool IsOpenElsewhere(const KeldMBString& path, bool inFamily);

private:
    bool OpenText(Start start);
    bool EndsLine() const; ///< a text file
    bool OpenXml(Start start);
    bool OpenFile(Start start);
    bool IsXmlLog() const;
    bool EndXmlItems();
    std::int64_t FindEndOfItems() const;
    bool TryToWrite(const std::string& items, std::size_t itemsLength);
    bool TryToAppend(const std::string& items);
    bool TryToOverwrite(const std::string& items);
    bool TryToWriteXml(const std::string& items, std::size_t itemsLength);
    void TakeBack(std::int64_t start, std::int64_t end);
    bool WriteAt(std::int64_t position, std::string_view bytes);

    Platform::SharedFile m_file;
    KeldMBString m_path;
    Form m_form = Form::Text;
    KELDCharset::Charset m_charset = KELDCharset::Current;

    std::int64_t m_end = 0;         ///< the file's length, as far as we know
    std::int64_t m_position = -1;   ///< where items are being overwritten; -1: they are not
    std::int64_t m_known = 0;       ///< the length when the system was last asked for it
    std::int64_t m_lengthAsked = 0; ///< when that was, in milliseconds
    std::int64_t m_nameAsked = 0;   ///< when the system was last asked whether the file was renamed
};

} // namespace Qzc
