#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/qzfile.h"

namespace Qzc {

/// The log's file, which holds whole items only: a batch is one write, and what a failed one has left behind
/// is taken back. An XML file is a document between any two writes.
class LogOutput {
public:
    enum class Form { Text, Xml };
    enum class Start {
        Append, ///< behind the items of a file that is there
        Afresh  ///< without them
    };

    /// Also after a failure the path is known, and Write tries again to open it.
    bool Open(const KeldMBString& path, Form form, Start start);
    bool Close(bool sync); ///< the path is forgotten
    bool IsOpen() const { return !m_path.IsEmpty(); }

    /// Writes items, to which an XML file's end tag is added. When the file was removed behind our back it is
    /// made again. False: nothing of it stands in the file.
    ///
    /// Whether the file was removed costs half a write to ask, so in a burst of writes it is asked for every
    /// few of them. What was written since is kept until then, and goes into the new file too.
    bool Write(std::string& items);

    void Rewind() { m_position = 0; } ///< the next write goes over the oldest items; text only
    std::int64_t GetLength() const { return m_file.GetLength(); }
    std::int64_t GetPosition() const { return m_position; } ///< where the next write goes
    const KeldMBString& GetPath() const { return m_path; }
    Form GetForm() const { return m_form; }

private:
    bool OpenText(Start start);
    bool OpenXml(Start start);
    std::int64_t FindEndOfItems(std::int64_t start);
    bool WriteHere(const std::string& bytes);
    bool WriteAt(std::int64_t position, const std::string& bytes);
    bool TryToWrite(const std::string& items, std::int64_t itemsLength);
    bool Reopen(Form form, Start start);
    bool WriteAgain(std::string_view items);
    bool IsNameToBeAsked();

    QzFile m_file;
    KeldMBString m_path;
    Form m_form = Form::Text;
    std::int64_t m_position = 0; ///< where the next items go; the end tag stands there in an XML file
    std::int64_t m_end = 0;      ///< behind the last item; the same unless the file is being overwritten
    std::int64_t m_cursor = 0;   ///< the system's position in the file

    std::string m_unasked; ///< the items written since the file was last known to have a name
    int m_writesUnasked = 0;
    std::chrono::steady_clock::time_point m_lastWrite; ///< when it ended
};

} // namespace Qzc
