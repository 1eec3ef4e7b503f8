// Renders the tiles of a map with a QzTaskManager: tasks that say which tile, a filter that turns away the
// tiles which nobody sees, a processor that renders the others.
//
//     tasks [tiles per side, 48 unless given]
//
// At the end one task is asked for its result, as one would ask a future.
//
// First with one worker, then with as many as the library finds best; both must give the same picture. The
// last table shows what the workers' pause of 1 ms between two tasks costs tiles of several sizes.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <vector>

#include "toolkit/qzsemaphore.h"
#include "toolkit/qztaskmanager.h"
#include "toolkit/qzthread.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

namespace {

constexpr int TilePixels = 16; // per side

/// A task holds plain values only: it is given back without a destructor.
class TileTask final : public QzTaskBase {
public:
    TileTask(int tileColumn, int tileRow) : column(tileColumn), row(tileRow) {}

    int GetTaskType() override { return 0; }
    bool Execute() override { return false; } // never called where there is a processor
    void Cancel() override {}

    int column;
    int row;
};

/// Renders a tile to a checksum of its pixels. Several workers call it at once; each tile has its own place.
class Renderer : public QzTaskProcessor {
public:
    Renderer(int side, int iterations) : m_side(side), m_iterations(iterations), m_tiles(Index(side, 0)) {}

    bool Process(QzTaskBase* task) override {
        const std::uint64_t start = QzThread::time();
        const auto* tile = static_cast<const TileTask*>(task);
        const double scale = 3.0 / (m_side * TilePixels);
        std::uint32_t checksum = 2166136261U;
        for (int pixel = 0; pixel < TilePixels * TilePixels; ++pixel) {
            const int x = pixel % TilePixels;
            const int y = pixel / TilePixels;
            const double a = (tile->column * TilePixels + x) * scale - 2.25;
            const double b = (tile->row * TilePixels + y) * scale - 1.5;
            checksum = (checksum ^ Shade(a, b)) * 16777619U;
        }
        m_tiles[Index(tile->row, tile->column)] = checksum;
        m_work += QzThread::time() - start;
        ++m_rendered;
        finished.Post();
        return true;
    }

    const std::vector<std::uint32_t>& Picture() const { return m_tiles; }
    int Rendered() const { return m_rendered; }
    double Seconds() const { return static_cast<double>(m_work) / 1e9; }
    double MillisecondsPerTile() const { return Seconds() * 1e3 / Rendered(); }

    QzSemaphore finished{0}; // one unit per tile

private:
    std::size_t Index(int row, int column) const {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(m_side) + static_cast<std::size_t>(column);
    }

    /// Where the orbit of a point lies in the end; every pixel takes the same time.
    std::uint32_t Shade(double a, double b) const {
        double x = 0;
        double y = 0;
        for (int i = 0; i < m_iterations; ++i) {
            const double next = x * x - y * y + a;
            y = 2 * x * y + b;
            x = std::clamp(next, -2.0, 2.0);
        }
        return static_cast<std::uint32_t>((x + 2) * 1000) * 31 +
               static_cast<std::uint32_t>(std::clamp(y, -2.0, 2.0) * 1000 + 2000);
    }

    int m_side;
    int m_iterations;
    std::vector<std::uint32_t> m_tiles;
    std::atomic<int> m_rendered{0};
    std::atomic<std::uint64_t> m_work{0}; // nanoseconds
};

/// Turns away the tiles outside a round window as they are added.
class Window : public QzTaskFilter {
public:
    explicit Window(int side) : m_side(side) {}

