#include "toolkit/text/converter.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <new>

#include "base/keldsystem.h"
#include "platform/forkhook.h"
#include "platform/thread.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

bool IsOpen(iconv_t handle) {
    return handle != reinterpret_cast<iconv_t>(static_cast<std::intptr_t>(-1));
}

// iconv's second parameter is `char**` in one system's header and `const char**` in another's.
class InputPointer {
public:
    explicit InputPointer(const char* text) : m_text(text) {}
    operator char**() { return const_cast<char**>(&m_text); }
    operator const char**() { return &m_text; }
    const char* Get() const { return m_text; }

private:
    const char* m_text;
};

// Opening and closing take locks of the system's that neither a thread's forced end nor a fork may leave locked.
struct SystemHold {
    Platform::TerminationShield shield;
    Platform::ForkHold hold;
};

// A machine with the other order of bytes leaves all of it to the converter.
bool IsLittleEndian() {
    const std::uint16_t one = 1;
    unsigned char first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// Another name of the same number may differ from its own in a few characters.
CharsetTraits TraitsOf(std::string_view name) {
    const Charset charset = KeldSystem::GetCharset(KeldMBString(name));
    const KeldMBString own(KeldSystem::GetCharsetNameView(charset));
    return own.CompareNoCase(KeldMBString(name)) == 0 ? GetCharsetTraits(charset) : CharsetTraits();
}

bool BeginsWithMark(std::string_view text) {
    using namespace std::string_view_literals;
    for (const std::string_view mark : {"\xFF\xFE"sv, "\xFE\xFF"sv, "\0\0\xFE\xFF"sv}) {
        if (text.substr(0, mark.size()) == mark)
            return true;
    }
    return false;
}

bool AsksToDrop(std::string_view name) {
    const std::size_t suffix = name.find("//");
    return suffix != std::string_view::npos && KeldMBString(name.substr(suffix)).MakeUpper().Find("IGNORE") >= 0;
}

// Some systems' converters put '?' or '*' in the place of what the charset lacks, and count those. Others count too,
// but not that: found out when first something is counted.
bool SystemReplaces() {
    static std::atomic<int> s_known{-1};
    int known = s_known.load(std::memory_order_relaxed);
    if (known >= 0)
        return known != 0;
    const SystemHold hold;
    const iconv_t probe = iconv_open("ASCII", "UTF-8");
    if (!IsOpen(probe))
        return true;
    InputPointer in("\xE4\xB8\xAD");
    std::size_t left = 3;
    char room[8];
    char* at = room;
    std::size_t roomLeft = sizeof(room);
    known = iconv(probe, in, &left, &at, &roomLeft) != static_cast<std::size_t>(-1) ? 1 : 0;
    iconv_close(probe);
    s_known.store(known, std::memory_order_relaxed);
    return known != 0;
}

// What GNU libiconv and others call charsets of the table, whose names are those of the GNU C library.
struct OtherName {
    std::string_view name;
    std::string_view other;
};
constexpr OtherName OtherNames[] = {
    {"WINDOWS-31J", "CP932"},
    {"MAC-CYRILLIC", "MACCYRILLIC"},
    {"MS-MAC-CYRILLIC", "MACCYRILLIC"},
    {"MAC-UK", "MACUKRAINE"},
    {"MAC-CENTRALEUROPE", "MACCENTRALEUROPE"},
    {"MAC-IS", "MACICELAND"},
    {"IBM856", "CP856"},
    {"IBM922", "CP922"},
    {"IBM943", "CP943"},
    {"IBM1046", "CP1046"},
    {"IBM1124", "CP1124"},
    {"IBM1129", "CP1129"},
    {"IBM1133", "CP1133"},
};

// With what stands behind it ("//IGNORE"). The name itself where it has no other.
std::string OtherNameOf(const std::string& name) {
    const std::string_view suffix = std::string_view(name).substr(std::min(name.find("//"), name.size()));
    const KeldMBString charset(std::string_view(name).substr(0, name.size() - suffix.size()));
    for (const OtherName& row : OtherNames) {
        if (charset.CompareNoCase(KeldMBString(row.name)) == 0)
            return std::string(row.other).append(suffix);
    }
    return name;
}

// The errno value.
int OpenIconv(const std::string& to, const std::string& from, iconv_t& handle) {
    const SystemHold hold;
    handle = iconv_open(to.c_str(), from.c_str());
    return IsOpen(handle) ? 0 : errno;
}

} // namespace

