#include "textguess.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

#include "base/keldmbstring.h"
#include "letters.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace Motool {

namespace {

using Charset = KELDCharset::Charset;

constexpr std::size_t Looked = 1 << 16; ///< bytes

bool IsIn(std::uint32_t c, std::uint32_t first, std::uint32_t last) {
    return c >= first && c <= last;
}

enum class Script { Latin, Greek, Cyrillic, Hebrew, Arabic, Thai, Kana, Han, RareHan, Hangul, Other };

Script ScriptOf(std::uint32_t c) {
    if (IsIn(c, 0xC0, 0x24F))
        return Script::Latin;
    if (IsIn(c, 0x370, 0x3FF))
        return Script::Greek;
    if (IsIn(c, 0x410, 0x44F) || c == 0x401 || c == 0x451)
        return Script::Cyrillic;
    if (IsIn(c, 0x5D0, 0x5EA))
        return Script::Hebrew;
    if (IsIn(c, 0x620, 0x64A))
        return Script::Arabic;
    if (IsIn(c, 0xE01, 0xE5B))
        return Script::Thai;
    if (IsIn(c, 0x3041, 0x30FE))
        return Script::Kana;
    if (IsIn(c, 0x4E00, 0x9FA5))
        return Script::Han;
    if (IsIn(c, 0xAC00, 0xD7A3))
        return Script::Hangul;
    return IsIn(c, 0x3400, 0x4DBF) || IsIn(c, 0xE000, 0xF8FF) ? Script::RareHan : Script::Other;
}

bool IsUsual(std::uint32_t c) {
    return IsIn(c, 0x20, 0x7E) || c == 9 || c == 10 || c == 13;
}

// The Chinese characters that make up some fifteen per cent of any text, and punctuation between them.
bool IsFrequentHan(std::uint32_t c) {
    constexpr wchar_t Frequent[] =
        L"的一是不了在人有我他这中大来上国个到说们为子和你地出道也时年得就那要下以生会自着去之过家"
        L"學這個們來說國時會為對開門東車長地圖層道路河流圖线点面图层道路北京上海，。、：；";
    return std::find(std::begin(Frequent), std::end(Frequent), static_cast<wchar_t>(c)) != std::end(Frequent);
}

// How much a text reads like one: points for each character that is not ASCII, and for runs of one script.
double Likeness(std::wstring_view text) {
    double points = 0;
    std::int64_t others = 0;
    Script before = Script::Other;
    bool isWord = false;
    ForEachLetter(text, [&](std::wstring_view letter) {
        const std::uint32_t c = LetterValue(letter);
        if (IsUsual(c)) {
            isWord = (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
            before = isWord ? Script::Latin : Script::Other;
            return;
        }
        ++others;
        const Script script = ScriptOf(c);
        switch (script) {
        case Script::Latin: points += isWord ? 1 : 0.2; break; // letters with accents stand among those without
        case Script::Han: // alone, or inside a word, it is two letters of another script
            points += before == Script::Han ? (IsFrequentHan(c) ? 3 : 0.6) : (IsFrequentHan(c) && !isWord ? 1 : 0);
            break;
        case Script::Other:
            points += IsIn(c, 0x80, 0x9F) || c < 0x20 ? -3 : (c >= 0x2010 && c <= 0x301F ? 0.4 : 0);
            break;
        case Script::RareHan: points -= 2; break;
        case Script::Kana: points += isWord ? -1 : 1.5; break;
        case Script::Cyrillic: // charsets that have its cases the other way round make capitals of most
            points += isWord || (before == Script::Cyrillic && IsIn(c, 0x410, 0x42F)) ? -1 : 1;
            break;
        default: points += isWord ? -1 : 1; break;
        }
        if (script == before && script != Script::Latin && script != Script::Other)
            points += 0.5;
        isWord = script == Script::Latin;
        before = script;
    });
    return others == 0 ? 0 : points / static_cast<double>(others);
}

bool Converts(Charset charset, std::string_view bytes, std::wstring& wide) {
    QzTextCodec codec(WideCharset, charset);
    const int length = codec.GetConvertibleLength(bytes.data(), static_cast<int>(bytes.size()));
    constexpr std::size_t LongestCharacter = 4; // that the end of what is looked at may have cut
    if (static_cast<std::size_t>(length) + (bytes.size() == Looked ? LongestCharacter : 0) < bytes.size())
        return false;
    wide = ToWide(bytes.substr(0, static_cast<std::size_t>(length)), charset);
    return !wide.empty();
}

} // namespace

std::vector<Charset> GuessCharsets(std::string_view bytes) {
    using namespace std::string_view_literals;
    const auto startsWith = [&](std::string_view mark) { return bytes.substr(0, mark.size()) == mark; };
    if (startsWith("\xFF\xFE\0\0"sv) || startsWith("\0\0\xFE\xFF"sv))
        return {KELDCharset::UTF32};
    if (startsWith("\xFF\xFE"sv) || startsWith("\xFE\xFF"sv))
        return {KELDCharset::UTF16};
    if (startsWith("\xEF\xBB\xBF"sv))
        return {KELDCharset::UTF8};
    bytes = bytes.substr(0, Looked);
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80 && c != 0; }))
        return bytes.empty() ? std::vector<Charset>() : std::vector<Charset>{KELDCharset::ASCII};
    std::wstring wide;
    if (bytes.find('\0') != std::string_view::npos) {
        // Where ASCII letters have their zero bytes.
        std::int64_t even = 0;
        std::int64_t odd = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            (i % 2 == 0 ? even : odd) += bytes[i] == '\0' ? 1 : 0;
        const Charset charset = odd >= even ? KELDCharset::UTF16LE : KELDCharset::UTF16BE;
        return bytes.size() % 2 == 0 && Converts(charset, bytes, wide) ? std::vector<Charset>{charset}
                                                                       : std::vector<Charset>();
    }
    if (Converts(KELDCharset::UTF8, bytes, wide))
        return {KELDCharset::UTF8};
    constexpr Charset Candidates[] = {
        KELDCharset::GB2312,  KELDCharset::Big5,    KELDCharset::Japanese, KELDCharset::EUCJP,      KELDCharset::Korean,
        KELDCharset::GB18030, KELDCharset::Russian, KELDCharset::KOI8R,    KELDCharset::EastEurope, KELDCharset::Ansi,
        KELDCharset::Greek,   KELDCharset::Turkish, KELDCharset::Hebrew,   KELDCharset::Arabic,     KELDCharset::Thai};
    std::vector<std::pair<double, Charset>> likely;
    const Charset own = QzToolkit::GetCurCharset();
    for (const Charset charset : Candidates) {
        if (Converts(charset, bytes, wide))
            likely.emplace_back(Likeness(wide) + (charset == own ? 0.3 : 0), charset);
    }
    std::stable_sort(likely.begin(), likely.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<Charset> charsets;
    charsets.reserve(likely.size());
    for (const auto& one : likely)
        charsets.push_back(one.second);
    return charsets;
}

} // namespace Motool
