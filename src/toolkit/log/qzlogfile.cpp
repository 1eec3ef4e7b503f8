#include "toolkit/qzlogfile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "base/keldassert.h"
#include "stream/qzfile.h"
#include "stream/qztrace.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/loglayout.h"
#include "toolkit/log/logoutput.h"
#include "toolkit/log/logreader.h"
#include "toolkit/log/repeatfilter.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzregistry.h"
#include "toolkit/qzthread.h"

namespace Qzc {

namespace {

constexpr const char* DefaultLogFormat = "%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)";
constexpr const char* DefaultDateTimeFormat = "%Y-%m-%d %H:%M:%S";
constexpr const char* DefaultPrefix = "Log";
constexpr std::size_t WriteSize = 1 << 20; ///< a larger batch is written in several steps

// ---- The call-backs and the clock

std::atomic<void (*)(const char*)> ms_callBack{nullptr};
std::atomic<unsigned char (*)(void*, const char*)> ms_openCallBack{nullptr};
std::atomic<unsigned char (*)(void*, const QzLogItem&)> ms_writeCallBack{nullptr};
std::atomic<unsigned char (*)(void*, const KeldArray<QzLogItem>&)> ms_writeCallBacks{nullptr};
std::atomic<void (*)(void*)> ms_closeCallBack{nullptr};

std::atomic<KeldTime (*)()> ms_clock{KeldTime::GetCurrentTime};

// Marks the thread while it is in a call-back: what is recorded there goes to no call-back, or one that
// always records would never end.
thread_local bool t_inCallBack = false;

class CallBackScope {
public:
    CallBackScope() : m_outer(std::exchange(t_inCallBack, true)) {}
    ~CallBackScope() { t_inCallBack = m_outer; }
    CallBackScope(const CallBackScope&) = delete;
    CallBackScope& operator=(const CallBackScope&) = delete;

private:
    bool m_outer;
};

// ---- Names and values

template <class Value>
struct Named {
    const char* name;
    Value value;
};

constexpr Named<QzLogFile::LogLevelType> LevelNames[] = {{"debug", QzLogFile::debug},
                                                         {"info", QzLogFile::info},
                                                         {"warning", QzLogFile::warning},
                                                         {"error", QzLogFile::error},
                                                         {"fatal", QzLogFile::fatal}};
constexpr Named<QzLogFile::Mode> ModeNames[] = {{"Text", QzLogFile::Text},
                                                {"XML", QzLogFile::XML},
                                                {"Database", QzLogFile::Database},
                                                {"Memory", QzLogFile::Memory}};
constexpr Named<QzLogFile::TimeInterval> TimeIntervalNames[] = {{"None", QzLogFile::None},
                                                                {"Day", QzLogFile::Day},
                                                                {"Month", QzLogFile::Month},
                                                                {"Week", QzLogFile::Week},
                                                                {"Hour", QzLogFile::Hour}};
constexpr Named<QzLogFile::SizeLimitMode> SizeLimitModeNames[] = {
    {"Rolling", QzLogFile::Rolling}, {"ReOpen", QzLogFile::ReOpen}, {"NewFile", QzLogFile::NewFile}};

template <class Value, std::size_t Count>
Value ValueOf(const Named<Value> (&names)[Count], const KeldMBString& name, Value fallback) {
    for (const Named<Value>& row : names) {
        if (name.CompareNoCase(row.name) == 0)
            return row.value;
    }
    KELDASSERT_TEXT(false, "unknown name of a log setting");
    return fallback;
}

const char* LevelName(QzLogFile::LogLevelType level) {
    for (const auto& row : LevelNames) {
        if (row.value == level)
            return row.name;
    }
    return nullptr;
}

// ---- File names

KeldMBString AbsolutePath(const KeldMBString& path) {
    std::error_code failed;
    const std::filesystem::path current = std::filesystem::current_path(failed);
    return failed ? QzFile::ToNativePath(path) : QzFile::GetAbsolutePath(KeldMBString(current.string()), path);
}

KeldMBString DefaultFileName(KeldTime now) {
    KeldMBString name;
    name.Format("Zp%04d-%02d-%02d_%02d-%02d-%02d.log", now.GetYear(), now.GetMonth(), now.GetDay(), now.GetHour(),
                now.GetMinute(), now.GetSecond());
    return name;
}

// "dir/name.log" with the number 2 is "dir/name(2).log".
KeldMBString NumberedName(const KeldMBString& path, int number) {
    KeldMBString directory;
    KeldMBString name;
    KeldMBString extension;
    QzFile::SplitPath(path, directory, name, extension);
    KeldMBString text;
    text.Format("(%d)", number);
    return directory + name + text + extension;
}

// The first that no file has; `number` becomes its number.
KeldMBString NextNumberedName(const KeldMBString& path, int& number) {
    KeldMBString name;
    do
        name = NumberedName(path, ++number);
    while (QzFile::IsExist(name));
    return name;
}

// What changes when the interval ends.
const char* PeriodFormat(QzLogFile::TimeInterval interval) {
    switch (interval) {
    case QzLogFile::Hour: return "%Y-%m-%d %H";
    case QzLogFile::Day: return "%Y-%m-%d";
    case QzLogFile::Week: return "%G-%V"; // ISO weeks start on Monday
    case QzLogFile::Month: return "%Y-%m";
    default: return "";
    }
}

KeldMBString XmlFormatFor(const KeldMBString& lineFormat) {
    constexpr const char* Fields[][2] = {
        {"DateTime", "%DATETIME"}, {"TimeSpan", "%TIMESPAN"}, {"Level", "%LEVEL"},       {"ResID", "%RESID"},
        {"Description", "%MSG"},   {"ThreadID", "%THREADID"}, {"CodeFile", "%CODEFILE"}, {"CodeLine", "%CODELINE"},
    };
    QzMarkup markup;
    markup.AddElem("LogItem");
    for (const auto& [element, placeholder] : Fields)
        markup.AddChildElem(element, lineFormat.Find(placeholder) >= 0 ? placeholder : nullptr);
    return markup.GetDoc();
}

} // namespace

void SetLogClock(KeldTime (*clock)()) {
    ms_clock = clock != nullptr ? clock : KeldTime::GetCurrentTime;
}

// ---- The state; all but what is atomic is guarded by the mutex

struct QzLogFile::State {
    /// The formats that an item was recorded under, which it is written in even when it has to wait.
    struct Formats {
        Formats(const KeldMBString& line, const KeldMBString& dateTime)
            : lineLayout(line, dateTime, LogLayout::Values::Plain),
              xmlLayout(XmlFormatFor(line), dateTime, LogLayout::Values::XmlText) {}
        /// As it stands in a file.
        void AppendWhole(std::string& text, const QzLogItem& item, LogOutput::Form form) {
            if (form == LogOutput::Form::Xml) {
                xmlLayout.Append(text, item);
            } else {
                lineLayout.Append(text, item);
                text += '\n';
            }
        }
        LogLayout lineLayout;
        LogLayout xmlLayout;
    };
    struct Pending {
        QzLogItem item;
        std::shared_ptr<Formats> formats;
    };

