#pragma once

#include <deque>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

/// The process's error stack: the newest 1000 entries, to be read newest first. The log adds every item of
/// level error or above that it records. Any thread.
class MOTOOLKIT_API QzErrorObj {
public:
    static constexpr int MaxCount = 1000;

    struct Entry {
        int m_nCode = 0;
        KeldMBString m_strMessage;
        KeldMBString m_strCodeFile;
        int m_nCodeLine = 0;
    };

    static QzErrorObj& GetInstance();

    QzErrorObj(const QzErrorObj&) = delete;
    QzErrorObj& operator=(const QzErrorObj&) = delete;

    void Add(int code, const KeldMBString& message, const KeldMBString& codeFile, int codeLine);
    int GetCount() const;
    bool GetAt(int index, Entry& entry) const; ///< 0 is the newest; false when there is none
    KeldArray<Entry> GetAll() const;           ///< newest first
    void Clear();

private:
    QzErrorObj() = default;
    ~QzErrorObj() = default;

    mutable QzMutex m_mutex;
    std::deque<Entry> m_entries; ///< newest first
};

} // namespace Qzc
