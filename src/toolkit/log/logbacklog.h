#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "base/namespaces.h"
#include "toolkit/log/logformats.h"
#include "toolkit/log/logrecord.h"

namespace Qzc {

/// The items that wait, the oldest first, with the formats that each was recorded under. They lie packed in blocks, so
/// that to wait costs no allocation. One thread at a time.
class LogBacklog {
public:
    LogBacklog() = default;
    LogBacklog(LogBacklog&&) = default;
    LogBacklog& operator=(LogBacklog&&) = default;

    bool IsEmpty() const { return m_count == 0; }
    std::size_t GetCount() const { return m_count; }
    std::size_t GetBytes() const { return m_bytes; } ///< what the items take

    void Add(const LogRecord& record, const std::shared_ptr<LogFormats>& formats);
    /// Puts items in front of all.
    void Prepend(LogBacklog&& older);
    void DropOldest(std::size_t count);
    void Clear();

    /// `visit(record, formats)`, the oldest item first, until it gives false. The texts are the backlog's.
    template <class Visitor>
    void Visit(Visitor visit) const {
        for (const Block& block : m_blocks) {
            std::size_t text = block.firstText;
            for (std::size_t i = block.first; i < block.items.size(); ++i) {
                const Item& item = block.items[i];
                LogRecord record = item.record;
                record.message = std::string_view(block.texts).substr(text, item.messageSize);
                record.codeFile = std::string_view(block.texts).substr(text + item.messageSize, item.codeFileSize);
                text += item.messageSize + item.codeFileSize;
                if (!visit(record, *block.formats))
                    return;
            }
        }
    }

private:
    struct Item {
        LogRecord record; ///< but for the texts
        std::size_t messageSize;
        std::size_t codeFileSize;
    };
    struct Block {
        std::shared_ptr<LogFormats> formats;
        std::vector<Item> items;
        std::string texts;
        std::size_t first = 0; ///< what is in front of it was dropped
        std::size_t firstText = 0;
    };

    std::deque<Block> m_blocks; ///< none is empty
    Block m_spare;              ///< keeps its memory for the next one
    std::size_t m_count = 0;
    std::size_t m_bytes = 0;
};

} // namespace Qzc
