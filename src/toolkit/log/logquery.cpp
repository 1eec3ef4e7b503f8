#include "toolkit/qzlogfile.h"

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "stream/qztrace.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logfilequery.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/logstate.h"
#include "toolkit/qzlogquerydef.h"

namespace Qzc {

namespace {

bool IsSameFile(const KeldMBString& a, const KeldMBString& b) {
    return a == b || Platform::IsSameFile(a.Cstr(), b.Cstr());
}

bool RunFileQuery(LogFileQuery& search, const KeldMBString& path, const QzLogQueryDef& query) {
    const KeldMBString file = AbsoluteLogPath(path);
    search.Search().StartSource(GetLogTime());
    const bool readable = search.Open(file);
    if (query.m_bRolledFiles != 0)
        search.AddRolledFiles(LogFileNames::Of(file));
    return search.Run() && readable;
}

} // namespace

void QzLogFile::SetQueryCallBack(unsigned char (*callBack)(void*, long long, long long), void* context) {
    State& state = *GetInstance(false).m_state;
    const LogGuard guard(state.m_mutex);
    state.m_queryCallBack = {callBack, context};
}

// Of any file, in the log's formats.
std::unique_ptr<LogFileQuery> QzLogFile::State::FileQuery(const QzLogQueryDef& query) {
    const State& state = *GetInstance(false).m_state;
    const LogGuard guard(GetInstance(false).m_state->m_mutex);
    return std::make_unique<LogFileQuery>(query, state.m_nQueryMaxNum, *state.m_formats, state.m_queryCallBack);
}

unsigned char QzLogFile::Query(const QzLogQueryDef& query, KeldArray<QzLogItem>& items) try {
    std::unique_ptr<LogFileQuery> search;
    bool isOpen = false;
    bool readable = true;
    LogFileNames names;
    {
        const LogGuard guard(m_state->m_mutex);
        const State& state = *m_state;
        search = std::make_unique<LogFileQuery>(query, state.m_nQueryMaxNum, *state.m_formats, state.m_queryCallBack);
        search->Search().StartSource(GetLogTime());
        // They lie from the oldest to the newest.
        std::vector<LogRecord> waiting;
        state.m_pending.Visit([&](const LogRecord& record, const LogFormats&) {
            waiting.push_back(record);
            return true;
        });
        for (auto record = waiting.rbegin(); record != waiting.rend() && search->Search().TakeRecord(*record);)
            ++record;
        isOpen = state.m_output.IsOpen();
        if (isOpen) {
            names = state.m_rollover.GetNames();
            readable = search->Open(state.m_output.GetPath());
            if (state.m_output.IsOverwriting())
                search->SetPosition(state.m_output.GetPosition());
        }
    }
    if (isOpen && query.m_bRolledFiles != 0)
        search->AddRolledFiles(names);
    readable = search->Run() && readable;
    search->Search().Give(items);
    return readable ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

unsigned char QzLogFile::QueryFile(const KeldMBString& path, const QzLogQueryDef& query,
                                   KeldArray<QzLogItem>& items) try {
    const std::unique_ptr<LogFileQuery> search = State::FileQuery(query);
    const bool readable = RunFileQuery(*search, path, query);
    search->Search().Give(items);
    return readable ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

unsigned char QzLogFile::VisitFile(const KeldMBString& path, const QzLogQueryDef& query,
                                   unsigned char (*visit)(void*, const QzLogItem&), void* context) try {
    const std::unique_ptr<LogFileQuery> search = State::FileQuery(query);
    bool goesOn = true;
    search->Search().SetSink([&](const QzLogItem& item) {
        goesOn = goesOn && visit(context, item) != 0;
        return goesOn;
    });
    return RunFileQuery(*search, path, query) ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

unsigned char QzLogFile::SaveQueryResult(const KeldArray<QzLogItem>& items, const KeldMBString& file) const {
    LogOutput::Form form = LogOutput::Form::Text;
    const KeldMBString path = AbsoluteLogPath(file);
    std::unique_ptr<LogFormats> formats;
    {
        const LogGuard guard(m_state->m_mutex);
        if (m_state->m_output.IsOpen() && IsSameFile(path, m_state->m_output.GetPath()))
            return 0;
        if (m_state->m_eMode == XML)
            form = LogOutput::Form::Xml;
        const LogFormats& current = *m_state->m_formats;
        formats = std::make_unique<LogFormats>(current.lineFormat, current.dateTimeFormat, current.utc);
    }
    LogOutput output;
    if (!output.Open(path, form, LogOutput::Start::Afresh))
        return 0;
    std::string text;
    for (const QzLogItem& item : items) {
        formats->AppendWhole(text, item, form);
        if (text.size() >= State::WriteSize) {
            if (!output.Write(text))
                return 0;
            text.clear();
        }
    }
    return (text.empty() || output.Write(text)) && output.Close(false) ? 1 : 0;
}

void QzLogFile::Dump(int items) const {
    std::string text;
    {
        const LogGuard guard(m_state->m_mutex);
        text = m_state->Describe(items);
    }
    qztrace("%s", text.c_str());
}

} // namespace Qzc
