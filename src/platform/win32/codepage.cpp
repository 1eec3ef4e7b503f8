#include "platform/win32/codepage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

namespace Platform {

namespace {

struct NamedPage {
    std::string_view name;
    unsigned int page;
};

constexpr NamedPage Named[] = {
    {"UTF-8", 65001},        {"UTF8", 65001},         {"GBK", 936},
    {"GB2312", 936},         {"GB_2312-80", 936},     {"EUC-CN", 936},
    {"MS936", 936},          {"GB18030", 54936},      {"BIG5", 950},
    {"BIG-5", 950},          {"CN-BIG5", 950},        {"WINDOWS-31J", 932},
    {"SHIFT_JIS", 932},      {"SHIFT-JIS", 932},      {"SJIS", 932},
    {"X-SJIS", 932},         {"MS_KANJI", 932},       {"MS932", 932},
    {"EUC-JP", 20932},       {"EUCJP", 20932},        {"X-EUC-JP", 20932},
    {"EUC-KR", 949},         {"EUCKR", 949},          {"UHC", 949},
    {"KS_C_5601-1987", 949}, {"JOHAB", 1361},         {"TIS-620", 874},
    {"US-ASCII", 20127},     {"ASCII", 20127},        {"ANSI_X3.4-1968", 20127},
    {"ISO646-US", 20127},    {"MACINTOSH", 10000},    {"MAC", 10000},
    {"KOI8-R", 20866},       {"KOI8-U", 21866},       {"LATIN1", 28591},
    {"LATIN-9", 28605},      {"MAC-CYRILLIC", 10007}, {"MAC-CENTRALEUROPE", 10029},
    {"MAC-IS", 10079},       {"T.61", 20261},         {"T.61-8BIT", 20261},
    {"ISO_6937", 20269},     {"ISO6937", 20269},      {"ISO646-DE", 20106},
    {"ISO-IR-21", 20106},    {"ISO646-FI", 20107},    {"ISO-IR-10", 20107},
    {"ISO646-NO", 20108},    {"ISO-IR-60", 20108},    {"MAC-UK", 10017},
};

// Of IBM's own numbers these have another one here.
constexpr unsigned int Renumbered[] = {273, 277, 278, 280, 284, 285, 290, 297, 420, 423, 424, 871, 880, 905};

bool ReadNumber(std::string_view text, unsigned int& number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool Takes(std::string_view& text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) != prefix)
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

} // namespace

unsigned int CodePageOf(std::string_view name) {
    std::array<char, 32> room = {}; // longer than any of them
    if (name.size() > room.size())
        return 0;
    std::transform(name.begin(), name.end(), room.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    const std::string_view upper(room.data(), name.size());
    for (const NamedPage& named : Named) {
        if (named.name == upper)
            return named.page;
    }
    std::string_view rest = upper;
    unsigned int number = 0;
    if (Takes(rest, "ISO-8859-") || Takes(rest, "ISO8859-") || Takes(rest, "ISO_8859-"))
        return ReadNumber(rest, number) && number >= 1 && number <= 15 && number != 12 ? 28590 + number : 0;
    if (Takes(rest, "WINDOWS-"))
        return ReadNumber(rest, number) ? number : 0;
    if (!(Takes(rest, "CP") || Takes(rest, "IBM")) || !ReadNumber(rest, number))
        return 0;
    if (number == 1025)
        return 21025;
    return std::find(std::begin(Renumbered), std::end(Renumbered), number) != std::end(Renumbered) ? 20000 + number
                                                                                                   : number;
}

bool TakesNoFlags(unsigned int codePage) {
    return codePage == 65001 || codePage == 65000 || codePage == 54936 || (codePage >= 50220 && codePage <= 50229) ||
           (codePage >= 57002 && codePage <= 57011) || codePage == 42;
}

} // namespace Platform
