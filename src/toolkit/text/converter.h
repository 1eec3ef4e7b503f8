#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "base/keldcharset.h"
#include "base/keldmemory.h"
#include "toolkit/text/asciiunits.h"
#include "toolkit/text/charsettraits.h"
#include "toolkit/text/widecharset.h"

namespace Qzc {

class ConverterCache;

/// An iconv descriptor with what is known of its two charsets.
///
/// Opening one costs many times what converting a short text does, so each thread keeps those that it used last. Who
/// takes one owns it until it is given back, in whatever thread that is. A thread that is ended by force leaves its
/// converters to nobody: nothing is shared that it could have left half changed, and the system's own locks are only
/// held where it cannot be ended.
class Converter {
public:
    /// Null when either charset is unknown, or memory is short. The names are zero-terminated.
    static Converter* Take(std::string_view to, std::string_view from);
    /// The same by numbers, which is quicker. `Current` and `Wide` are no charsets here.
    static Converter* Take(KELDCharset::Charset to, KELDCharset::Charset from);
    static void Give(Converter* converter); ///< it has no text left in it

    /// For use within one function of one thread: it stays in the thread's cache, where nobody else takes it meanwhile.
    static Converter* Borrow(KELDCharset::Charset to, KELDCharset::Charset from, bool& isMemoryShort);
    void Return();

    bool IsSameCharset() const { return m_isSameCharset; } ///< both names are the same text

    /// Whether only a zero byte becomes a zero character.
    bool HasZeroBytesOnly() const { return m_fromTraits.asciiUnit == 1; }

    /// Whether the text is of bytes that become units of that size, each with its byte's number.
    bool CopiesAscii(const char* src, std::size_t length, std::size_t unit) const;

    /// Converts all of it into `room` bytes at `dst`.
    bool Convert(const char* src, std::size_t length, char* dst, std::size_t room, std::size_t& produced);

    /// Hands all of it over in pieces, each of whole units and aligned for them: `append(const char* bytes, std::size_t
    /// count)`. `reserve(std::size_t count)` is told before how many bytes are to be expected, when they are many.
    /// False when the text cannot be converted or makes more than five bytes of each; the pieces then mean nothing.
    template <class Reserve, class Append>
    bool ConvertPieces(const char* src, std::size_t length, Reserve reserve, Append append);

    // No conversion that anybody uses makes more bytes than this of one.
    static constexpr std::size_t Expansion = 5;
    /// How far the text can be converted, in bytes of it.
    std::size_t ConvertibleLength(const char* src, std::size_t length);

    // Long texts go through a piece of the stack in steps that fill it at most.
    static constexpr std::size_t StepSize = 3072;
    static constexpr std::size_t PieceSize = StepSize * Expansion + 64;

private:
    friend class ConverterCache;

    struct Output {
        char* at;
        std::size_t left;
    };
    Converter() = default;
    ~Converter() = default;
    static Converter* Open(std::string_view to, std::string_view from, std::uint64_t key);
    bool OpenHandle();
    void CloseHandle();
    void Close();
    bool Is(std::string_view to, std::string_view from) const { return m_to == to && m_from == from; }

    static constexpr std::size_t Failed = static_cast<std::size_t>(-1);

    /// Before a text's first byte. False when memory is short.
    bool Begin(const char* src, std::size_t length);
    /// Converts from the start as far as it goes; the number of bytes consumed, `Failed` when what comes then is no
    /// text. `isEnd`: nothing follows that could make a character of what is left.
    std::size_t Advance(const char* src, std::size_t length, bool isEnd, Output& out);
    std::size_t Call(const char* src, std::size_t length, bool isEnd, Output& out);
    bool CopyAscii(const char* src, std::size_t bytes, Output& out) const;
    bool Finish(Output& out); ///< what was held back
    void Reset();

    /// Leaves no text in the converter, however a conversion ends.
    struct Cleaner {
        Converter& converter;
        bool isClean;
        ~Cleaner() {
            if (!isClean)
                converter.Reset();
        }
    };

