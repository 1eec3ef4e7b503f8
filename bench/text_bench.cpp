// What the toolkit's text classes make of short and long texts, beside iconv with a descriptor that was opened once and
// writes into memory that was there before.
//
// Raw iconv makes no text of its own, allocates nothing and knows the charsets beforehand. It is called as it has to be
// called for any charset: once for the text and once for what is held back. "QzStringW" and the others look the charset
// up, convert and make a value, which is dropped again.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/keldsystem.h"
#include "ratio.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzstringucs2le.h"
#include "toolkit/qzstringutf8.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;

namespace {

using Charset = KELDCharset::Charset;

class Raw {
public:
    Raw(std::string_view to, std::string_view from)
        : m_handle(iconv_open(std::string(to).c_str(), std::string(from).c_str())) {
        if (m_handle == reinterpret_cast<iconv_t>(-1))
            std::abort();
    }
    Raw(const Raw&) = delete;
    Raw& operator=(const Raw&) = delete;
    ~Raw() { iconv_close(m_handle); }

    std::size_t Convert(const char* text, std::size_t length, std::vector<char>& room) {
        char* in = const_cast<char*>(text);
        char* out = room.data();
        std::size_t left = room.size();
        if (iconv(m_handle, &in, &length, &out, &left) == static_cast<std::size_t>(-1) || length != 0)
            std::abort();
        iconv(m_handle, nullptr, nullptr, &out, &left);
        return room.size() - left;
    }

private:
    iconv_t m_handle;
};

struct Input {
    const char* name;
    std::size_t size;
    bool isAscii;
};

constexpr Input Inputs[] = {
    {"20 bytes", 20, false}, {"20 kB", 20000, false}, {"20 bytes of ASCII", 20, true}, {"20 kB of ASCII", 20000, true}};

// A text of about this size in a charset that has Greek letters, which most of the table's have.
std::wstring WideText(const Input& input) {
    std::wstring text;
    while (text.size() < input.size / (input.isAscii ? 1 : 2))
        text += input.isAscii ? L"Layer 12," : L"\u03B1\u03B2\u03C0\u03C9 ";
    text.resize(input.size / (input.isAscii ? 1 : 2));
    return text;
}

constexpr Charset Four[] = {KELDCharset::UTF8, KELDCharset::GB2312, KELDCharset::Greek, KELDCharset::Japanese};

// The same text in one charset, or in four of which each call takes the next.
struct Turn {
    std::vector<Charset> charsets;
    std::vector<KeldMBString> texts;
    QzStringW wide;
    QzStringUCS2LE units;
    QzStringUTF8 utf8;
    std::size_t next = 0;

    Turn(const Input& input, bool inTurn) : wide(WideText(input)) {
        charsets.assign(Four + (inTurn ? 0 : 1), Four + (inTurn ? 4 : 2));
        for (const Charset charset : charsets)
            texts.push_back(wide.ToString(charset));
        units = QzStringUCS2LE(texts[0], charsets[0]);
        utf8 = QzStringUTF8(texts[0], charsets[0]);
        for (const KeldMBString& text : texts) {
            if (text.IsEmpty() || utf8.GetLength() == 0)
                std::abort();
        }
    }
    std::size_t Step() { return next = (next + 1) % texts.size(); }
};

using Body = void (*)(benchmark::State&, Turn&);

std::vector<std::unique_ptr<Raw>> RawOf(const Turn& turn, const char* wide, bool toWide) {
    std::vector<std::unique_ptr<Raw>> raw;
    for (const Charset charset : turn.charsets) {
        const std::string_view name = KeldSystem::GetCharsetNameView(charset);
        raw.push_back(toWide ? std::make_unique<Raw>(wide, name) : std::make_unique<Raw>(name, wide));
    }
    return raw;
}

void RawToWide(benchmark::State& state, Turn& turn, const char* wide) {
    const auto raw = RawOf(turn, wide, true);
    std::vector<char> room(1 << 17);
    for (auto _ : state) {
        const std::size_t i = turn.Step();
        benchmark::DoNotOptimize(
            raw[i]->Convert(turn.texts[i].Cstr(), static_cast<std::size_t>(turn.texts[i].GetLength()), room));
    }
}

void RawFrom(benchmark::State& state, Turn& turn, const char* wide, const void* text, std::size_t size) {
    const auto raw = RawOf(turn, wide, false);
    std::vector<char> room(1 << 17);
    for (auto _ : state)
        benchmark::DoNotOptimize(raw[turn.Step()]->Convert(static_cast<const char*>(text), size, room));
}

// The hash code takes the text in the current charset, so that is set for the peer too.
class CurrentInTurn {
public:
    explicit CurrentInTurn(Turn& turn) : m_turn(turn), m_before(KeldSystem::GetCurCharset()) {
        KeldSystem::SetCurCharset(turn.charsets[0]);
    }
    ~CurrentInTurn() { KeldSystem::SetCurCharset(m_before); }
    CurrentInTurn(const CurrentInTurn&) = delete;
    CurrentInTurn& operator=(const CurrentInTurn&) = delete;

