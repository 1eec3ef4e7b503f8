// Queries of a log file beside what a line scan costs that knows nothing of items: the file read in blocks, lines
// found with memchr and searched with memmem's like.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ratio.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"

using namespace Qzc;

namespace {

constexpr int ItemCount = 500000;
constexpr std::size_t Most = 1000;
constexpr std::string_view Rare = "Layer 499999 ";

std::filesystem::path Directory() {
    return std::filesystem::temp_directory_path() / "motoolkit-logquery-bench";
}

std::string PathOf(QzLogFile::Mode mode) {
    return (Directory() / (mode == QzLogFile::XML ? "items.xml" : "items.log")).string();
}

// A second passes every three items.
void WriteLog(QzLogFile::Mode mode) {
    QzLogItem item;
    item.m_nThreadID = 4711;
    item.m_eLevel = QzLogFile::warning;
    item.m_strCodeFile = "src/viewer/layer.cpp";
    QzLogFile& log = QzLogFile::GetInstance(false);
    log.Open(KeldMBString((Directory() / "open.log").string()), 0, mode);
    KeldArray<QzLogItem> items;
    for (int i = 0; i < ItemCount; ++i) {
        item.m_dtDateTime = KeldTime(1795224896 + i / 3);
        item.m_nTimeSpan = i * 333;
        item.m_nResID = i % 1000;
        item.m_nCodeLine = i % 3000;
        item.m_strDescription.Format("Layer %d of the map cannot be drawn: the data source is gone", i);
        items.Add(item);
    }
    log.SaveQueryResult(items, KeldMBString(PathOf(mode)));
    log.Close();
}

void Check(benchmark::State& state, bool right) {
    if (!right)
        state.SkipWithError("wrong result");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(
                                                     PathOf(static_cast<QzLogFile::Mode>(state.range(0))))));
}

void Query(benchmark::State& state, const QzLogQueryDef& query, std::size_t expected) {
    const KeldMBString path(PathOf(static_cast<QzLogFile::Mode>(state.range(0))));
    KeldArray<QzLogItem> items;
    bool right = true;
    for (auto _ : state)
        right = QzLogFile::QueryFile(path, query, items) == 1 && items.GetSize() == static_cast<int>(expected) && right;
    Check(state, right);
}

void QueryText(benchmark::State& state) {
    QzLogQueryDef query;
    query.m_strText = KeldMBString(Rare);
    Query(state, query, 1);
}

void QueryTime(benchmark::State& state) {
    QzLogQueryDef query;
    query.m_dtTo = KeldTime(1795224896);
    Query(state, query, 3);
}

void QueryNewest(benchmark::State& state) {
    Query(state, QzLogQueryDef(), Most);
}

// Calls `take` with each line, until it gives false.
template <class Take>
void ForEachLine(const std::string& path, Take take) {
    constexpr std::size_t BlockSize = 1 << 17;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    std::vector<char> bytes(2 * BlockSize);
    std::size_t kept = 0;
    while (const std::size_t got = std::fread(bytes.data() + kept, 1, BlockSize, file.get())) {
        const char* line = bytes.data();
        const char* const end = line + kept + got;
        while (const void* const found = std::memchr(line, '\n', static_cast<std::size_t>(end - line))) {
            const char* const next = static_cast<const char*>(found) + 1;
            take(std::string_view(line, static_cast<std::size_t>(next - line)));
            line = next;
        }
        kept = static_cast<std::size_t>(end - line);
        std::memmove(bytes.data(), line, kept);
    }
}

void ScanText(benchmark::State& state) {
    const std::string path = PathOf(static_cast<QzLogFile::Mode>(state.range(0)));
    int count = 0;
    for (auto _ : state) {
        count = 0;
        ForEachLine(path, [&](std::string_view line) { count += line.find(Rare) != std::string_view::npos ? 1 : 0; });
    }
    Check(state, count == 1);
}

void ScanLines(benchmark::State& state) {
    const std::string path = PathOf(static_cast<QzLogFile::Mode>(state.range(0)));
    std::vector<std::string> newest(Most);
    int count = 0;
    for (auto _ : state) {
        count = 0;
        ForEachLine(path, [&](std::string_view line) { newest[static_cast<std::size_t>(count++) % Most] = line; });
    }
    Check(state, count >= ItemCount);
}

// What is most often written: a line at a time from a stream.
void StreamText(benchmark::State& state) {
    const std::string path = PathOf(static_cast<QzLogFile::Mode>(state.range(0)));
    int count = 0;
    for (auto _ : state) {
        count = 0;
        std::ifstream file(path, std::ios::binary);
        for (std::string line; std::getline(file, line);)
            count += line.find(Rare) != std::string::npos ? 1 : 0;
    }
    Check(state, count == 1);
}

} // namespace

int main(int argc, char** argv) {
    std::error_code failed;
    std::filesystem::create_directory(Directory(), failed);
    for (const QzLogFile::Mode mode : {QzLogFile::Text, QzLogFile::XML}) {
        WriteLog(mode);
        const std::string form = mode == QzLogFile::XML ? " of XML/" : " of text/";
        const auto add = [&](const std::string& name, void (*run)(benchmark::State&)) {
            benchmark::RegisterBenchmark(name.c_str(), run)->Arg(mode);
        };
        add("logquery/one text in all" + form + "QzLogFile", QueryText);
        add("logquery/one text in all" + form + "memchr lines", ScanText);
        add("logquery/one text in all" + form + "std::getline", StreamText);
        add("logquery/first second" + form + "QzLogFile", QueryTime);
        add("logquery/first second" + form + "memchr lines", ScanText);
        add("logquery/last 1000" + form + "QzLogFile", QueryNewest);
        add("logquery/last 1000" + form + "memchr lines", ScanLines);
    }
    const int result = Bench::Run(argc, argv);
    std::filesystem::remove_all(Directory(), failed);
    return result;
}