    State() { SetDefaultSetting(); }

    void SetDefaultSetting();
    void SetFormats(const KeldMBString& line, const KeldMBString& dateTime);

    bool Takes(LogLevelType level, int code) const;
    bool HasFile() const { return m_eMode == Text || m_eMode == XML; }

    bool OpenFile(const KeldMBString& path, LogOutput::Start start);
    void StartPeriod(KeldTime now);
    KeldMBString TimeNamedPath(KeldTime now) const;

    /// What a thread hands to the write call-backs once it has left the mutex.
    struct Delivery {
        std::vector<Pending> items;
        void* dataSource = nullptr;
    };
    bool WritesFile() const { return HasFile() && m_bOpen != 0 && m_bSaveToPhysical != 0; }
    bool Append(Delivery& delivery);
    bool Write(Delivery& delivery);
    bool WriteFile();
    bool Deliver(Delivery& delivery);
    void DropOldest();
    void ReleaseBuffers();
    void DealTimeInterval();
    void DealFileSizeLimit();

    std::string Describe(int items) const;

    QzMutex m_mutex;
    std::atomic<unsigned char> m_bBlocked{0};
    std::atomic<unsigned char> m_bFilterRepeat{1};
    std::atomic<int> m_nLevel{debug};
    std::vector<int> m_arrInfoID; ///< the codes that pass any threshold; never changes

