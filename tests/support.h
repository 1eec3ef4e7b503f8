#pragma once

#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "base/keldassert.h"
#include "base/keldmbstring.h"
#include "base/keldsystem.h"
#include "system/system.h"

/// Collects the texts that a handler is given while it lives; `SetHandler` puts it in its place.
template <auto SetHandler>
class TextLog {
public:
    TextLog() { Texts().clear(); }
    ~TextLog() { SetHandler(m_previous); }
    TextLog(const TextLog&) = delete;
    TextLog& operator=(const TextLog&) = delete;

    static std::vector<std::string>& Texts() {
        static std::vector<std::string> s_texts;
        return s_texts;
    }

private:
    template <class... Rest>
    static void Record(const char* text, Rest...) {
        Texts().emplace_back(text);
    }

    decltype(SetHandler(nullptr)) m_previous = SetHandler(Record);
};

using AssertionLog = TextLog<&KELD::SetAssertHandler>;

/// Makes a charset the current one while it lives.
class CurrentCharset {
public:
    explicit CurrentCharset(KELD::KELDCharset::Charset charset) : m_previous(KELD::KeldSystem::GetCurCharset()) {
        KELD::KeldSystem::SetCurCharset(charset);
    }
    ~CurrentCharset() { KELD::KeldSystem::SetCurCharset(m_previous); }
    CurrentCharset(const CurrentCharset&) = delete;
    CurrentCharset& operator=(const CurrentCharset&) = delete;

private:
    KELD::KELDCharset::Charset m_previous;
};

inline std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// The bytes that a memory stream or a byte array holds.
template <class Stream>
std::string Bytes(const Stream& stream) {
    return std::string(reinterpret_cast<const char*>(stream.GetData()), static_cast<std::size_t>(stream.GetLength()));
}

/// Runs each body on a thread of its own; back when all have ended.
template <class... Bodies>
void Together(const Bodies&... bodies) {
    std::thread threads[] = {std::thread(bodies)...};
    for (std::thread& thread : threads)
        thread.join();
}

namespace KELD {

inline std::ostream& operator<<(std::ostream& out, const KeldMBString& text) {
    return out << text.View();
}

} // namespace KELD
