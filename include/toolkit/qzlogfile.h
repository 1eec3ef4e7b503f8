#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

class QzLogItem;
class QzLogQueryDef;

/// The library's one log. Every failure that its caller's result alone does not tell is recorded here:
///     QzLogFile::GetInstance(true).SetLevel(QzLogFile::info);
///     QzLogFile::GetInstance(false).RecordLog(QzLogFile::error, 17, "No such map", "viewer", __LINE__);
///
/// Items are collected in memory and written in batches, to a text file or an XML file, or handed to
/// call-backs (docs/log.md has the formats). With the default batch of one item, an item is with the
/// operating system when RecordLog returns: ending the process, by whatever means, loses none. What cannot be
/// written (no file is open, the disk is full, the directory is gone) waits in memory, the oldest dropped
/// when there are too many, and is written as soon as writing works again, behind a line that says how many
/// were lost.
///
/// Several processes may have one file open, and the children of a fork go on logging: every item that was
/// acknowledged is in the file, whole. A file that somebody renames is let go within half a second or a batch,
/// one that is removed at once, and a new one of its name is made; a file that is cut off is gone on with from
/// its new end. docs/log.md tells how, and where it ends.
///
/// Text is in the current charset, but a message may hold any bytes. Any thread may call any operation; one
/// mutex guards all of it. Call-backs run outside the mutex, possibly in several threads at once, and may
/// use the log; what they record is written to the log's file, or waits for the next batch, but is not
/// handed to a call-back by that same call. Nothing throws; a call-back that does has refused. Results are booleans (1:
/// done) unless stated.
class MOTOOLKIT_API QzLogFile {
public:
    /// How grave an item is.
    enum LogLevelType : int { debug = 100, info = 200, warning = 300, error = 400, fatal = 500 };

    /// Where the items go.
    enum Mode : int {
        Text = 0,     ///< a line per item
        XML = 1,      ///< an element per item; the file is a well-formed document between any two writes
        Database = 2, ///< handed to the write call-backs, with the data source
        Memory = 3    ///< handed to the write call-backs; kept in memory where there are none
    };

    /// When the log goes on in a new file: at the first write after the local hour, day, week (it starts on
    /// Monday) or month has changed. The file is named by the time: NAME_2026-11-21_09-00-01.log.
    enum TimeInterval : int { None = 0, Hour = 1, Day = 2, Week = 3, Month = 4 };

    /// What happens before a write when the file is longer than the limit.
    enum SizeLimitMode : int {
        Rolling = 0, ///< text: the write goes to the file's start, over the oldest lines, whoever wrote them: for
                     ///< files that one process has; XML: nothing
        ReOpen = 1,  ///< the file starts afresh
        NewFile = 2  ///< the log goes on in NAME(1).log, NAME(2).log...; existing files are left alone
    };

    /// The process's log, made on first use. With `open`, a text log of the default name is opened in the
    /// current directory unless a log is open. What is pending when the process exits is written then.
    static QzLogFile& GetInstance(bool open);

    QzLogFile(const QzLogFile&) = delete;
    QzLogFile& operator=(const QzLogFile&) = delete;

    // ---- Opening: closes what was open before. On failure nothing is open.
    //
    // An existing file is added to unless `append` is 0, which empties it. An XML file that is no log in the
    // current charset is not added to (0). The default file name is made of the current time:
    // Zp2026-11-21_09-22-56.log. Such a file is new: where another program has made it, the name is numbered. A
    // path with a zero byte, to a directory or to what has no position (a pipe) is refused; a symbolic link that
    // leads nowhere counts as its target, which is made.

    /// A file `name` in the directory `path`, each of which may be empty: the default name, the current
    /// directory. Directories are not created.
    unsigned char Open(const KeldMBString& path, const KeldMBString& name, TimeInterval interval = None,
                       Mode mode = Text, unsigned char append = 1);
    unsigned char Open(const KeldMBString& file, unsigned char append = 1, Mode mode = Text);
    /// The file of the default name; in the modes without a file, call-backs alone.
    unsigned char Open(Mode mode);
    /// Mode `Database`: the source and the name go to the open call-back, whose result is the result.
    unsigned char Open(void* dataSource, const KeldMBString& name);

