// The log's file beside spdlog's synchronous file sink: the same fields, settings and messages, one file
// each.

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "ratio.h"
#include "toolkit/qzlogfile.h"

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

class Ours {
public:
    static void Open(int batch) {
        QzLogFile& log = QzLogFile::GetInstance(false);
        log.Open(KeldMBString((Directory() / "ours.log").string()), 0);
        log.SetLogCountToDisk(batch);
    }
    static void Record(const KeldMBString& message, int line) {
        QzLogFile::GetInstance(false).RecordLog(QzLogFile::warning, Code, message, SourceName(), line);
    }
    static void Close() { QzLogFile::GetInstance(false).Close(); }
};

class Spdlog {
public:
    // It has no message code; that is put in front of the message. %e, the millisecond, is its time span.
    static void Open(int batch) {
        s_logger = std::make_shared<spdlog::logger>(
            "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>((Directory() / "spdlog.log").string(), true));
        s_logger->set_pattern("%Y-%m-%d %H:%M:%S| %6e| %5t| %7l| %v| %s(%#)");
        s_logger->flush_on(batch == 1 ? spdlog::level::trace : spdlog::level::off);
        s_batch = batch;
    }
    static void Record(const KeldMBString& message, int line) {
        thread_local int t_count = 0;
        s_logger->log(spdlog::source_loc{SourceFile, line, "Draw"}, spdlog::level::warn, "{:6}| {}", Code,
                      std::string_view(message.View()));
        if (s_batch > 1 && ++t_count % s_batch == 0)
            s_logger->flush();
    }
    static void Close() { s_logger.reset(); }

private:
    inline static std::shared_ptr<spdlog::logger> s_logger;
    inline static int s_batch = 1;
};

template <class Log>
void RecordItems(benchmark::State& state) {
    if (state.thread_index() == 0)
        Log::Open(static_cast<int>(state.range(0)));
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
void Register(const std::string& name) {
    const auto add = [](const std::string& title, int batch, int threads) {
        benchmark::RegisterBenchmark(title.c_str(), RecordItems<Log>)->Arg(batch)->Threads(threads)->UseRealTime();
    };
    add("log/every line flushed/" + name, 1, 1);
    add("log/batches/" + name, Batch, 1);
    add("log/every line flushed/" + name, 1, 2);
    add("log/batches/" + name, Batch, 2);
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
