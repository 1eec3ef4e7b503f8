// What stands where, and what waits, against a model.

#include <deque>
#include <random>

#include "log_writers.h"

namespace {

// Call-backs that take so many items, or batches, and refuse the others in one way or another.
std::size_t s_quota;
std::string s_taken;

unsigned char TakeOne(void*, const QzLogItem& item) {
    if (s_quota == 0 && s_taken.size() % 2 == 0)
        throw 1;
    if (s_quota == 0)
        return 0;
    --s_quota;
    s_taken += std::string(item.m_strDescription.View()) + "\n";
    return 1;
}

unsigned char TakeAll(void*, const KeldArray<QzLogItem>& items) {
    if (s_quota == 0)
        throw 2;
    --s_quota;
    for (const QzLogItem& item : items)
        s_taken += std::string(item.m_strDescription.View()) + "\n";
    return 1;
}

/// The log as its manual tells it.
struct Model {
    enum class CallBacks { None, One, All };
    struct Item {
        std::string message, format;
    };

    bool IsFile() const { return sink == Log::Text || sink == Log::XML; }

    void Open() {
        base = "a";
        lastTime = s_now;
        number = 0;
        current = Name();
    }
    std::string Name() const {
        return base + (number > 0 ? "(" + std::to_string(number) + ")" : "") + (sink == Log::XML ? ".xml" : ".log");
    }
    void StartNew(int from) {
        for (number = from; files.count(Name()) != 0;)
            ++number;
        current = Name();
    }

    std::tm Calendar(std::int64_t time) const {
        const std::time_t local = time + (utc ? 0 : 8 * 3600);
        return *std::gmtime(&local);
    }
    std::int64_t Period(std::int64_t time) const {
        const std::tm local = Calendar(time);
        const std::int64_t days = (time + (utc ? 0 : 8 * 3600)) / 86400;
        switch (interval) {
        case Log::Hour: return days * 24 + local.tm_hour;
        case Log::Day: return days;
        case Log::Week: return (days + 3) / 7; // 1970-01-01 was a Thursday
        case Log::Month: return local.tm_year * 12 + local.tm_mon;
        default: return 0;
        }
    }
    void PassTime() {
        const bool isOver = s_now > lastTime && Period(s_now) != Period(lastTime);
        if (s_now > lastTime || s_now < lastTime - Lengths[interval])
            lastTime = s_now;
        if (isOver) {
            const std::tm local = Calendar(s_now);
            char time[32];
            std::strftime(time, sizeof(time), "a_%Y-%m-%d_%H-%M-%S", &local);
            base = time;
            StartNew(0);
        }
    }

    std::size_t FileSize() {
        const std::string& lines = files[current];
        if (sink == Log::Text)
            return lines.size();
        const std::string empty = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<Log>\r\n</Log>\r\n";
        const std::string item = "<LogItem>\r\n<DateTime/>\r\n<TimeSpan/>\r\n<Level/>\r\n<ResID/>\r\n"
                                 "<Description></Description>\r\n<ThreadID/>\r\n<CodeFile/>\r\n<CodeLine/>\r\n"
                                 "</LogItem>\r\n";
        const auto count = static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n'));
        return empty.size() + count * (item.size() - 1) + lines.size();
    }

    void WriteToFile(const std::string& lines) {
        const bool isLonger = limit > 0 && FileSize() > static_cast<std::size_t>(limit);
        if (isLonger && limitMode == Log::NewFile)
            StartNew(number + 1);
        if (isLonger && limitMode == Log::ReOpen)
            files[current].clear();
        if (isLonger && limitMode == Log::Rolling && sink == Log::Text)
            files[current].replace(0, lines.size(), lines);
        else
            files[current] += lines;
    }

    // How many are taken.
    std::size_t Take(const std::deque<Item>& items) {
        const bool byOne = !IsFile() && callBacks == CallBacks::One;
        std::size_t count = byOne ? std::min(items.size(), quota) : items.size();
        if (IsFile() ? !isWritable : quota == 0)
            count = 0;
        if (!IsFile() && count > 0)
            quota -= byOne ? count : 1;
        std::string lines;
        for (std::size_t i = 0; i < count; ++i) {
            std::string line = sink == Log::Text ? items[i].format : "%MSG";
            lines += line.replace(line.find("%MSG"), 4, items[i].message) + "\n";
        }
        if (!IsFile())
            files[""] += lines;
        else if (count > 0)
            WriteToFile(lines);
        return count;
    }