    /// Writes what is pending and closes. With `sync`, also waits until the file is on the storage device.
    /// 0 when something could not be written; it stays pending.
    unsigned char Close(unsigned char sync = 0);
    unsigned char IsOpen() const;
    /// Lets go of the file and goes on in the one that now has its name, made when missing: for a program that is
    /// told that its log was rotated. Not from a signal handler, which sets a flag for this. 0 when no file is
    /// open, or none can be opened; the next write tries again.
    unsigned char Reopen();
    unsigned char Flush(); ///< writes what is pending; 0 when that fails or there is nothing to write to

    // ---- Recording

    /// Records one item. Levels from `error` on are recorded whatever the threshold, as are the codes that
    /// the configuration names (LogSetting/InfoID); they also go to QzErrorObj.
    ///
    /// 0 when the item was not recorded (the log is blocked, the level is below the threshold, the item is a
    /// repeat), and when it is in memory but could not be written.
    unsigned char RecordLog(LogLevelType level, int code, const KeldMBString& message, const KeldMBString& codeFile,
                            int codeLine);
    unsigned char RecordLog(LogLevelType level, int code, const KeldMBString& message);
    unsigned char RecordLog(LogLevelType level, const KeldMBString& message);
    unsigned char RecordLog(const KeldMBString& message); ///< level `info`

    /// Whether an item of the level would pass the threshold and the block, at the cost of reading one number. The
    /// macros of toolkit/qzlogmacros.h ask it before anything else.
    static bool IsEnabled(LogLevelType level) { return level >= ms_nThreshold.load(std::memory_order_relaxed); }
    /// The same for a code that may be one of those that are always recorded.
    static bool IsEnabled(LogLevelType level, int code) {
        return IsEnabled(level) || (ms_bHasCodes.load(std::memory_order_relaxed) && IsAlwaysRecorded(code));
    }
    /// RecordLog with the text that printf would make of the arguments. A format that holds nothing but plain
    /// conversions, such as %d, %s and %.2f, prints a decimal point in any locale, others the locale's own.
    unsigned char RecordFormat(LogLevelType level, int code, const char* codeFile, int codeLine, const char* format,
                               ...) KELD_PRINTF(6, 7);

    // ---- Settings: act from the next item on

    void SetLevel(LogLevelType level); ///< the threshold; default `debug`, which records everything
    LogLevelType GetLevel() const;
    void SetBlocked(unsigned char blocked); ///< a blocked log records nothing, errors included
    unsigned char IsBlocked() const;

    /// A line's text, with the placeholders %DATETIME, %TIMESPAN, %LEVEL, %MSG, %RESID, %THREADID, %CODEFILE
    /// and %CODELINE, and also %MS (the milliseconds of %DATETIME's second, 3 digits) and %PID. Default:
    /// "%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)".
    void SetLogFormat(const KeldMBString& format);
    KeldMBString GetLogFormat() const;
    void SetRecordOnlyLog(); ///< the line format "%MSG"
    /// An XML item with the placeholders of the line format; the elements of the others are empty.
    KeldMBString GetXMLLogFormat() const;
    /// strftime's; default "%Y-%m-%d %H:%M:%S". One that could not be read back by Query is refused, which the trace
    /// output tells.
    void SetDateTimeFormat(const KeldMBString& format);
    KeldMBString GetDateTimeFormat() const;
    void SetUtc(unsigned char utc); ///< times in items and file names, and the intervals, are UTC; default local
    unsigned char IsUtc() const;

    void SetFileSizeLimit(int bytes, SizeLimitMode mode = Rolling); ///< 0 or less (default -1): none
    int GetFileSizeLimit() const;
    SizeLimitMode GetSizeLimitMode() const;      ///< what happens at the limit
    void SetTimeInterval(TimeInterval interval); ///< when the log goes on in a new file; default `None`
    TimeInterval GetTimeInterval() const;
    /// When a file is opened or gone on in, the oldest of the log's other files are removed until no more of them
    /// and of their bytes are left; 0 (default): no limit. They are told by their names, whoever made them, but one
    /// that a log has open stays.
    void SetRetention(int files, long long bytes);

    /// What may wait in memory (default 10000), at least 1. Nor do more than 64 MiB wait, but for a single item.
    void SetLogCountInMemory(int count);
    void SetLogCountToDisk(int count);          ///< the batch (default 1); no more than the above
    void SetQueryMaxNum(int count);             ///< what a query gives at most (default 1000)
    void SetSaveToPhysical(unsigned char save); ///< 0: nothing is written to the file, all stays in memory