    Mode m_eMode = Text;
    unsigned char m_bOpen = 0;
    unsigned char m_bSaveToPhysical = 1;
    KeldMBString m_strLogFormat;
    KeldMBString m_strDateTimeFormat;
    std::shared_ptr<Formats> m_formats;
    int m_nFileSizeLimit = -1;
    SizeLimitMode m_eSizeLimitMode = Rolling;
    TimeInterval m_eTimeInterval = None;
    std::size_t m_nCountInMemory = 0;
    std::size_t m_nCountToDisk = 0;
    std::size_t m_nQueryMaxNum = 0;
    void* m_pDataSource = nullptr;

    LogOutput m_output;
    KeldMBString m_strDirectory; ///< the file's, with a separator at its end
    KeldMBString m_strPrefix;
    KeldMBString m_strExtension;
    unsigned char m_bDefaultName = 0;
    KeldMBString m_strNumberedPath; ///< what the names of new files are numbered from, and the last number
    int m_nFileNumber = 0;
    KeldTime m_lastPeriodCheck;
    KeldMBString m_strPeriod;

    RepeatFilter m_repeats;
    QzLogItem m_item; ///< the one being recorded; its texts keep their memory for the next one
    std::deque<Pending> m_pending;
    std::string m_buffer;
    bool m_failing = false; ///< the last write failed
};

void QzLogFile::State::SetDefaultSetting() {
    SetFormats(DefaultLogFormat, DefaultDateTimeFormat);
    m_nCountInMemory = 10000;
    m_nCountToDisk = 1;
    m_nQueryMaxNum = 1000;
    m_strPrefix = DefaultPrefix;
    const KeldMBString infoID = QzRegistry::Root().Obj("LogSetting")["InfoID"];
    if (!infoID.IsEmpty())
        m_arrInfoID.push_back(static_cast<int>(std::strtol(infoID.Cstr(), nullptr, 10)));
}

void QzLogFile::State::SetFormats(const KeldMBString& line, const KeldMBString& dateTime) {
    m_formats = std::make_shared<Formats>(line, dateTime);
    m_strLogFormat = line;
    m_strDateTimeFormat = dateTime;
}

bool QzLogFile::State::Takes(LogLevelType level, int code) const {
    if (m_bBlocked.load(std::memory_order_relaxed) != 0)
        return false;
    return level >= m_nLevel.load(std::memory_order_relaxed) || level >= error ||
           std::find(m_arrInfoID.begin(), m_arrInfoID.end(), code) != m_arrInfoID.end();
}

// ---- Files

bool QzLogFile::State::OpenFile(const KeldMBString& path, LogOutput::Start start) {
    StartPeriod(ms_clock.load()());
    m_strNumberedPath = path;
    m_nFileNumber = 0;
    return m_output.Open(path, m_eMode == XML ? LogOutput::Form::Xml : LogOutput::Form::Text, start);
}

void QzLogFile::State::StartPeriod(KeldTime now) {
    m_lastPeriodCheck = now;
    m_strPeriod = now.Format(PeriodFormat(m_eTimeInterval));
}

KeldMBString QzLogFile::State::TimeNamedPath(KeldTime now) const {
    if (m_bDefaultName != 0)
        return m_strDirectory + DefaultFileName(now);
    return m_strDirectory + m_strPrefix + now.Format("_%Y-%m-%d_%H-%M-%S") + m_strExtension;
}

void QzLogFile::State::DealTimeInterval() {
    if (m_eTimeInterval == None)
        return;
    const KeldTime now = ms_clock.load()();
    if (now == m_lastPeriodCheck)
        return;
    const KeldMBString before = m_strPeriod;
    StartPeriod(now);
    if (m_strPeriod == before)
        return;
    KeldMBString path = TimeNamedPath(now);
    int number = 0;
    if (QzFile::IsExist(path))
        path = NextNumberedName(path, number);
    OpenFile(path, LogOutput::Start::Append);
}

void QzLogFile::State::DealFileSizeLimit() {
    if (m_nFileSizeLimit <= 0 || m_output.GetLength() <= m_nFileSizeLimit)
        return;
    const LogOutput::Form form = m_output.GetForm();
    const KeldMBString path = m_output.GetPath();
    switch (m_eSizeLimitMode) {
    case Rolling:
        if (form == LogOutput::Form::Text)
            m_output.Rewind();
        break;
    case ReOpen: m_output.Open(path, form, LogOutput::Start::Afresh); break;
    case NewFile:
        m_output.Open(NextNumberedName(m_strNumberedPath, m_nFileNumber), form, LogOutput::Start::Append);
        break;
    }
}

// ---- Writing

void QzLogFile::State::DropOldest() {
    while (m_pending.size() > m_nCountInMemory)
        m_pending.pop_front();
}

// Takes m_item into the batch, and writes the batch when it is full.
bool QzLogFile::State::Append(Delivery& delivery) {
    if (m_nCountToDisk == 1 && m_pending.empty() && WritesFile()) {
        // A batch of this one item, which need not be copied to wait for others.
        DealTimeInterval();
        DealFileSizeLimit();
        m_buffer.clear();
        m_formats->AppendWhole(m_buffer, m_item, m_output.GetForm());
        m_failing = !m_output.Write(m_buffer);
        ReleaseBuffers();
        if (!m_failing)
            return true;
        m_pending.push_back({m_item, m_formats});
        return false;
    }
    m_pending.push_back({m_item, m_formats});
    return m_pending.size() < std::min(m_nCountToDisk, m_nCountInMemory) || Write(delivery);
}

// What a very long message has left behind.
void QzLogFile::State::ReleaseBuffers() {
    if (m_buffer.capacity() > 4 * WriteSize)
        m_buffer = std::string();
    if (m_item.m_strDescription.GetLength() > static_cast<int>(WriteSize))
        m_item.m_strDescription = KeldMBString();
}

// Writes to the file, or takes what the caller is to hand to the call-backs. True also when the items are to
// stay in memory.
bool QzLogFile::State::Write(Delivery& delivery) {
    bool written = true;
    if (HasFile()) {
        if (WritesFile())
            written = WriteFile();
    } else if (!t_inCallBack && (ms_writeCallBack.load() != nullptr || ms_writeCallBacks.load() != nullptr)) {
        delivery.items.assign(std::make_move_iterator(m_pending.begin()), std::make_move_iterator(m_pending.end()));
        m_pending.clear();
        delivery.dataSource = m_pDataSource;
    }
    DropOldest();
    return written;
}

bool QzLogFile::State::WriteFile() {
    if (m_pending.empty())
        return true;
    DealTimeInterval();
    DealFileSizeLimit();
    while (!m_pending.empty()) {
        // While writing fails each attempt costs one item's formatting, however many wait.
        const std::size_t size = m_failing ? 1 : WriteSize;
        m_buffer.clear();
        std::size_t count = 0;
        while (count < m_pending.size() && m_buffer.size() < size) {
            Pending& pending = m_pending[count++];
            pending.formats->AppendWhole(m_buffer, pending.item, m_output.GetForm());
        }
        m_failing = !m_output.Write(m_buffer);
        if (m_failing)
            return false;
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(count));
    }
    ReleaseBuffers();
    return true;
}

