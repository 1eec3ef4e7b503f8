#include "toolkit/xml/qzmarkupscan.h"

#include <cstring>

#include "base/keldsystem.h"

namespace Qzc::MarkupScan {

namespace {

const char* Behind(const char* p, const char* end) {
    p = std::strstr(p, end);
    return p != nullptr ? p + std::strlen(end) : nullptr;
}

} // namespace

bool IsSecondByte(const char* start, const char* p) {
    using KELD::KELDCharset;
    using KELD::KeldSystem;
    // What stands before a run of lead bytes ends a character, so the run pairs up from its start.
    bool second = false;
    while (p != start && KeldSystem::IsLeadByte(KELDCharset::Current, static_cast<unsigned char>(*--p)))
        second = !second;
    return second;
}

const char* SkipComment(const char* p) {
    return Behind(p + std::strlen("<!--"), "-->");
}

const char* SkipCData(const char* p) {
    return Behind(p + std::strlen("<![CDATA["), "]]>");
}

const char* SkipInstruction(const char* p) {
    return Behind(p + std::strlen("<?"), "?>");
}

const char* SkipDeclaration(const char* p) {
    int brackets = 0;
    int angles = 0;
    while (p != nullptr && *p != '\0') {
        switch (*p) {
        case '"':
        case '\'': p = std::strchr(p + 1, *p); break;
        case '[': ++brackets; break;
        case ']': --brackets; break;
        case '<':
            if (std::strncmp(p, "<!--", 4) == 0) {
                p = SkipComment(p);
                continue;
            }
            if (p[1] == '?') {
                p = SkipInstruction(p);
                continue;
            }
            ++angles;
            break;
        case '>':
            --angles;
            if (angles <= 0 && brackets <= 0)
                return p + 1;
            break;
        default: break;
        }
        if (p != nullptr)
            ++p;
    }
    return nullptr;
}

const char* SkipNode(const char* p) {
    if (p[1] == '?')
        return SkipInstruction(p);
    if (p[1] != '!')
        return nullptr;
    if (std::strncmp(p, "<!--", 4) == 0)
        return SkipComment(p);
    return std::strncmp(p, "<![CDATA[", 9) == 0 ? SkipCData(p) : SkipDeclaration(p);
}

} // namespace Qzc::MarkupScan
