#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/log/logformats.h"
#include "toolkit/log/logoutput.h"
#include "toolkit/log/logquerycallback.h"
#include "toolkit/log/logrollover.h"
#include "toolkit/log/repeatfilter.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

/// What the log holds: its settings, its file and the items that wait. All but what is atomic is guarded by the mutex.
struct QzLogFile::State {
    static constexpr std::size_t WriteSize = 1 << 20; ///< a larger batch is written in several steps

    struct Pending {
        QzLogItem item;
        std::shared_ptr<LogFormats> formats;
    };
    /// What a thread hands to the write call-backs once it has left the mutex.
    struct Delivery {
        std::vector<Pending> items;
        void* dataSource = nullptr;
    };

    State() { SetDefaultSetting(); }

    void SetDefaultSetting();
    void SetFormats(const KeldMBString& line, const KeldMBString& dateTime);

    bool Takes(LogLevelType level, int code) const;
    bool HasFile() const { return m_eMode == Text || m_eMode == XML; }
    bool WritesFile() const { return HasFile() && m_bOpen != 0 && m_bSaveToPhysical != 0; }

    bool Append(Delivery& delivery);
    bool Write(Delivery& delivery);
    bool Deliver(Delivery& delivery);

    std::string Describe(int items) const;

    QzMutex m_mutex;
    std::atomic<unsigned char> m_bBlocked{0};
    std::atomic<unsigned char> m_bFilterRepeat{1};
    std::atomic<int> m_nLevel{debug};
    std::vector<int> m_arrInfoID; ///< the codes that pass any threshold; never changes

    Mode m_eMode = Text;
    unsigned char m_bOpen = 0;
    unsigned char m_bSaveToPhysical = 1;
    std::shared_ptr<LogFormats> m_formats;
    std::size_t m_nCountInMemory = 10000;
    std::size_t m_nCountToDisk = 1;
    std::size_t m_nQueryMaxNum = 1000;
    LogQueryCallBack m_queryCallBack;
    void* m_pDataSource = nullptr;

    LogOutput m_output;
    LogRollover m_rollover;
    RepeatFilter m_repeats;
    QzLogItem m_item; ///< the one being recorded; its texts keep their memory for the next one
    std::deque<Pending> m_pending;
    std::string m_buffer;
    bool m_failing = false; ///< the last write failed

private:
    bool WriteFile();
    void DropOldest();
    void ReleaseBuffers();
};

} // namespace Qzc