    /// Drops repeats (default): an item with the message, source file and line of the one before, and the
    /// sixth of a message from one source position within the last 1000 items. For the latter a sum of hash codes
    /// stands for message and position, so different items may rarely meet in one.
    void SetFilterRepeat(unsigned char filter);
    void SetReportRepeats(unsigned char report); ///< an item tells how many were dropped before it; default off

    Mode GetMode() const;             ///< where the items go
    KeldMBString GetPrefix() const;   ///< the base name that a file was opened under, "Log" for the default
    KeldMBString GetFileName() const; ///< the absolute path of the file that is written; empty without one

    // ---- Call-backs, one each for the process; null takes one away

    /// Is shown every recorded item as a line of text.
    static void SetCallBack(void (*callBack)(const char* line));
    /// A log of mode `Database` or `Memory` is being opened; 0 refuses.
    static void SetOpenCallBack(unsigned char (*callBack)(void* dataSource, const char* name));
    /// Takes an item, in the modes `Database` and `Memory`; 0 leaves it, and those behind it, in memory.
    static void SetWriteCallBack(unsigned char (*callBack)(void* dataSource, const QzLogItem& item));
    /// The same for a batch, which is taken or left as a whole. Goes before the one for single items.
    static void SetWriteCallBacks(unsigned char (*callBack)(void* dataSource, const KeldArray<QzLogItem>& items));
    /// The log that the open call-back was told of is being closed.
    static void SetCloseCallBack(void (*callBack)(void* dataSource));

    // ---- Reading back

    /// The newest items that match, in memory and in the open file, newest last. A text file is read by the current
    /// line and date-time formats: lines that do not fit them count to the message before. Recording goes on meanwhile;
    /// what comes behind the call is not found. The file is read from its end, and no further than it takes.
    ///
    /// 0 when something was left out: a file that cannot be read, an item that memory does not hold, what lies behind
    /// the point where the query's call-back stopped it. The result is what was found all the same.
    unsigned char Query(const QzLogQueryDef& query, KeldArray<QzLogItem>& items);

    /// The same in any log's file, whether it is open or not, and without what is in memory. By its start it is an XML
    /// log, or lines in the current formats. What was rolled over is looked for by the file's own name.
    static unsigned char QueryFile(const KeldMBString& path, const QzLogQueryDef& query, KeldArray<QzLogItem>& items);

    /// Shows each item that matches to `visit`, which ends it with 0, instead of keeping them: for files of any length.
    /// File by file, the newest first, and in each the newest item first. 0 as QueryFile.
    static unsigned char VisitFile(const KeldMBString& path, const QzLogQueryDef& query,
                                   unsigned char (*visit)(void* context, const QzLogItem& item), void* context);

    /// Is told every now and then how many bytes a query has read of those that there are; 0 stops it. Runs in the
    /// thread that queries.
    static void SetQueryCallBack(unsigned char (*callBack)(void* context, long long done, long long total),
                                 void* context);

    /// Writes items to a file of their own, which is emptied first: an XML log in that mode, else lines. The log's own
    /// file is refused (0).
    unsigned char SaveQueryResult(const KeldArray<QzLogItem>& items, const KeldMBString& file) const;

    void Dump(int items) const; ///< sends the settings and the newest pending items to the trace output

    // ---- Names and values. Names compare without regard to case; an unknown one raises the assertion.

    static LogLevelType GetLevelAsEnum(const KeldMBString& name);          ///< unknown: `error`
    static KeldMBString GetLevelAsString(LogLevelType level);              ///< unknown: assertion, then "unknown"
    static Mode GetModeAsEnum(const KeldMBString& name);                   ///< unknown: `Text`
    static TimeInterval GetTimeIntervalAsEnum(const KeldMBString& name);   ///< unknown: `None`
    static SizeLimitMode GetSizeLimitModeAsEnum(const KeldMBString& name); ///< unknown, empty: `Rolling`

private:
    friend class QzLogFollower; // asks for what it asks
    struct State;

    QzLogFile();
    ~QzLogFile();

    static bool IsAlwaysRecorded(int code);
    unsigned char RecordAt(LogLevelType level, int code, const KeldMBString& message, std::string_view codeFile,
                           int codeLine);
    unsigned char OpenCallBacks(Mode mode, void* dataSource, const KeldMBString& name);

    static std::atomic<int> ms_nThreshold; ///< what passes for sure
    static std::atomic<bool> ms_bHasCodes; ///< that pass any threshold

    std::unique_ptr<State> m_state;
};

} // namespace Qzc
