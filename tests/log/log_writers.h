#pragma once

#include <set>
#include <sstream>

#include "log_support.h"

inline std::string Line(const std::string& writer, int number) {
    return writer + std::string(static_cast<std::size_t>(1 + number % 60), '.') + std::to_string(number);
}

// How many items "WRITER....NUMBER" were acknowledged.
inline int RecordLines(const std::string& writer, int count) {
    int done = 0;
    for (int i = 0; i < count; ++i)
        done += Record(Line(writer, i));
    return done;
}

// How many of such lines each writer has in some files: all from the first to the last, once, in their order.
inline std::map<std::string, int> CountLines(const std::vector<std::string>& files) {
    std::map<std::string, std::set<int>> numbers;
    for (const std::string& file : files) {
        std::map<std::string, int> last;
        std::istringstream lines(file);
        for (std::string line; std::getline(lines, line);) {
            const std::string writer = line.substr(0, line.find('.'));
            const int number = std::atoi(line.c_str() + line.find_last_not_of("0123456789") + 1);
            EXPECT_EQ(line, Line(writer, number));
            EXPECT_TRUE(numbers[writer].insert(number).second) << line;
            EXPECT_TRUE(last.count(writer) == 0 || last[writer] < number) << line;
            last[writer] = number;
        }
    }
    std::map<std::string, int> counts;
    for (const auto& [writer, all] : numbers)
        counts[writer] = *all.rbegin() + 1 == static_cast<int>(all.size()) ? *all.rbegin() + 1 : -1;
    return counts;
}

// The messages of a log's file, a line each.
inline std::string LinesOf(const std::string& file, Log::Mode mode) {
    return mode == Log::XML ? XmlMessages(file, '\n') : ReadBytes(file);
}
