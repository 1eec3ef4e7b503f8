#include "toolkit/log/logbacklog.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Qzc {

namespace {

constexpr std::size_t BlockItems = 256;
constexpr std::size_t BlockText = 1 << 16;

} // namespace

void LogBacklog::Add(const LogRecord& record, const std::shared_ptr<LogFormats>& formats) {
    const std::size_t size = record.message.size() + record.codeFile.size();
    if (m_blocks.empty() || m_blocks.back().formats != formats || m_blocks.back().items.size() == BlockItems ||
        m_blocks.back().texts.size() + size > BlockText) {
        m_blocks.push_back(std::move(m_spare));
        m_spare = Block();
        m_blocks.back().formats = formats;
        m_blocks.back().items.reserve(BlockItems);
    }
    Block& block = m_blocks.back();
    block.items.push_back({record, record.message.size(), record.codeFile.size()});
    block.texts.append(record.message).append(record.codeFile);
    ++m_count;
    m_bytes += sizeof(Item) + size;
}

void LogBacklog::Prepend(LogBacklog&& older) {
    m_blocks.insert(m_blocks.begin(), std::make_move_iterator(older.m_blocks.begin()),
                    std::make_move_iterator(older.m_blocks.end()));
    m_count += older.m_count;
    m_bytes += older.m_bytes;
    older.Clear();
}

void LogBacklog::DropOldest(std::size_t count) {
    count = std::min(count, m_count);
    m_count -= count;
    while (count > 0) {
        Block& block = m_blocks.front();
        for (; count > 0 && block.first < block.items.size(); --count) {
            const Item& item = block.items[block.first++];
            block.firstText += item.messageSize + item.codeFileSize;
            m_bytes -= sizeof(Item) + item.messageSize + item.codeFileSize;
        }
        if (block.first < block.items.size())
            return;
        if (block.texts.capacity() <= 2 * BlockText) {
            m_spare = std::move(block);
            m_spare.formats.reset();
            m_spare.items.clear();
            m_spare.texts.clear();
            m_spare.first = m_spare.firstText = 0;
        }
        m_blocks.pop_front();
    }
}

void LogBacklog::Clear() {
    m_blocks.clear();
    m_count = m_bytes = 0;
}

} // namespace Qzc
