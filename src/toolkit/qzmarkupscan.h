#pragma once

#include <array>

namespace Qzc::MarkupScan {

// What a byte means to the scanner. Text is zero-terminated, and the terminator ends every run.
enum ByteClass : unsigned char {
    Blank = 1,     ///< white space
    Delimiter = 2, ///< ends a token: white space, one of <>=\/?! and the terminator
    Quote = 4,
    TagStop = 8,     ///< a start tag cannot be run over without a look: > ' " and the terminator
    ContentStop = 16 ///< the same for content: < and the terminator
};

constexpr std::array<unsigned char, 256> MakeClasses() {
    std::array<unsigned char, 256> classes{};
    for (const char c : {' ', '\t', '\n', '\r'})
        classes[static_cast<unsigned char>(c)] = Blank | Delimiter;
    for (const char c : {'<', '>', '=', '\\', '/', '?', '!', '\0'})
        classes[static_cast<unsigned char>(c)] |= Delimiter;
    for (const char c : {'"', '\''})
        classes[static_cast<unsigned char>(c)] |= Quote | TagStop;
    for (const char c : {'>', '\0'})
        classes[static_cast<unsigned char>(c)] |= TagStop;
    for (const char c : {'<', '\0'})
        classes[static_cast<unsigned char>(c)] |= ContentStop;
    return classes;
}

inline constexpr std::array<unsigned char, 256> Classes = MakeClasses();

inline bool Is(char c, unsigned char classes) {
    return (Classes[static_cast<unsigned char>(c)] & classes) != 0;
}

/// The first byte at or behind `p` that is of one of the classes. The terminator must be, or be a stop by
/// itself.
inline const char* SkipTo(const char* p, unsigned char classes) {
    while (!Is(*p, classes))
        ++p;
    return p;
}

inline const char* SkipBlanks(const char* p) {
    while (Is(*p, Blank))
        ++p;
    return p;
}

/// The first `c` at or behind `p`, or the terminator.
inline const char* SkipTo(const char* p, char c) {
    while (*p != c && *p != '\0')
        ++p;
    return p;
}

/// Behind the name (or the unquoted value) that starts at `p`.
const char* SkipName(const char* p);

/// At "<!" or "<?": behind the node that starts there, null when it does not end.
const char* SkipComment(const char* p);
const char* SkipCData(const char* p);
const char* SkipInstruction(const char* p);
const char*
SkipDeclaration(const char* p); ///< with an internal subset, its quotes, comments and instructions

} // namespace Qzc::MarkupScan
