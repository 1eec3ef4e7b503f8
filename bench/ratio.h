#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

/// What all benchmark programs share: they measure a class of this toolkit and its peers side by side, and
/// print the ratios. Absolute times depend on the machine and its load, so only ratios are worth comparing.
///
/// A benchmark is registered under the name "<work>/<input>/<contender>". Contenders of one work and input
/// form a group. The one whose name starts with "Qz" is ours; the others are measured against it:
///     BENCHMARK(Lock)->Name("lock/uncontended/QzMutex");
///     BENCHMARK(StdLock)->Name("lock/uncontended/std::mutex");
///     int main(int argc, char** argv) { return Bench::Run(argc, argv); }
/// Arguments and thread counts that the library appends to the name make groups of their own. CPU time
/// counts, or real time where the benchmark asks for it with UseRealTime().
namespace Bench {

struct Figure {
    std::string contender;
    double value;
};

inline bool IsOurs(std::string_view contender) {
    return contender.substr(0, 2) == "Qz";
}

/// One group: each contender's value, and ours divided by it.
inline void PrintRatios(const std::string& title, const char* unit, const std::vector<Figure>& figures) {
    const auto ours =
        std::find_if(figures.begin(), figures.end(), [](const Figure& figure) { return IsOurs(figure.contender); });
    std::printf("\n%s\n", title.c_str());
    for (const Figure& figure : figures) {
        std::printf("  %-24s %10.2f %s", figure.contender.c_str(), figure.value, unit);
        if (ours != figures.end() && !IsOurs(figure.contender))
            std::printf("  %6.2f", ours->value / figure.value);
        std::printf("\n");
    }
}

/// The library's console output in the order of registration (it runs the benchmarks in a random one), and
/// then the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const bool repetition = run.run_type == Run::RT_Iteration;
            if (run.error_occurred)
                m_failed = true;
            else if (repetition)
                AddRepetition(run);
            if (run.error_occurred || (repetition ? run.repetitions == 1 : run.aggregate_name == "median"))
                m_shown.push_back(run);
        }
    }

    /// Whether every benchmark ran.
    bool Print() {
        std::stable_sort(m_shown.begin(), m_shown.end(),
                         [](const Run& a, const Run& b) { return Order(a) < Order(b); });
        if (!m_shown.empty())
            ConsoleReporter::ReportRuns(m_shown);
        std::vector<std::string> groups; // in the order of registration
        std::map<std::string, std::vector<Figure>> figures;
        for (auto& [order, contender] : m_contenders) {
            if (figures.count(contender.group) == 0)
                groups.push_back(contender.group);
            figures[contender.group].push_back({contender.name, Median(contender.seconds)});
        }
        if (!groups.empty())
            std::printf("\nMedian times. The last column is our time divided by the peer's: below 1.00 we are "
                        "faster.\n");
        for (const std::string& group : groups)
            PrintTimes(group, figures[group]);
        return !m_failed;
    }

private:
    using RunOrder = std::pair<std::int64_t, std::int64_t>;
    struct Contender {
        std::string group;
        std::string name;
        std::vector<double> seconds; ///< per iteration; one for each repetition
    };

    static RunOrder Order(const Run& run) { return {run.family_index, run.per_family_instance_index}; }

    static double Median(std::vector<double>& values) {
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    static void PrintTimes(const std::string& group, std::vector<Figure>& figures) {
        double largest = 0;
        for (const Figure& figure : figures)
            largest = std::max(largest, figure.value);
        const bool millis = largest >= 1e-2;
        const bool micros = largest >= 1e-5;
        for (Figure& figure : figures)
            figure.value *= millis ? 1e3 : micros ? 1e6 : 1e9;
        PrintRatios(group, millis ? "ms" : micros ? "us" : "ns", figures);
    }

    void AddRepetition(const Run& run) {
        const bool realTime = run.run_name.time_type == "real_time";
        const double total = realTime ? run.real_accumulated_time : run.cpu_accumulated_time;
        Contender& contender = m_contenders[Order(run)];
        const std::string& name = run.run_name.function_name;
        const std::size_t slash = std::min(name.rfind('/'), name.size());
        contender.group = name.substr(0, slash);
        for (const std::string& part : {run.run_name.args, run.run_name.threads}) {
            if (!part.empty())
                contender.group += '/' + part;
        }
        contender.name = name.substr(std::min(slash + 1, name.size()));
        contender.seconds.push_back(total / static_cast<double>(run.iterations));
    }

    std::vector<Run> m_shown;
    std::map<RunOrder, Contender> m_contenders;
    bool m_failed = false;
};

/// Runs the registered benchmarks and prints the ratios; what main() returns. The repetitions of all
/// contenders are shuffled, so that a change of the machine's speed meets all of them alike. The arguments
/// are Google Benchmark's and override these choices.
inline int Run(int argc, char** argv) {
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    std::string repetitions = "--benchmark_repetitions=9";
    std::string minTime = "--benchmark_min_time=0.05";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + std::min(argc, 1), {interleaving.data(), repetitions.data(), minTime.data()});
    arguments.push_back(nullptr);
    int count = static_cast<int>(arguments.size()) - 1;
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const bool complete = reporter.Print();
    benchmark::Shutdown();
    return complete ? 0 : 1;
}

} // namespace Bench
