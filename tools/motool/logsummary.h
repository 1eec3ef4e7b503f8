#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "output.h"
#include "toolkit/qzlogitem.h"

namespace Motool {

/// The most frequent of any number of texts, in memory for a fixed number of them. What is more frequent than one in
/// so many is found for sure; when there are more different texts than that, counts may be too high.
class Frequencies {
public:
    struct Counted {
        std::string text;
        std::int64_t count = 0;
    };

    void Add(std::string_view text);
    std::vector<Counted> Most(std::size_t number) const;
    bool IsExact() const { return m_isExact; }

private:
    // As in a league: lists of texts with one count each, the lowest first, so that the lowest is at hand.
    struct League;
    struct Entry {
        std::string text;
        std::list<League>::iterator league;
    };
    struct League {
        std::int64_t count = 0;
        std::list<Entry> entries;
    };
    using Place = std::list<Entry>::iterator;

    void Rise(Place entry);

    static constexpr std::size_t MaxTexts = 2048;
    static constexpr std::size_t LongestText = 160; ///< of which all that start alike count as one

    std::list<League> m_leagues;
    std::unordered_map<std::string_view, Place> m_places; ///< the keys are the entries' own texts
    bool m_isExact = true;
};

/// What a log's items have in common.
class LogSummary {
public:
    void Add(const Qzc::QzLogItem& item);
    std::int64_t Count() const { return m_count; }
    void Print() const;
    void PrintJson() const;

private:
    static constexpr std::size_t MaxHours = 10000; ///< the newest

    std::int64_t m_count = 0;
    std::int64_t m_first = 0;
    std::int64_t m_last = 0;
    std::int64_t m_hour = -1; ///< of the last item
    std::map<int, std::int64_t> m_levels;
    std::map<std::int64_t, std::int64_t> m_hours; ///< by the second that they start at
    std::int64_t m_older = 0;                     ///< items of hours that are not counted apart
    Frequencies m_sources;
    Frequencies m_messages;
};

const char* LevelName(int level);
Colour LevelColour(int level);
std::string TimeText(KELD::KeldTime time);

} // namespace Motool