// Outside the mutex. What the call-backs do not take goes back into memory.
bool QzLogFile::State::Deliver(Delivery& delivery) {
    if (delivery.items.empty())
        return true;
    const auto takeAll = ms_writeCallBacks.load();
    const auto takeOne = ms_writeCallBack.load();
    auto left = delivery.items.begin();
    {
        const CallBackScope scope;
        if (takeAll != nullptr) {
            KeldArray<QzLogItem> items;
            for (const Pending& pending : delivery.items)
                items.Add(pending.item);
            if (takeAll(delivery.dataSource, items) != 0)
                left = delivery.items.end();
        } else if (takeOne != nullptr) {
            while (left != delivery.items.end() && takeOne(delivery.dataSource, left->item) != 0)
                ++left;
        }
    }
    if (left == delivery.items.end())
        return true;
    const LogGuard guard(m_mutex);
    m_pending.insert(m_pending.begin(), std::make_move_iterator(left), std::make_move_iterator(delivery.items.end()));
    DropOldest();
    return false;
}

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
    const KeldTime now = ms_clock.load()();
    const KeldMBString file = AbsolutePath(QzFile::GetAbsolutePath(path, name.IsEmpty() ? DefaultFileName(now) : name));
    state.m_eMode = mode;
    state.m_eTimeInterval = interval;
    state.m_bDefaultName = name.IsEmpty() ? 1 : 0;
    QzFile::SplitPath(file, state.m_strDirectory, state.m_strPrefix, state.m_strExtension);
    if (name.IsEmpty())
        state.m_strPrefix = DefaultPrefix;
    state.m_failing = false;
    const auto start = append != 0 ? LogOutput::Start::Append : LogOutput::Start::Afresh;
    state.m_bOpen = state.OpenFile(file, start) ? 1 : 0;
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
    if (const auto callBack = ms_openCallBack.load()) {
        const CallBackScope scope;
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
    if (const auto callBack = ms_closeCallBack.load(); callBack != nullptr && usesCallBacks) {
        const CallBackScope scope;
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
    const auto echo = t_inCallBack ? nullptr : ms_callBack.load();
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
        item.m_dtDateTime = ms_clock.load()();
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
        const CallBackScope scope;
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

// ---- Settings

void QzLogFile::SetLevel(LogLevelType level) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nLevel = level;
}

QzLogFile::LogLevelType QzLogFile::GetLevel() const {
    return static_cast<LogLevelType>(m_state->m_nLevel.load());
}

void QzLogFile::SetBlocked(unsigned char blocked) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bBlocked = blocked;
}

