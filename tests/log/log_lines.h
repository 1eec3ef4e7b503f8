#pragma once

#include <string>

#include "toolkit/qzlogfile.h"

/// What is recorded in the log while it lives, repeats included: "level code: message source" a line.
class LogLines {
public:
    LogLines() {
        s_lines.clear();
        Qzc::QzLogFile& log = Qzc::QzLogFile::GetInstance(false);
        log.SetFilterRepeat(0);
        log.SetLogFormat("%LEVEL%RESID: %MSG %CODEFILE");
        Qzc::QzLogFile::SetCallBack([](const char* line) { s_lines += std::string(line) + "\n"; });
    }
    ~LogLines() { Qzc::QzLogFile::SetCallBack(nullptr); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    bool Has(const std::string& text) const { return s_lines.find(text) != std::string::npos; }
    bool IsEmpty() const { return s_lines.empty(); }
    void Clear() { s_lines.clear(); }

private:
    static inline std::string s_lines;
};
