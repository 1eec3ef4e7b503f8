#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/log/logbacklog.h"
#include "toolkit/log/logformats.h"
#include "toolkit/log/logoutput.h"
#include "toolkit/log/logquerycallback.h"
#include "toolkit/log/logrecord.h"
#include "toolkit/log/logrollover.h"
#include "toolkit/log/repeatfilter.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

class LogFileQuery;

/// What the log holds: its settings, its file and the items that wait. All but what is atomic is guarded by the mutex.
struct QzLogFile::State {
    static constexpr std::size_t WriteSize = 1 << 20;     ///< a larger batch is written in several steps
    static constexpr std::size_t BytesInMemory = 1 << 26; ///< what may wait, besides the newest item

    /// What a thread hands to the write call-backs once it has left the mutex.
    struct Delivery {
        std::unique_ptr<LogBacklog> items; ///< null, as mostly: none
        void* dataSource = nullptr;
        std::int64_t lost = 0; ///< what the first item tells, if it tells that
    };

    State() { SetDefaultSetting(); }

    void SetDefaultSetting();
    void SetFormats(const KeldMBString& line, const KeldMBString& dateTime, bool utc);

    bool Takes(LogLevelType level, int code) const;
    void PublishThreshold(); ///< for IsEnabled
    bool HasFile() const { return m_eMode == Text || m_eMode == XML; }
    bool WritesFile() const { return HasFile() && m_bOpen != 0 && m_bSaveToPhysical != 0; }

    bool Record(LogLevelType level, int code, const KeldMBString& message, std::string_view codeFile, int codeLine);
    bool Write(Delivery& delivery);
    bool Deliver(Delivery& delivery);
    void AddRepeatsReport();

    static std::unique_ptr<LogFileQuery> FileQuery(const QzLogQueryDef& query);
    std::string Describe(int items) const;
    void TakeAlongForks(); ///< from now on; the state lives as long as the process

    QzMutex m_mutex;
    std::atomic<unsigned char> m_bBlocked{0};
    std::atomic<unsigned char> m_bFilterRepeat{1};
    std::atomic<int> m_nLevel{debug};
    std::vector<int> m_arrInfoID; ///< the codes that pass any threshold; never changes

    Mode m_eMode = Text;
    unsigned char m_bOpen = 0;
    unsigned char m_bSaveToPhysical = 1;
    unsigned char m_bReportRepeats = 0;
    std::shared_ptr<LogFormats> m_formats;
    std::size_t m_nCountInMemory = 10000;
    std::size_t m_nCountToDisk = 1;
    std::size_t m_nQueryMaxNum = 1000;
    LogQueryCallBack m_queryCallBack;
    void* m_pDataSource = nullptr;

    LogOutput m_output;
    LogRollover m_rollover;
    RepeatFilter m_repeats;
    LogBacklog m_pending;
    std::string m_buffer;
    bool m_failing = false;      ///< the last write failed
    std::int64_t m_nLost = 0;    ///< items that were dropped because they could not be written, and not yet reported
    std::int64_t m_nRepeats = 0; ///< the same for repeats

private:
    static void BeforeFork(void* object);
    static void InParent(void* object);
    static void InChild(void* object);
    void Stamp(LogRecord& record) const;
    bool Append(const LogRecord& record, Delivery& delivery);
    bool WriteFile();
    bool WriteRecord(const LogRecord& record);
    std::size_t FormatPending(std::size_t size);
    LogRecord OwnRecord(const KeldMBString& message, LogLevelType level) const;
    KeldMBString LossMessage() const;
    bool IsWritingAwaited() const;
    void DropOldest();
    void ReleaseBuffer();
};

} // namespace Qzc
