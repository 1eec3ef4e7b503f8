#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

/// A text of many equal letters, and a terminator: one megabyte of memory, seen as often as it takes.
class RepeatedText {
public:
    explicit RepeatedText(std::size_t size) : m_size((size + Chunk - 1) / Chunk * Chunk) {
        const int memory = memfd_create("text", 0);
        void* const whole =
            mmap(nullptr, m_size + Chunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (ftruncate(memory, Chunk) != 0 || whole == MAP_FAILED)
            std::abort();
        m_text = static_cast<char*>(whole);
        for (std::size_t at = 0; at < m_size; at += Chunk)
            mmap(m_text + at, Chunk, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, memory, 0);
        std::fill_n(m_text, Chunk, 'a');
        close(memory);
    }
    ~RepeatedText() { munmap(m_text, m_size + Chunk); }
    RepeatedText(const RepeatedText&) = delete;
    RepeatedText& operator=(const RepeatedText&) = delete;

    const char* Cstr() const { return m_text; } ///< at least as long as asked for

private:
    static constexpr std::size_t Chunk = 1 << 20;

    std::size_t m_size;
    char* m_text = nullptr;
};
