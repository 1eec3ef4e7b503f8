#include "toolkit/qzlogfile.h"

#include <cstdarg>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include "stream/qzfile.h"
#include "toolkit/log/logcallbacks.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/lognames.h"
#include "toolkit/log/logprint.h"
#include "toolkit/log/logstate.h"

namespace Qzc {

// ---- Opening and closing

// Until the log is made and has read its configuration, nothing is below the threshold.
std::atomic<int> QzLogFile::ms_nThreshold{std::numeric_limits<int>::min()};
std::atomic<bool> QzLogFile::ms_bHasCodes{false};

QzLogFile::QzLogFile() : m_state(std::make_unique<State>()) {}

QzLogFile::~QzLogFile() = default;

QzLogFile& QzLogFile::GetInstance(bool open) {
    // It lives on, for others may fail while the process exits; what waits is written all the same.
    static QzLogFile& s_log = []() -> QzLogFile& {
        auto& log = *new QzLogFile;
        log.m_state->TakeAlongForks();
        return log;
    }();
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
    if (path.Find('\0') >= 0 || name.Find('\0') >= 0)
        return 0;
    const LogGuard guard(m_state->m_mutex);
    State& state = *m_state;
    // In the place of a default name, which is found later, stands one that leaves the directory.
    const bool isDefaultName = name.IsEmpty();
    const KeldMBString file = AbsoluteLogPath(QzFile::GetAbsolutePath(path, isDefaultName ? "log" : name));
    state.m_eMode = mode;
    state.m_rollover.SetTimeInterval(interval);
    state.m_failing = false;
    const auto start = append != 0 ? LogOutput::Start::Append : LogOutput::Start::Afresh;
    const auto form = mode == XML ? LogOutput::Form::Xml : LogOutput::Form::Text;
    state.m_bOpen = state.m_rollover.Open(state.m_output, file, form, start, isDefaultName) ? 1 : 0;
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
        try {
            if (callBack(dataSource, name.Cstr()) == 0)
                return 0;
        } catch (...) { // refused, too
            return 0;
        }
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
        state.AddRepeatsReport();
        written = state.Write(delivery);
        written = state.m_output.Close(sync != 0) && written;
        state.m_bOpen = 0;
        usesCallBacks = !state.HasFile();
        delivery.dataSource = std::exchange(state.m_pDataSource, nullptr);
    }
    written = state.Deliver(delivery) && written;
    if (const auto callBack = LogCallBacks::ms_close.load(); callBack != nullptr && usesCallBacks) {
        const LogCallBackScope scope;
        try {
            callBack(delivery.dataSource);
        } catch (...) { // the log is closed all the same
        }
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
        m_state->AddRepeatsReport();
        m_state->Write(delivery);
        if (!m_state->m_pending.IsEmpty())
            return 0;
    }
    return m_state->Deliver(delivery) ? 1 : 0;
}

unsigned char QzLogFile::Reopen() {
    const LogGuard guard(m_state->m_mutex);
    return m_state->HasFile() && m_state->m_bOpen != 0 && m_state->m_output.Reopen() ? 1 : 0;
}

// ---- Recording

bool QzLogFile::IsAlwaysRecorded(int code) {
    constexpr auto BelowAny = static_cast<LogLevelType>(std::numeric_limits<int>::min()); // levels may be any number
    return GetInstance(false).m_state->Takes(BelowAny, code);
}

unsigned char QzLogFile::RecordAt(LogLevelType level, int code, const KeldMBString& message, std::string_view codeFile,
                                  int codeLine) {
    if (!m_state->Takes(level, code))
        return 0;
    if (LevelName(level) == nullptr)
        GetLevelAsString(level); // its assertion, raised here because the handler may use the log
    return m_state->Record(level, code, message, codeFile, codeLine) ? 1 : 0;
}

unsigned char QzLogFile::RecordLog(LogLevelType level, int code, const KeldMBString& message,
                                   const KeldMBString& codeFile, int codeLine) try {
    return RecordAt(level, code, message, codeFile.View(), codeLine);
} catch (const std::bad_alloc&) {
    return 0;
}

unsigned char QzLogFile::RecordFormat(LogLevelType level, int code, const char* codeFile, int codeLine,
                                      const char* format, ...) try {
    std::va_list arguments;
    va_start(arguments, format);
    const KeldMBString message = LogPrint(format, arguments);
    va_end(arguments);
    return RecordAt(level, code, message, codeFile != nullptr ? codeFile : std::string_view(), codeLine);
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
