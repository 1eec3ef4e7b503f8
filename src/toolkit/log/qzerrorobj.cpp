#include "toolkit/qzerrorobj.h"

#include "toolkit/log/logguard.h"

namespace Qzc {

namespace {

std::size_t BytesOf(const QzErrorObj::Entry& entry) {
    return static_cast<std::size_t>(entry.m_strMessage.GetLength()) +
           static_cast<std::size_t>(entry.m_strCodeFile.GetLength());
}

} // namespace

QzErrorObj& QzErrorObj::GetInstance() {
    static QzErrorObj& s_instance = *new QzErrorObj; // lives on: errors may come up while the process exits
    return s_instance;
}

void QzErrorObj::Add(int code, const KeldMBString& message, const KeldMBString& codeFile, int codeLine) {
    const LogGuard guard(m_mutex);
    m_entries.push_front({code, message, codeFile, codeLine});
    m_bytes += BytesOf(m_entries.front());
    while (m_entries.size() > MaxCount || (m_bytes > MaxBytes && m_entries.size() > 1))
        DropOldest();
}

void QzErrorObj::DropOldest() {
    m_bytes -= BytesOf(m_entries.back());
    m_entries.pop_back();
}

int QzErrorObj::GetCount() const {
    const LogGuard guard(m_mutex);
    return static_cast<int>(m_entries.size());
}

bool QzErrorObj::GetAt(int index, Entry& entry) const {
    const LogGuard guard(m_mutex);
    if (index < 0 || index >= static_cast<int>(m_entries.size()))
        return false;
    entry = m_entries[static_cast<std::size_t>(index)];
    return true;
}

KeldArray<QzErrorObj::Entry> QzErrorObj::GetAll() const {
    const LogGuard guard(m_mutex);
    KeldArray<Entry> entries;
    entries.Reserve(static_cast<int>(m_entries.size()));
    for (const Entry& entry : m_entries)
        entries.Add(entry);
    return entries;
}

void QzErrorObj::Clear() {
    const LogGuard guard(m_mutex);
    m_entries.clear();
    m_bytes = 0;
}

} // namespace Qzc