    std::size_t Step() {
        const std::size_t i = m_turn.Step();
        if (m_turn.charsets.size() > 1)
            KeldSystem::SetCurCharset(m_turn.charsets[i]);
        return i;
    }

private:
    Turn& m_turn;
    Charset m_before;
};

// The units and the walk over them, which waits for each unit's result.
void RawHash(benchmark::State& state, Turn& turn) {
    const auto raw = RawOf(turn, "UCS-2LE", true);
    std::vector<char> room(1 << 17);
    CurrentInTurn current(turn);
    for (auto _ : state) {
        const std::size_t i = current.Step();
        const std::size_t size =
            raw[i]->Convert(turn.texts[i].Cstr(), static_cast<std::size_t>(turn.texts[i].GetLength()), room);
        const auto step = [](std::uint32_t hash) {
            return (hash << 5) + hash + static_cast<std::uint32_t>(static_cast<std::int32_t>(hash) >> 27);
        };
        std::uint32_t first = 0x15051505;
        std::uint32_t second = 0x15051505;
        for (std::size_t at = 0; at != size; at += 2) {
            std::uint16_t unit = 0;
            std::memcpy(&unit, room.data() + at, sizeof(unit));
            first = step(first) ^ unit;
            if (at != 0)
                second = step(second) ^ unit;
        }
        benchmark::DoNotOptimize(first + second * 0x5D588B65);
    }
}

template <class Make>
void Each(benchmark::State& state, Turn& turn, Make make) {
    for (auto _ : state) {
        auto value = make(turn.Step());
        benchmark::DoNotOptimize(value);
    }
}

struct Work {
    const char* name;
    Body raw;
    const char* contender;
    Body ours;
};

std::size_t Bytes(int units, std::size_t size) {
    return static_cast<std::size_t>(units) * size;
}

const Work Works[] = {
    {"to wide", [](benchmark::State& state, Turn& turn) { RawToWide(state, turn, "UCS-4LE"); }, "QzStringW::FromString",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) {
             QzStringW text;
             text.FromString(turn.texts[i], turn.charsets[i]);
             return text;
         });
     }},
    {"from wide",
     [](benchmark::State& state, Turn& turn) {
         RawFrom(state, turn, "UCS-4LE", turn.wide.Cstr(), Bytes(turn.wide.GetLength(), sizeof(wchar_t)));
     },
     "QzStringW::ToString",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) { return turn.wide.ToString(turn.charsets[i]); });
     }},
    {"to units", [](benchmark::State& state, Turn& turn) { RawToWide(state, turn, "UCS-2LE"); }, "QzStringUCS2LE",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) { return QzStringUCS2LE(turn.texts[i], turn.charsets[i]); });
     }},
    {"from units",
     [](benchmark::State& state, Turn& turn) {
         RawFrom(state, turn, "UCS-2LE", turn.units.Cstr(), Bytes(turn.units.GetLength(), 2));
     },
     "QzStringUCS2LE::ToString",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) { return turn.units.ToString(turn.charsets[i]); });
     }},
    {"from UTF-8",
     [](benchmark::State& state, Turn& turn) {
         RawFrom(state, turn, "UTF-8", turn.utf8.Cstr(), Bytes(turn.utf8.GetLength(), 1));
     },
     "QzStringUTF8::ToString",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) { return turn.utf8.ToString(turn.charsets[i]); });
     }},
    {"to UTF-8", [](benchmark::State& state, Turn& turn) { RawToWide(state, turn, "UTF-8"); }, "QzStringUTF8",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) { return QzStringUTF8(turn.texts[i], turn.charsets[i]); });
     }},
    {"to wide by codec", [](benchmark::State& state, Turn& turn) { RawToWide(state, turn, "UCS-4LE"); }, "QzTextCodec",
     [](benchmark::State& state, Turn& turn) {
         Each(state, turn, [&](std::size_t i) {
             KeldMBString wide;
             QzTextCodec(KELDCharset::UCS4LE, turn.charsets[i]).Convert(wide, turn.texts[i]);
             return wide;
         });
     }},
    {"hash code", RawHash, "QzHashCode::StringToHashCode",
     [](benchmark::State& state, Turn& turn) {
         CurrentInTurn current(turn);
         for (auto _ : state)
             benchmark::DoNotOptimize(QzHashCode::StringToHashCode(turn.texts[current.Step()]));
     }},
};