unsigned char QzLogFile::IsBlocked() const {
    return m_state->m_bBlocked;
}

void QzLogFile::SetLogFormat(const KeldMBString& format) {
    const LogGuard guard(m_state->m_mutex);
    m_state->SetFormats(format, m_state->m_strDateTimeFormat);
}

KeldMBString QzLogFile::GetLogFormat() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_strLogFormat;
}

void QzLogFile::SetRecordOnlyLog() {
    SetLogFormat("%MSG");
}

KeldMBString QzLogFile::GetXMLLogFormat() const {
    return XmlFormatFor(GetLogFormat());
}

void QzLogFile::SetDateTimeFormat(const KeldMBString& format) {
    const LogGuard guard(m_state->m_mutex);
    m_state->SetFormats(m_state->m_strLogFormat, format);
}

KeldMBString QzLogFile::GetDateTimeFormat() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_strDateTimeFormat;
}

void QzLogFile::SetFileSizeLimit(int bytes, SizeLimitMode mode) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nFileSizeLimit = bytes;
    m_state->m_eSizeLimitMode = mode;
}

int QzLogFile::GetFileSizeLimit() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_nFileSizeLimit;
}

QzLogFile::SizeLimitMode QzLogFile::GetSizeLimitMode() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_eSizeLimitMode;
}

void QzLogFile::SetTimeInterval(TimeInterval interval) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_eTimeInterval = interval;
    m_state->StartPeriod(ms_clock.load()());
}

QzLogFile::TimeInterval QzLogFile::GetTimeInterval() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_eTimeInterval;
}

void QzLogFile::SetLogCountInMemory(int count) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nCountInMemory = static_cast<std::size_t>(std::max(count, 1));
}

void QzLogFile::SetLogCountToDisk(int count) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nCountToDisk = static_cast<std::size_t>(std::max(count, 1));
}

void QzLogFile::SetQueryMaxNum(int count) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nQueryMaxNum = static_cast<std::size_t>(std::max(count, 0));
}

void QzLogFile::SetSaveToPhysical(unsigned char save) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bSaveToPhysical = save;
}

void QzLogFile::SetFilterRepeat(unsigned char filter) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bFilterRepeat = filter;
}

