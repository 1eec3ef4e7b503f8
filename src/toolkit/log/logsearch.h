#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "base/keldarray.h"
#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/log/logreader.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"

namespace Qzc {

bool MatchesQuery(const QzLogQueryDef& query, const LogRecord& record);
/// By what is known of the record, and not by its texts.
bool MayMatchQuery(const QzLogQueryDef& query, const LogRecord& record, const LogKnown& known);

/// Gathers the newest items that match. They are shown to it from the newest to the oldest, one file after the other.
class LogSearch : public LogItemVisitor {
public:
    LogSearch(const QzLogQueryDef& query, std::size_t maxNum) : m_query(query), m_maxNum(maxNum) {}

    /// Shows what matches instead of gathering it; false ends the search.
    void SetSink(std::function<bool(const QzLogItem&)> sink) { m_sink = std::move(sink); }

    /// The next items are those of memory, or of a file that was written last at `newest` at the latest.
    void StartSource(KeldTime newest);

    // False: it has enough of the source.
    bool TakeRecord(const LogRecord& record);
    bool Wants(const LogItemReader& reader, std::string_view text) override;
    bool Take(LogReading& reading) override;

    /// The items, the newest last.
    void Give(KeldArray<QzLogItem>& items);

private:
    KeldTime TimeOf(const LogReading& reading);
    void MergeSource();

    const QzLogQueryDef& m_query;
    std::size_t m_maxNum;
    std::function<bool(const QzLogItem&)> m_sink;
    std::vector<QzLogItem> m_found; ///< in the sources before, the newest first
    std::vector<QzLogItem> m_new;   ///< in this one

    // The item that was shown before.
    std::int64_t m_newerTime = 0;
    std::int64_t m_newerSpan = 0;
};

} // namespace Qzc