void RegisterConversions() {
    for (const Work& work : Works) {
        for (const Input& input : Inputs) {
            for (const bool inTurn : {false, true}) {
                const std::string group =
                    std::string(work.name) + '/' + input.name + (inTurn ? ", four charsets in turn/" : "/");
                const auto add = [&](const char* contender, Body body) {
                    benchmark::RegisterBenchmark((group + contender).c_str(), [body, &input, inTurn](auto& state) {
                        Turn turn(input, inTurn);
                        body(state, turn);
                    });
                };
                add(work.contender, work.ours);
                add("iconv", work.raw);
            }
        }
    }
}

// 1000 bytes without lead bytes, and the loop that a caller would write.
std::string Letters() {
    std::string text;
    while (text.size() < 1000)
        text += "Layer Names of a Map, ";
    text.resize(1000);
    return text;
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

void MakeUpper(benchmark::State& state) {
    KeldMBString text(Letters());
    for (auto _ : state)
        benchmark::DoNotOptimize(text.MakeUpper().Cstr());
}
void UpperLoop(benchmark::State& state) {
    std::string text = Letters();
    for (auto _ : state) {
        for (char& c : text)
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
}
void CompareNoCase(benchmark::State& state) {
    const KeldMBString a(Letters());
    const KeldMBString b = KeldMBString(a).MakeUpper();
    for (auto _ : state)
        benchmark::DoNotOptimize(a.CompareNoCase(b));
}
void CompareLoop(benchmark::State& state) {
    const std::string a = Letters();
    const std::string b(KeldMBString(std::string_view(a)).MakeUpper().View());
    for (auto _ : state) {
        std::size_t i = 0;
        while (i < a.size() && Lower(a[i]) == Lower(b[i]))
            ++i;
        benchmark::DoNotOptimize(i);
    }
}

const KeldMBString Names[] = {KeldMBString("UTF-8"), KeldMBString("windows-1256"), KeldMBString("ISO-8859-15"),
                              KeldMBString("utf-16be"), KeldMBString("no charset")};

void GetCharset(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(KeldSystem::GetCharset(Names[++i % std::size(Names)]));
}
// A table that knows nothing of upper and lower case.
void MapLookup(benchmark::State& state) {
    std::unordered_map<std::string, int> table;
    std::vector<std::string> names;
    for (const KeldMBString& name : Names) {
        names.emplace_back(name.View());
        table[names.back()] = name.GetLength();
    }
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(table.find(names[++i % names.size()]));
}

BENCHMARK(MakeUpper)->Name("upper case/1000 bytes/QzMakeUpper");
BENCHMARK(UpperLoop)->Name("upper case/1000 bytes/loop");
BENCHMARK(CompareNoCase)->Name("compare without case/1000 bytes/QzCompareNoCase");
BENCHMARK(CompareLoop)->Name("compare without case/1000 bytes/loop");
BENCHMARK(GetCharset)->Name("charset of a name/five names/QzGetCharset");
BENCHMARK(MapLookup)->Name("charset of a name/five names/std::unordered_map");

} // namespace

int main(int argc, char** argv) {
    RegisterConversions();
    return Bench::Run(argc, argv);
}