    unsigned char Filter(int event, QzTaskBase* task, bool& cancel) override {
        const auto* tile = static_cast<const TileTask*>(task);
        const double x = (tile->column + 0.5) / m_side * 2 - 1;
        const double y = (tile->row + 0.5) / m_side * 2 - 1;
        cancel = event == EventAdd && x * x + y * y > 1;
        return 0; // what AddTask then returns
    }

private:
    int m_side;
};

double SecondsSince(std::uint64_t start) {
    return static_cast<double>(QzThread::time() - start) / 1e9;
}

/// The seconds that the workers need. A line for each tenth reads well in a terminal and through a pipe.
double Render(int side, int workers, Renderer& renderer, bool showsProgress) {
    Window window(side);
    QzTaskManager manager;
    QzTaskMessageLoop& loop = manager.GetMessageLoop();
    loop.SetTaskQueueSize(side * side); // a full queue would drop tiles
    loop.AddTaskFilter(&window);
    loop.AddTaskProcessor(&renderer);
    for (int i = 0; i < side * side; ++i) {
        auto* tile = new TileTask(i % side, i / side);
        if (!loop.AddTask(tile, true))
            delete tile; // vetoed, so it is still ours
    }
    const int tiles = loop.GetTaskCount();
    manager.SetThreadCount(workers);
    const std::uint64_t start = QzThread::time();
    if (!manager.Start())
        return 0;
    for (int done = 1; done <= tiles; ++done) {
        renderer.finished.Wait();
        if (showsProgress && done * 10 / tiles != (done - 1) * 10 / tiles) {
            std::printf("  %3d%%  %d of %d tiles\n", done * 10 / tiles * 10, done, tiles);
            std::fflush(stdout);
        }
    }
    const double seconds = SecondsSince(start);
    manager.Stop();
    return seconds;
}

/// What comes of one task, for one thread that waits for it. It outlives the task: whoever gives up waiting keeps it
/// until the workers have been stopped.
template <class Value>
class Result {
public:
    void Set(Value value) { ///< by the task, once
        m_value = value;
        m_there.Post();
    }
    bool Wait(unsigned int milliseconds) { ///< false when the time was up; then it may be called again
        m_hasCome = m_hasCome || m_there.TimedWait(milliseconds);
        return m_hasCome;
    }
    Value Get() const { return m_value; } ///< after a Wait that was true

private:
    QzSemaphore m_there{0};
    Value m_value = {};
    bool m_hasCome = false; // for the one who waits
};

/// Executes itself: no processor is needed for tasks of one kind.
class CountTask final : public QzTaskBase {
public:
    CountTask(int limit, Result<int>& result) : m_limit(limit), m_result(&result) {}

    int GetTaskType() override { return 1; }
    bool Execute() override {
        int primes = 0;
        for (int number = 2; number < m_limit; ++number) {
            bool isPrime = true;
            for (int divisor = 2; isPrime && divisor * divisor <= number; ++divisor)
                isPrime = number % divisor != 0;
            primes += isPrime ? 1 : 0;
        }
        m_result->Set(primes);
        return true;
    }
    void Cancel() override {}

private:
    int m_limit;
    Result<int>* m_result;
};

bool WaitForOneResult() {
    Result<int> primes;
    QzTaskManager manager;
    if (!manager.Start())
        return false;
    manager.PostTask(new CountTask(100000, primes), true);
    int waits = 1;
    while (!primes.Wait(5)) // time for something else
        ++waits;
    manager.Stop();
    std::printf("\nOne task, waited for %d times: %d primes below 100000\n", waits, primes.Get());
    return primes.Get() == 9592;
}

void ShowThePause() {
    std::printf("\nThe pause of 1 ms between two tiles, one worker:\n  %12s %14s %10s\n", "work a tile",
                "with the pause", "overhead");
    struct Size {
        int side, iterations;
    };
    for (const Size size : {Size{8, 100}, Size{8, 1000}, Size{4, 10000}, Size{4, 30000}}) {
        Renderer renderer(size.side, size.iterations);
        const double seconds = Render(size.side, 1, renderer, false);
        std::printf("  %9.2f ms %11.2f ms %8.0f %%\n", renderer.MillisecondsPerTile(),
                    seconds * 1e3 / renderer.Rendered(), (seconds / renderer.Seconds() - 1) * 100);
    }
    std::printf("From some 20 ms on it hardly shows. Small tasks: call the Run of a loop of your own instead.\n");
}

} // namespace

int main(int argc, char** argv) {
    const int side = argc > 1 ? std::clamp(std::atoi(argv[1]), 4, 500) : 48;
    const int iterations = 300;
    const int workers = static_cast<int>(QzThreadManager::GetInstance().GetOptimalCount());

    std::printf("%d x %d tiles, 1 worker\n", side, side);
    Renderer first(side, iterations);
    const double alone = Render(side, 1, first, true);
    std::printf("%d x %d tiles, %d workers\n", side, side, workers);
    Renderer second(side, iterations);
    const double together = Render(side, workers, second, true);
    if (alone <= 0 || together <= 0 || first.Picture() != second.Picture()) {
        std::printf("the pictures differ\n");
        return 1;
    }
    std::printf("1 worker: %.2f s, %d workers: %.2f s, %.1f times as fast, the same picture\n", alone, workers,
                together, alone / together);
    ShowThePause();
    return WaitForOneResult() ? 0 : 1;
}
