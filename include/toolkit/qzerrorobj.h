#pragma once

#include <cstddef>
#include <deque>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

/// The process's error stack: the newest 1000 entries, fewer when their texts take more than 16 MiB, to be read newest
/// first. The log adds every item of level error or above that it records. Any thread.
class MOTOOLKIT_API QzErrorObj {
public:
    static constexpr int MaxCount = 1000;    ///< of entries
    static constexpr int MaxBytes = 1 << 24; ///< the newest entry stays, whatever it takes

    /// One error: what QzLogFile::RecordLog was told.
    struct Entry {
        int m_nCode = 0;            ///< the message code
        KeldMBString m_strMessage;  ///< the message
        KeldMBString m_strCodeFile; ///< the source file
        int m_nCodeLine = 0;        ///< the line in it
    };

    static QzErrorObj& GetInstance(); ///< the process's own

    QzErrorObj(const QzErrorObj&) = delete;
    QzErrorObj& operator=(const QzErrorObj&) = delete;

    void Add(int code, const KeldMBString& message, const KeldMBString& codeFile,
             int codeLine); ///< on top of the others
    int GetCount() const;
    bool GetAt(int index, Entry& entry) const; ///< 0 is the newest; false when there is none
    KeldArray<Entry> GetAll() const;           ///< newest first
    void Clear();

private:
    friend class QzLogFile; // takes the mutex along a fork

    QzErrorObj() = default;
    ~QzErrorObj() = default;

    void DropOldest();

    mutable QzMutex m_mutex;
    std::deque<Entry> m_entries; ///< newest first
    std::size_t m_bytes = 0;     ///< of their texts
};

} // namespace Qzc