Converter* Converter::Open(std::string_view to, std::string_view from, std::uint64_t key) {
    // iconv takes an empty name for the locale's charset.
    const auto isName = [](std::string_view name) {
        return !name.empty() && name.front() != '/' && name.find('\0') == std::string_view::npos;
    };
    if (!isName(to) || !isName(from))
        return nullptr;
    auto* const converter = new (std::nothrow) Converter;
    if (converter == nullptr) {
        ReportMemoryFailure();
        return nullptr;
    }
    converter->m_key = key;
    const bool isNamed = TryCopies<KeldMBString>([&] {
        converter->m_to = to;
        converter->m_from = from;
        converter->m_toTraits = TraitsOf(to);
        converter->m_fromTraits = TraitsOf(from);
        converter->m_dropsLetters = AsksToDrop(to) || AsksToDrop(from);
        converter->m_mayReplace = to.find("//") != std::string_view::npos || from.find("//") != std::string_view::npos;
    });
    converter->m_isSameCharset = to == from;
    converter->m_isStateless = converter->m_toTraits.isStateless && converter->m_fromTraits.isStateless;
    converter->m_copiesAscii =
        converter->m_toTraits.asciiUnit != 0 && converter->m_fromTraits.asciiUnit != 0 && IsLittleEndian();
    if (converter->m_copiesAscii)
        converter->m_ascii = AsciiUnits(converter->m_fromTraits.asciiUnit);
    if (isNamed && converter->OpenHandle())
        return converter;
    delete converter;
    return nullptr;
}

bool Converter::OpenHandle() {
    int error = OpenIconv(m_to, m_from, m_handle);
    if (error == EINVAL) {
        TryMemory([&] {
            const std::string to = OtherNameOf(m_to);
            const std::string from = OtherNameOf(m_from);
            if (to != m_to || from != m_from)
                error = OpenIconv(to, from, m_handle);
        });
    }
    if (error == ENOMEM)
        ReportMemoryFailure(); // here, where its handler may do as it likes
    return error == 0;
}

void Converter::CloseHandle() {
    const SystemHold hold;
    iconv_close(m_handle);
}

void Converter::Close() {
    if (m_handle != nullptr)
        CloseHandle();
    delete this;
}

// The order of bytes that a byte-order mark told stays with a descriptor, whatever it is reset to: the next text, which
// may have no mark, needs a new one.
bool Converter::Begin(const char* src, std::size_t length) {
    if (m_fromTraits.isStateless)
        return true;
    if (m_metMark) {
        if (m_handle != nullptr)
            CloseHandle();
        if (!OpenHandle()) {
            m_handle = nullptr; // and tried again with the next text
            return false;
        }
    }
    m_metMark = BeginsWithMark({src, length});
    return true;
}

bool Converter::Convert(const char* src, std::size_t length, char* dst, std::size_t room, std::size_t& produced) {
    produced = 0;
    if (length == 0)
        return true; // no charset's header either, for which there would be no room
    // A short text that is not all ASCII is one call: looking for stretches to copy would cost more than it saves.
    const bool isOneCall = m_isStateless && length < AsciiUnits::ShortestStretch &&
                           (!m_copiesAscii || length < AsciiUnits::WordSize || !m_ascii.HoldsWord(src));
    if (isOneCall) {
        InputPointer in(src);
        char* at = dst;
        std::size_t left = length;
        std::size_t roomLeft = room;
        const std::size_t result = iconv(m_handle, in, &left, &at, &roomLeft);
        produced = room - roomLeft;
        const bool isWhole = result == 0 || result == Failed || m_mayReplace || !SystemReplaces(); // see Call
        if (left == 0 && isWhole)
            return true;
        Reset(); // and once more, to find out why
    }
    produced = 0;
    if (!Begin(src, length))
        return false;
    Output out{dst, room};
    const bool converted = Advance(src, length, true, out) == length && Finish(out);
    if (!converted)
        Reset();
    produced = room - out.left;
    return converted;
}

