#include "toolkit/qzlogfile.h"

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "stream/qzfile.h"
#include "stream/qztrace.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/logreader.h"
#include "toolkit/log/logstate.h"
#include "toolkit/qzlogquerydef.h"

namespace Qzc {

unsigned char QzLogFile::Query(const QzLogQueryDef& query, KeldArray<QzLogItem>& items) {
    std::deque<QzLogItem> newest;
    bool readable = true;
    {
        const LogGuard guard(m_state->m_mutex);
        const State& state = *m_state;
        const auto take = [&](QzLogItem& item) {
            if (!query.Matches(item))
                return;
            newest.push_back(std::move(item));
            if (newest.size() > state.m_nQueryMaxNum)
                newest.pop_front();
        };
        if (state.m_output.IsOpen()) {
            QzFile file;
            readable = file.Open(state.m_output.GetPath(), QzFile::Access::Read);
            if (readable && state.m_output.GetForm() == LogOutput::Form::Xml) {
                ReadXmlLog(file, state.m_formats->dateTimeFormat, take);
            } else if (readable) {
                // In a file that is being overwritten the oldest items stand behind the newest.
                const std::int64_t position = state.m_output.GetPosition();
                ReadTextLog(file, position, file.GetLength(), state.m_formats->lineLayout, take);
                ReadTextLog(file, 0, position, state.m_formats->lineLayout, take);
            }
        }
        state.m_pending.Visit([&](const LogRecord& record, const LogFormats&) {
            QzLogItem item = record.ToItem();
            take(item);
            return true;
        });
    }
    items.RemoveAll();
    items.Reserve(static_cast<int>(newest.size()));
    for (QzLogItem& item : newest)
        items.Add(std::move(item));
    return readable ? 1 : 0;
}

unsigned char QzLogFile::SaveQueryResult(const KeldArray<QzLogItem>& items, const KeldMBString& file) const {
    const LogGuard guard(m_state->m_mutex);
    const LogOutput::Form form = m_state->m_eMode == XML ? LogOutput::Form::Xml : LogOutput::Form::Text;
    LogOutput output;
    if (!output.Open(AbsoluteLogPath(file), form, LogOutput::Start::Afresh))
        return 0;
    std::string text;
    for (const QzLogItem& item : items) {
        m_state->m_formats->AppendWhole(text, item, form);
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
