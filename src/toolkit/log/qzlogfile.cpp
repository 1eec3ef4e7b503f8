#include "toolkit/qzlogfile.h"

#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "stream/qzfile.h"
#include "toolkit/log/logcallbacks.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/lognames.h"
#include "toolkit/log/logstate.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzthread.h"

namespace Qzc {

// ---- Opening and closing

QzLogFile::QzLogFile() : m_state(std::make_unique<State>()) {}

QzLogFile::~QzLogFile() = default;

QzLogFile& QzLogFile::GetInstance(bool open) {
    // It lives on, for others may fail while the process exits; what waits is written all the same.
    static QzLogFile& s_log = *new QzLogFile;
    static const struct AtExit {
        ~AtExit() {
            const LogGuard guard(s_log.m_state->m_mutex);
            if (s_log.m_state->HasFile())
                s_log.Flush();
        }
    } s_atExit;
    if (open) {
        const LogGuard guard(s_log.m_state->m_mutex);
        if (s_log.m_state->m_bOpen == 0)
            s_log.Open(Text);
    }
    return s_log;
}

unsigned char QzLogFile::Open(const KeldMBString& path, const KeldMBString& name, TimeInterval interval, Mode mode,
                              unsigned char append) {
    if (mode != Text && mode != XML)
        return Open(mode);
    Close();
    const LogGuard guard(m_state->m_mutex);
    State& state = *m_state;
    const KeldTime now = GetLogTime();
    const KeldMBString file =
        AbsoluteLogPath(QzFile::GetAbsolutePath(path, name.IsEmpty() ? DefaultLogName(now) : name));
    state.m_eMode = mode;
    state.m_rollover.SetTimeInterval(interval);
    state.m_failing = false;
    const auto start = append != 0 ? LogOutput::Start::Append : LogOutput::Start::Afresh;
    const auto form = mode == XML ? LogOutput::Form::Xml : LogOutput::Form::Text;
    state.m_bOpen = state.m_rollover.Open(state.m_output, file, form, start, name.IsEmpty()) ? 1 : 0;
    if (state.m_bOpen == 0) {
        state.m_output.Close(false);
        return 0;
    }
    State::Delivery none;
    state.Write(none); // what was recorded before
    return 1;
}

unsigned char QzLogFile::Open(const KeldMBString& file, unsigned char append, Mode mode) {
    return Open(KeldMBString(), file, None, mode, append);
}

unsigned char QzLogFile::Open(Mode mode) {
    if (mode == Text || mode == XML)
        return Open(KeldMBString(), KeldMBString(), None, mode);
    return OpenCallBacks(mode, nullptr, KeldMBString());
}

unsigned char QzLogFile::Open(void* dataSource, const KeldMBString& name) {
    return OpenCallBacks(Database, dataSource, name);
}

unsigned char QzLogFile::OpenCallBacks(Mode mode, void* dataSource, const KeldMBString& name) {
    Close();
    if (const auto callBack = LogCallBacks::ms_open.load()) {
        const LogCallBackScope scope;
        if (callBack(dataSource, name.Cstr()) == 0)
            return 0;
    }
    State::Delivery delivery;
    {
        const LogGuard guard(m_state->m_mutex);
        m_state->m_eMode = mode;
        m_state->m_pDataSource = dataSource;
        m_state->m_bOpen = 1;
        m_state->Write(delivery); // what was recorded before
    }
    m_state->Deliver(delivery);
    return 1;
}

unsigned char QzLogFile::Close(unsigned char sync) {
    State& state = *m_state;
    State::Delivery delivery;
    bool written = true;
    bool usesCallBacks = false;
    {
        const LogGuard guard(state.m_mutex);
        if (state.m_bOpen == 0)
            return 1;
        written = state.Write(delivery);
        written = state.m_output.Close(sync != 0) && written;
        state.m_bOpen = 0;
        usesCallBacks = !state.HasFile();
        delivery.dataSource = std::exchange(state.m_pDataSource, nullptr);
    }
    written = state.Deliver(delivery) && written;
    if (const auto callBack = LogCallBacks::ms_close.load(); callBack != nullptr && usesCallBacks) {
        const LogCallBackScope scope;
        callBack(delivery.dataSource);
    }
    return written ? 1 : 0;
}

unsigned char QzLogFile::IsOpen() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_bOpen;
}

unsigned char QzLogFile::Flush() {
    State::Delivery delivery;
    {
        const LogGuard guard(m_state->m_mutex);
        m_state->Write(delivery);
        if (!m_state->m_pending.empty())
            return 0;
    }
    return m_state->Deliver(delivery) ? 1 : 0;
}

// ---- Recording

unsigned char QzLogFile::RecordLog(LogLevelType level, int code, const KeldMBString& message,
                                   const KeldMBString& codeFile, int codeLine) try {
    State& state = *m_state;
    if (!state.Takes(level, code))
        return 0;
    if (LevelName(level) == nullptr)
        GetLevelAsString(level); // its assertion, raised here because the handler may use the log
    const bool filters = state.m_bFilterRepeat.load(std::memory_order_relaxed) != 0;
    const std::uint32_t hash = filters ? RepeatFilter::Hash(message) : 0;
    const auto echo = LogCallBackScope::IsInside() ? nullptr : LogCallBacks::ms_echo.load();
    State::Delivery delivery;
    std::string line;
    bool written = true;
    {
        const LogGuard guard(state.m_mutex);
        QzLogItem& item = state.m_item;
        item.m_nThreadID = 0;
        if (state.m_formats->lineLayout.HasThreadID())
            item.m_nThreadID = QzThread::GetCurrentThreadId();
        item.m_strDescription = message;
        item.m_nResID = code;
        item.m_strCodeFile = codeFile;
        item.m_nCodeLine = codeLine;
        item.m_eLevel = level;
        item.m_dtDateTime = GetLogTime();
        item.m_nTimeSpan = KeldTime::GetMilliseconds();
        if (filters && state.m_repeats.IsFilterRepeat(message, hash, codeFile, codeLine))
            return 0;
        state.m_repeats.SetLast(message, codeFile, codeLine);
        if (level >= error)
            QzErrorObj::GetInstance().Add(code, message, codeFile, codeLine);
        if (echo != nullptr)
            state.m_formats->lineLayout.Append(line, item);
        written = state.Append(delivery);
    }
    if (echo != nullptr) {
        const LogCallBackScope scope;
        echo(line.c_str());
    }
    return state.Deliver(delivery) && written ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

unsigned char QzLogFile::RecordLog(LogLevelType level, int code, const KeldMBString& message) {
    return RecordLog(level, code, message, KeldMBString(), 0);
}

unsigned char QzLogFile::RecordLog(LogLevelType level, const KeldMBString& message) {
    return RecordLog(level, 0, message);
}

unsigned char QzLogFile::RecordLog(const KeldMBString& message) {
    return RecordLog(info, message);
}

} // namespace Qzc