    void* m_handle = nullptr;
    std::string m_to;
    std::string m_from;
    CharsetTraits m_toTraits;
    CharsetTraits m_fromTraits;
    bool m_isSameCharset = false;
    bool m_copiesAscii = false;
    AsciiUnits m_ascii; ///< of the source
    bool m_isStateless = false;
    bool m_metMark = false;      ///< in the text before this one
    bool m_dropsLetters = false; ///< a name asks for it
    bool m_mayReplace = false;   ///< likewise
    // Where it is kept.
    std::uint64_t m_key = 0;
    ConverterCache* m_cache = nullptr; ///< while it is borrowed from one; null: it is closed when returned
    bool m_isBorrowed = false;
    unsigned int m_lastUse = 0;
    Converter* m_next = nullptr;
};

template <class Reserve, class Append>
bool Converter::ConvertPieces(const char* src, std::size_t length, Reserve reserve, Append append) {
    alignas(8) char piece[PieceSize];
    if (length <= StepSize) {
        std::size_t produced = 0;
        if (!Convert(src, length, piece, length * Expansion, produced))
            return false;
        append(static_cast<const char*>(piece), produced);
        return true;
    }
    if (!Begin(src, length))
        return false;
    Cleaner cleaner{*this, false};
    std::size_t done = 0;
    std::size_t total = 0;
    const auto hand = [&](const Output& out) {
        const std::size_t count = sizeof(piece) - out.left;
        total += count;
        append(static_cast<const char*>(piece), count);
    };
    while (done < length) {
        Output out{piece, sizeof(piece)};
        const std::size_t most = std::min(length - done, StepSize);
        const std::size_t step = Advance(src + done, most, most == length - done, out);
        if (step == Failed || step == 0)
            return false;
        if (done == 0)
            reserve((sizeof(piece) - out.left) * (length / step + 1));
        done += step;
        hand(out);
    }
    Output out{piece, sizeof(piece)};
    cleaner.isClean = Finish(out);
    hand(out);
    return cleaner.isClean && total <= length * Expansion;
}

/// Borrows a converter while it lives; none when a charset is unknown or memory is short.
class ConverterUse {
public:
    ConverterUse(KELDCharset::Charset to, KELDCharset::Charset from)
        : m_converter(Converter::Borrow(ResolveCharset(to), ResolveCharset(from), m_isMemoryShort)) {}
    ~ConverterUse() {
        if (m_converter != nullptr)
            m_converter->Return();
    }
    ConverterUse(const ConverterUse&) = delete;
    ConverterUse& operator=(const ConverterUse&) = delete;

    explicit operator bool() const { return m_converter != nullptr; }
    Converter* operator->() const { return m_converter; }
    Converter& operator*() const { return *m_converter; }
    bool IsMemoryShort() const { return m_isMemoryShort; } ///< that is why there is none

private:
    bool m_isMemoryShort = false; // first, for the other's initializer sets it
    Converter* m_converter;
};

enum class Converted { Done, NoText, NoMemory };

/// Converts into a standard string of char or of wide units. `NoText`, and `text` left as it was, when it cannot be
/// converted or is longer than `maxLength` units in the end; likewise `NoMemory`, which is reported.
template <class Char>
Converted ConvertTo(std::basic_string<Char>& text, Converter& converter, const char* src, std::size_t length,
                    std::size_t maxLength) {
    if (length <= Converter::StepSize) { // most are; their string is made at once
        alignas(8) char piece[Converter::PieceSize];
        std::size_t size = 0;
        if (!converter.Convert(src, length, piece, length * Converter::Expansion, size) ||
            size / sizeof(Char) > maxLength)
            return Converted::NoText;
        const bool fits = TryMemory(
            [&] { text = std::basic_string<Char>(reinterpret_cast<const Char*>(piece), size / sizeof(Char)); });
        return fits ? Converted::Done : Converted::NoMemory;
    }
    if (length <= maxLength && converter.CopiesAscii(src, length, sizeof(Char))) {
        const auto* const units = reinterpret_cast<const unsigned char*>(src);
        return TryMemory([&] { text = std::basic_string<Char>(units, units + length); }) ? Converted::Done
                                                                                         : Converted::NoMemory;
    }
    std::basic_string<Char> result;
    bool converted = false;
    const bool fits = TryMemory([&] {
        converted = converter.ConvertPieces(
            src, length, [&](std::size_t bytes) { result.reserve(std::min(bytes / sizeof(Char), maxLength)); },
            [&](const char* bytes, std::size_t count) {
                result.append(reinterpret_cast<const Char*>(bytes), count / sizeof(Char));
            });
    });
    if (!fits)
        return Converted::NoMemory;
    if (!converted || result.size() > maxLength)
        return Converted::NoText;
    text = std::move(result);
    return Converted::Done;
}

} // namespace Qzc