    bool Write() {
        const bool isAwaited = IsFile() ? saves : callBacks != CallBacks::None;
        bool all = true;
        if (isAwaited && isOpen && !waiting.empty()) {
            if (IsFile())
                PassTime();
            std::deque<Item> items = waiting;
            if (lost > 0)
                items.push_front({std::to_string(lost) + " items were lost: they could not be written", format});
            const std::size_t taken = Take(items);
            all = taken == items.size();
            if (taken > 0)
                waiting.erase(waiting.begin(), waiting.begin() + static_cast<int>(taken - (lost > 0 ? 1 : 0)));
            lost = taken > 0 ? 0 : lost;
        }
        for (; waiting.size() > inMemory; waiting.pop_front())
            lost += isAwaited && sink != Log::Memory ? 1 : 0;
        return all;
    }
    bool Record(const std::string& message) {
        waiting.push_back({message, format});
        return waiting.size() < std::min(toDisk, inMemory) || Write();
    }

    static constexpr std::int64_t Lengths[] = {0, 3600, 86400, 7 * 86400, 31 * 86400};
    Log::Mode sink = Log::Text;
    CallBacks callBacks = CallBacks::None;
    bool isOpen = false, saves = true, isWritable = true, utc = false;
    std::size_t toDisk = 1, inMemory = 10000, quota = 0;
    int lost = 0, limit = -1, number = 0;
    std::string format = "%MSG", base, current;
    std::int64_t lastTime = 0;
    Log::TimeInterval interval = Log::None;
    Log::SizeLimitMode limitMode = Log::Rolling;
    std::deque<Item> waiting;
    std::map<std::string, std::string> files; ///< lines by name, that of no name is the call-backs'
};

} // namespace

