// The log's file beside spdlog's synchronous file sinks: the same fields, settings and messages, one file
// each.

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include "ratio.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogmacros.h"

using namespace Qzc;

namespace {

constexpr int MessageCount = 4096; // distinct, so that the log's repeat filter lets all of them pass
constexpr int Batch = 1000;
constexpr int Code = 4711;
constexpr const char* SourceFile = "src/viewer/layer.cpp";

std::filesystem::path Directory() {
    return std::filesystem::temp_directory_path() / "motoolkit-log-bench";
}

const std::vector<KeldMBString>& Messages() {
    static const std::vector<KeldMBString> s_messages = [] {
        std::vector<KeldMBString> messages(MessageCount);
        for (int i = 0; i < MessageCount; ++i)
            messages[static_cast<std::size_t>(i)].Format("Layer %d of the map cannot be drawn: the data source is gone",
                                                         i);
        return messages;
    }();
    return s_messages;
}

const KeldMBString& SourceName() {
    static const KeldMBString s_name(SourceFile);
    return s_name;
}

struct Setting {
    int batch;
    bool limited; // in size; the limit is reached a few times
};

constexpr int SizeLimit = 1 << 24;

class Ours {
public:
    static void Open(Setting setting) {
        QzLogFile& log = QzLogFile::GetInstance(false);
        log.Open(KeldMBString((Directory() / "ours.log").string()), 0);
        log.SetLogCountToDisk(setting.batch);
        log.SetFileSizeLimit(setting.limited ? SizeLimit : -1, QzLogFile::NewFile);
        log.SetRetention(2, 0);
        log.SetLevel(QzLogFile::info);
    }
    static void Record(const KeldMBString& message, int line) {
        QzLogFile::GetInstance(false).RecordLog(QzLogFile::warning, Code, message, SourceName(), line);
    }
    static void Text(int number) {
        QZ_LOG_WARNING(Code, "Layer %d of the map %s cannot be drawn: the data source is gone", number, "Rivers");
    }
    static void Doubles(int number) {
        QZ_LOG_WARNING(Code, "Layer %d of the map lies at %f, %f", number, 100.25 + number * 0.37,
                       35.5 - number * 0.11);
    }
    static void Disabled(int number) { QZ_LOG_DEBUG(Code, "Layer %d of the map %s is drawn", number, "Rivers"); }
    static void Close() {
        QzLogFile& log = QzLogFile::GetInstance(false);
        log.Close();
        log.SetLevel(QzLogFile::debug);
    }
};

class Spdlog {
public:
    // It has no message code; that is put in front of the message. %e, the millisecond, is its time span.
    static void Open(Setting setting) {
        const std::string file = (Directory() / "spdlog.log").string();
        spdlog::sink_ptr sink;
        if (setting.limited)
            sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(file, SizeLimit, 2, true);
        else
            sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(file, true);
        s_logger = std::make_shared<spdlog::logger>("bench", sink);
        s_logger->set_pattern("%Y-%m-%d %H:%M:%S| %6e| %5t| %7l| %v| %s(%#)");
        s_logger->flush_on(setting.batch == 1 ? spdlog::level::trace : spdlog::level::off);
        s_logger->set_level(spdlog::level::info);
        s_batch = setting.batch;
    }
    static void Record(const KeldMBString& message, int line) {
        s_logger->log(spdlog::source_loc{SourceFile, line, "Draw"}, spdlog::level::warn, "{:6}| {}", Code,
                      std::string_view(message.View()));
        FlushBatch();
    }
    static void Text(int number) {
        s_logger->log(Here(), spdlog::level::warn,
                      "{:6}| Layer {} of the map {} cannot be drawn: the data source is gone", Code, number, "Rivers");
        FlushBatch();
    }
    static void Doubles(int number) {
        s_logger->log(Here(), spdlog::level::warn, "{:6}| Layer {} of the map lies at {}, {}", Code, number,
                      100.25 + number * 0.37, 35.5 - number * 0.11);
        FlushBatch();
    }
    static void Disabled(int number) {
        s_logger->log(Here(), spdlog::level::debug, "{:6}| Layer {} of the map {} is drawn", Code, number, "Rivers");
    }
    static void Close() { s_logger.reset(); }

private:
    static spdlog::source_loc Here() { return {__FILE__, __LINE__, "Draw"}; }
    static void FlushBatch() {
        thread_local int t_count = 0;
        if (s_batch > 1 && ++t_count % s_batch == 0)
            s_logger->flush();
    }

    inline static std::shared_ptr<spdlog::logger> s_logger;
    inline static int s_batch = 1;
};

template <class Log>
void RecordItems(benchmark::State& state, Setting setting) {
    if (state.thread_index() == 0)
        Log::Open(setting);
    const std::vector<KeldMBString>& messages = Messages();
    std::size_t i = static_cast<std::size_t>(state.thread_index()) * 2048;
    for (auto _ : state) {
        Log::Record(messages[i % MessageCount], static_cast<int>(i));
        ++i;
    }
    if (state.thread_index() == 0)
        Log::Close();
}

template <class Log>
void Print(benchmark::State& state, void (*print)(int)) {
    Log::Open({Batch, false});
    int i = 0;
    for (auto _ : state)
        print(++i);
    Log::Close();
}

template <class Log>
void Register(const std::string& name) {
    const auto add = [&](const std::string& title, Setting setting, int threads) {
        benchmark::RegisterBenchmark((title + name).c_str(), RecordItems<Log>, setting)
            ->Threads(threads)
            ->UseRealTime();
    };
    add("log/every line flushed/", {1, false}, 1);
    add("log/batches/", {Batch, false}, 1);
    add("log/every line flushed/", {1, false}, 2);
    add("log/batches/", {Batch, false}, 2);
    add("log/every line flushed, size limit/", {1, true}, 1);
    add("log/batches, size limit/", {Batch, true}, 1);
    const auto addPrint = [&](const std::string& title, void (*print)(int)) {
        benchmark::RegisterBenchmark((title + name).c_str(), Print<Log>, print)->UseRealTime();
    };
    addPrint("log/below the level/", Log::Disabled);
    addPrint("log/printed into batches/text and whole numbers/", Log::Text);
    addPrint("log/printed into batches/floating-point numbers/", Log::Doubles);
}

} // namespace

int main(int argc, char** argv) {
    std::error_code failed;
    std::filesystem::create_directory(Directory(), failed);
    Messages();
    Register<Ours>("QzLogFile");
    Register<Spdlog>("spdlog");
    const int result = Bench::Run(argc, argv);
    std::filesystem::remove_all(Directory(), failed);
    return result;
}
