#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/namespaces.h"
#include "stream/qzfile.h"
#include "toolkit/log/logitemreader.h"

namespace Qzc {

/// Is shown items.
class LogItemVisitor {
public:
    virtual ~LogItemVisitor() = default;
    /// Whether an item may be one to take, by all that is in its start and by its bytes.
    virtual bool Wants(const LogItemReader& reader, std::string_view text) = 0;
    virtual bool Take(LogReading& reading) = 0; ///< false: enough
};

/// Goes through the items of a log file from the last to the first. Each byte is read once, those of an item that is
/// longer than a block twice; no more is in memory than two blocks, or such an item.
class LogFileReader {
public:
    using Progress = std::function<bool(std::int64_t)>; ///< is told the bytes of each step; false: stop
    LogFileReader(QzFile& file, LogItemReader& reader) : m_file(file), m_reader(reader) {}

    /// The items between two offsets. What is no item is left out, and so is a last line that has no end yet. False
    /// when it was told to end.
    bool Read(std::int64_t from, std::int64_t to, LogItemVisitor& visitor, const Progress& progress);
    bool IsComplete() const { return m_complete; } ///< whether all that had to be read could be

private:
    bool ReadBlock(std::int64_t from);
    bool ReadAt(std::int64_t position, char* bytes, std::int64_t count);
    void FindLines(std::size_t length);
    bool TakeIfItem(std::int64_t start);
    bool TakeLong(std::int64_t start);
    bool Show(std::string_view text);

    QzFile& m_file;
    LogItemReader& m_reader;
    LogItemVisitor* m_visitor = nullptr;
    std::string m_bytes; ///< of the file from m_start on
    std::int64_t m_start = 0;
    std::size_t m_length = 0;         ///< of the bytes that are there
    std::vector<std::size_t> m_lines; ///< where lines start in the newest block
    std::int64_t m_itemEnd = 0;       ///< behind the line break of the item that is looked for; -1 before there is one
    bool m_complete = true;
};

} // namespace Qzc