TEST_F(LogTest, FollowsTheModel) {
    std::mt19937 random(8);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % (static_cast<unsigned>(limit) + 1)); };
    for (int round = 0; round < Often(400); ++round) {
        const ScratchDirectory scratch;
        const std::string directory = scratch / "log";
        Model model;
        s_taken.clear();
        s_quota = 0;
        std::filesystem::create_directory(directory);
        // Either others do something to the file, or the log goes on in other files by itself.
        const bool hostile = upTo(1) == 0;
        if (!hostile) {
            WriteBytes(directory + "/a(2).log", "old\n");
            model.files["a(2).log"] = "old\n";
            model.interval = static_cast<Log::TimeInterval>(upTo(4));
            model.limitMode = static_cast<Log::SizeLimitMode>(upTo(2));
            model.limit = upTo(1) == 0 ? -1 : upTo(upTo(1) == 0 ? 39 : 1000);
            model.utc = upTo(1) == 0;
        }
        s_now = Saturday + upTo(400 * 86400);
        log.SetUtc(model.utc ? 1 : 0);
        log.SetFileSizeLimit(model.limit, model.limitMode);
        const auto open = [&] {
            EXPECT_EQ(log.Close(), !model.isOpen || model.Write()) << round;
            const bool append = upTo(2) != 0;
            model.sink = static_cast<Log::Mode>(upTo(hostile ? 3 : 1));
            model.callBacks = static_cast<Model::CallBacks>(upTo(2));
            Log::SetWriteCallBack(model.callBacks == Model::CallBacks::None ? nullptr : TakeOne);
            Log::SetWriteCallBacks(model.callBacks == Model::CallBacks::All ? TakeAll : nullptr);
            model.isOpen = !model.IsFile() || model.isWritable;
            if (model.IsFile() && model.isOpen) {
                model.Open();
                std::string& lines = model.files[model.current];
                lines = append ? lines : "";
            }
            const char* const name = model.sink == Log::XML ? "a.xml" : "a.log";
            if (model.IsFile())
                EXPECT_EQ(log.Open(K(directory), name, model.interval, model.sink, append), model.isOpen);
            else
                EXPECT_EQ(model.sink == Log::Memory ? log.Open(Log::Memory) : log.Open(nullptr, "table"), 1);
            if (model.isOpen)
                model.Write();
        };
        const auto meddle = [&] {
            const std::string file = directory + "/" + model.current;
            const bool isThere = model.IsFile() && model.isOpen && std::filesystem::exists(file);
            const bool isWhole = isThere && std::filesystem::file_size(file) != 0;
            std::string& lines = model.files[isThere ? model.current : "none"];
            const int deed = upTo(isThere ? 4 : 1);
            switch ((deed == 1 || deed == 2) && !RemovesOpenFiles ? 0 : deed) {
            case 0: s_quota = model.quota = static_cast<std::size_t>(upTo(6)); break;
            case 1:
                model.isWritable = !model.isWritable;
                model.files.erase(model.files.upper_bound(""), model.files.end());
                if (model.isWritable)
                    std::filesystem::create_directory(directory);
                else
                    std::filesystem::remove_all(directory);
                break;
            case 2:
                std::filesystem::remove(file);
                model.files.erase(model.current);
                break;
            case 3:
                std::filesystem::resize_file(file, 0);
                lines.clear();
                break;
            default:
                if (model.sink == Log::Text) {
                    AppendToFile(file, "other\n");
                    lines += "other\n";
                } else if (model.saves && model.toDisk == 1 && isWhole) {
                    // What a killed process may leave; the item that comes next is written behind the last whole one.
                    const std::string bytes = ReadBytes(file);
                    // It may end where the log goes from one block that it looks at to the one before.
                    const int size = upTo(2) == 0 ? upTo(200000) : 65500 + upTo(12);
                    const std::string item =
                        "<LogItem>\r\n<Description>" + std::string(static_cast<std::size_t>(size), 'x');
                    WriteBytes(file, bytes.substr(0, bytes.size() - 1 - static_cast<std::size_t>(upTo(7))) +
                                         (upTo(2) == 0 ? "" : item));
                }
            }
            model.files.erase("none");
        };
        open();
        for (int i = 0; i < 60; ++i) {
            switch (upTo(hostile ? 24 : 60)) {
            case 0:
                model.toDisk = static_cast<std::size_t>(upTo(3)) + 1;
                log.SetLogCountToDisk(static_cast<int>(model.toDisk));
                break;
            case 1:
                model.inMemory = static_cast<std::size_t>(upTo(4)) + 1;
                log.SetLogCountInMemory(static_cast<int>(model.inMemory));
                break;
            case 2:
                model.saves = upTo(3) != 0;
                log.SetSaveToPhysical(model.saves ? 1 : 0);
                break;
            case 3:
                model.format = upTo(1) == 0 ? "%MSG" : "<%MSG>";
                log.SetLogFormat(K(model.format));
                break;
            case 4:
                model.Write();
                EXPECT_EQ(log.Flush(), model.waiting.empty() ? 1 : 0);
                break;
            case 5:
                if (hostile && model.IsFile() && model.isOpen && model.isWritable)
                    model.files.emplace(model.current, "");
                EXPECT_EQ(log.Reopen(), model.IsFile() && model.isOpen && model.isWritable ? 1 : 0);
                break;
            case 6: open(); break;
            default: break;
            }
            if (hostile && upTo(5) == 0)
                meddle();
            const int step = upTo(static_cast<int>(Model::Lengths[upTo(3) + 1])) / (upTo(8) + 1);
            s_now += upTo(4) == 0 ? -step : step;
            const std::string message = std::to_string(i) + std::string(static_cast<std::size_t>(upTo(5)), '.');
            ASSERT_EQ(Record(message), model.Record(message) ? 1 : 0) << round << ' ' << i;
        }
        std::map<std::string, std::string> files;
        if (model.isWritable) {
            for (const auto& [name, bytes] : FilesOf(directory))
                files[name] = bytes.empty() || name.back() != 'l' ? bytes : LinesOf(directory + "/" + name, Log::XML);
        }
        if (model.files.count("") != 0)
            files[""] = s_taken;
        ASSERT_EQ(files, model.files) << round;
        std::string waiting;
        for (const Model::Item& item : model.waiting)
            waiting += item.message + ";";
        log.SetSaveToPhysical(0);
        log.SetLogCountInMemory(10000);
        log.SetLogCountToDisk(1);
        Log::SetWriteCallBacks(nullptr);
        Log::SetWriteCallBack(nullptr);
        log.Open(Log::Memory);
        EXPECT_EQ(Messages(), waiting) << round;
        log.SetSaveToPhysical(1);
        // nothing is left for the next round
        WriteBytes(m_file, "");
        log.Open(K(m_file), 0);
        log.Close();
        log.SetLogFormat("%MSG");
    }
    log.SetUtc(0);
}
