// Two processes share a file: one writes it, the other learns of each change and reads it anew. The lock
// keeps the reader from ever seeing a half written file.
//
//     shared_cache [SECONDS]     starts the reader, writes for so long (default 1), and tells the reader to
//     stop

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "stream/qzfile.h"
#include "toolkit/qzprocessreaderlock.h"
#include "toolkit/qzprocesswriterlock.h"

using namespace Qzc;

namespace {

constexpr auto LookInterval = std::chrono::milliseconds(20);

// The lock's name comes from the file's, so whoever uses the file finds the lock.
KeldMBString LockName(const KeldMBString& path) {
    return "shared_cache/" + path;
}

bool WriteAll(const KeldMBString& path, const KeldMBString& text) {
    QzFile file;
    return file.Open(path, QzFile::Access::Write) && file.Write(text.Cstr(), text.GetLength()) == text.GetLength() &&
           file.Close();
}

// ---- The reader

struct Cache {
    KeldMBString path;
    KeldMBString text;

    void Load() {
        QzFile file;
        if (!file.Open(path, QzFile::Access::Read) || !file.ReadAll(text))
            text = "stop";
    }

    // Called by ReaderLock while the writers are kept out, when one of them has been there.
    static void OnChange(void* argument) {
        auto& cache = *static_cast<Cache*>(argument);
        cache.Load();
        std::printf("  reader: changed, the file says \"%s\"\n", cache.text.Cstr());
        std::fflush(stdout);
    }
};

int Read(const KeldMBString& path) {
    QzProcess lock;
    Cache cache;
    cache.path = path;
    lock.SetCallBack(Cache::OnChange, &cache);
    if (lock.ProcessLockInit(LockName(path)) == 0)
        return 1;
    lock.ReaderLock(false); // what was written before is no change
    cache.Load();
    lock.ReaderUnlock();
    while (cache.text != "stop") {
        {
            const QzProcessReaderLock reading(lock, true);
            // Here the cache is what the file holds, and stays so.
        }
        std::this_thread::sleep_for(LookInterval);
    }
    return 0;
}

// ---- The writer

int Write(const KeldMBString& path, const std::string& program, double seconds) {
    QzProcess lock;
    if (lock.ProcessLockInit(LockName(path)) == 0 || !WriteAll(path, "version 0"))
        return 1;
    int readerResult = 1;
    std::thread reader([&] {
        // Some shells take off a quote that a command begins with.
        const std::string command = "cd . && \"" + program + "\" --read \"" + path.Cstr() + '"';
        readerResult = std::system(command.c_str()); // NOLINT(concurrency-mt-unsafe): nobody else calls it
    });

    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    bool written = true;
    for (int version = 1; written && std::chrono::steady_clock::now() < end; ++version) {
        {
            const QzProcessWriterLock writing(lock, false);
            KeldMBString text;
            text.Format("version %d", version);
            std::printf("writer: version %d\n", version);
            std::fflush(stdout);
            written = WriteAll(path, text);
        }
        std::this_thread::sleep_for(8 * LookInterval);
    }
    {
        const QzProcessWriterLock writing(lock, false);
        written = WriteAll(path, "stop") && written;
    }
    reader.join();
    return written && readerResult == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--read")
        return Read(argv[2]);
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() /
        ("shared_cache-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    const int result = Write(KeldMBString(file.string()), argv[0], argc > 1 ? std::strtod(argv[1], nullptr) : 1.0);
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    return result;
}