QzLogFile::Mode QzLogFile::GetMode() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_eMode;
}

KeldMBString QzLogFile::GetPrefix() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_strPrefix;
}

KeldMBString QzLogFile::GetFileName() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_output.GetPath();
}

// ---- Call-backs

void QzLogFile::SetCallBack(void (*callBack)(const char*)) {
    ms_callBack = callBack;
}

void QzLogFile::SetOpenCallBack(unsigned char (*callBack)(void*, const char*)) {
    ms_openCallBack = callBack;
}

void QzLogFile::SetWriteCallBack(unsigned char (*callBack)(void*, const QzLogItem&)) {
    ms_writeCallBack = callBack;
}

void QzLogFile::SetWriteCallBacks(unsigned char (*callBack)(void*, const KeldArray<QzLogItem>&)) {
    ms_writeCallBacks = callBack;
}

void QzLogFile::SetCloseCallBack(void (*callBack)(void*)) {
    ms_closeCallBack = callBack;
}

// ---- Reading back

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
                ReadXmlLog(file, state.m_strDateTimeFormat, take);
            } else if (readable) {
                // In a file that is being overwritten the oldest items stand behind the newest.
                const std::int64_t position = state.m_output.GetPosition();
                ReadTextLog(file, position, file.GetLength(), state.m_formats->lineLayout, take);
                ReadTextLog(file, 0, position, state.m_formats->lineLayout, take);
            }
        }
        for (const State::Pending& pending : state.m_pending) {
            QzLogItem item = pending.item;
            take(item);
        }
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
    if (!output.Open(AbsolutePath(file), form, LogOutput::Start::Afresh))
        return 0;
    std::string text;
    for (const QzLogItem& item : items) {
        m_state->m_formats->AppendWhole(text, item, form);
        if (text.size() >= WriteSize) {
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

std::string QzLogFile::State::Describe(int items) const {
    KeldMBString text;
    text.Format("log %s, mode %s, level %d%s\n"
                "file \"%s\", %lld bytes, limit %d (%s), interval %d\n"
                "line format \"%s\", date-time format \"%s\"\n"
                "%zu items pending (batch %zu, at most %zu)%s\n",
                m_bOpen != 0 ? "open" : "closed", ModeNames[m_eMode].name, m_nLevel.load(),
                m_bBlocked != 0 ? ", blocked" : "", m_output.GetPath().Cstr(),
                static_cast<long long>(m_output.GetLength()), m_nFileSizeLimit,
                SizeLimitModeNames[m_eSizeLimitMode].name, static_cast<int>(m_eTimeInterval), m_strLogFormat.Cstr(),
                m_strDateTimeFormat.Cstr(), m_pending.size(), m_nCountToDisk, m_nCountInMemory,
                m_failing ? ", writing fails" : "");
    std::string description(text.View());
    const std::size_t count = std::min(static_cast<std::size_t>(std::max(items, 0)), m_pending.size());
    for (std::size_t i = m_pending.size() - count; i < m_pending.size(); ++i) {
        m_pending[i].formats->lineLayout.Append(description, m_pending[i].item);
        description += '\n';
    }
    return description;
}

// ---- Names and values

QzLogFile::LogLevelType QzLogFile::GetLevelAsEnum(const KeldMBString& name) {
    return ValueOf(LevelNames, name, error);
}

KeldMBString QzLogFile::GetLevelAsString(LogLevelType level) {
    const char* const name = LevelName(level);
    KELDASSERT_TEXT(name != nullptr, "unknown log level");
    return name != nullptr ? name : "unknown";
}

QzLogFile::Mode QzLogFile::GetModeAsEnum(const KeldMBString& name) {
    return ValueOf(ModeNames, name, Text);
}

QzLogFile::TimeInterval QzLogFile::GetTimeIntervalAsEnum(const KeldMBString& name) {
    return ValueOf(TimeIntervalNames, name, None);
}

QzLogFile::SizeLimitMode QzLogFile::GetSizeLimitModeAsEnum(const KeldMBString& name) {
    return name.IsEmpty() ? Rolling : ValueOf(SizeLimitModeNames, name, Rolling);
}

} // namespace Qzc