std::size_t Converter::Call(const char* src, std::size_t length, bool isEnd, Output& out) {
    InputPointer in(src);
    for (std::size_t left = length;;) {
        const std::size_t before = left;
        const std::size_t result = iconv(m_handle, in, &left, &out.at, &out.left);
        if (result != 0 && result != Failed && !m_mayReplace && SystemReplaces())
            return Failed;
        if (left == 0 || result != Failed)
            return length - left;
        // A converter that was told to drop letters stops at one now and then, and a character's rest may follow.
        const bool goesOn = m_dropsLetters && errno == EILSEQ && left != before;
        if (!goesOn)
            return errno == EILSEQ || isEnd ? Failed : length - left;
    }
}

bool Converter::CopiesAscii(const char* src, std::size_t length, std::size_t unit) const {
    return m_copiesAscii && m_fromTraits.asciiUnit == 1 && m_toTraits.asciiUnit == static_cast<int>(unit) &&
           m_ascii.StretchAt(src, length) == length;
}

bool Converter::CopyAscii(const char* src, std::size_t bytes, Output& out) const {
    const std::size_t units = bytes / static_cast<std::size_t>(m_fromTraits.asciiUnit);
    const std::size_t size = units * static_cast<std::size_t>(m_toTraits.asciiUnit);
    if (size > out.left)
        return false;
    m_ascii.Copy(src, units, out.at, m_toTraits.asciiUnit);
    out.at += size;
    out.left -= size;
    return true;
}

std::size_t Converter::Advance(const char* src, std::size_t length, bool isEnd, Output& out) {
    if (!m_copiesAscii)
        return Call(src, length, isEnd, out);
    std::size_t done = 0;
    while (done < length) {
        const std::size_t ascii = m_ascii.StretchAt(src + done, length - done);
        if (ascii != 0 && !CopyAscii(src + done, ascii, out))
            return Failed;
        done += ascii;
        if (done == length)
            break;
        const std::size_t end = m_fromTraits.isSelfEvident ? m_ascii.FindStretch(src, done, length) : length;
        const std::size_t converted = Call(src + done, end - done, isEnd || end != length, out);
        if (converted == Failed)
            return Failed;
        done += converted;
        if (done != end)
            break;
    }
    return done;
}

// Where iconv itself stops: without the short ways of Advance, which do not tell.
std::size_t Converter::ConvertibleLength(const char* src, std::size_t length) {
    if (!Begin(src, length))
        return 0;
    const Cleaner cleaner{*this, false};
    alignas(8) char piece[PieceSize];
    InputPointer in(src);
    std::size_t left = length;
    while (left != 0) {
        Output out{piece, sizeof(piece)};
        const std::size_t before = left;
        if (iconv(m_handle, in, &left, &out.at, &out.left) == Failed && errno != E2BIG && left == before)
            break;
    }
    return length - left;
}

bool Converter::Finish(Output& out) {
    // A charset with combining marks holds its last letter back until told that nothing follows: this tells it, and
    // leaves the descriptor as new.
    if (m_isStateless)
        return true;
    const std::size_t result = iconv(m_handle, nullptr, nullptr, &out.at, &out.left);
    return result == 0 || (result != Failed && (m_mayReplace || !SystemReplaces()));
}

void Converter::Reset() {
    iconv(m_handle, nullptr, nullptr, nullptr, nullptr); // what is left of a text must not meet the next
}

} // namespace Qzc
