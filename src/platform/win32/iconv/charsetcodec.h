#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace Platform {

/// Stands where bytes are no character.
constexpr char32_t NoCharacter = 0xFFFFFFFF;

/// A charset seen as characters, one at a time. A text is read, or written, by one codec from its start to its end.
class CharsetCodec {
public:
    /// What became of a character: the bytes that it took, or one of these.
    static constexpr int Invalid = -1; ///< no text of the charset, or a character that it lacks
    static constexpr int Short = 0;    ///< the text ends in the middle of it, or there is no room for it

    virtual ~CharsetCodec() = default;

    /// The next character of the text, which has at least a byte; NoCharacter for a byte-order mark or a change of
    /// state. The state changes only when it is accepted.
    virtual int Decode(const unsigned char* text, std::size_t length, char32_t& character) = 0;
    virtual void Accept() {} ///< what was decoded last is used
    /// The character that still waits for what follows at the end of the text, or NoCharacter.
    virtual char32_t Held() const { return NoCharacter; }

    /// The state changes only when there is room.
    virtual int Encode(char32_t character, unsigned char* room, std::size_t size) = 0;
    /// Ends the text: as many bytes as that takes, or Invalid when there is no room for them.
    virtual int Finish(unsigned char*, std::size_t) { return 0; }

    /// The bytes of a unit when units below 0x80, low byte first, are ASCII characters in this state; else 0.
    virtual int AsciiUnit() const { return 0; }

    /// Forgets the text before.
    virtual void Reset() {}

protected:
    static constexpr char32_t LastCharacter = 0x10FFFF;
    static bool IsSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

    /// Puts the bytes into the room, if there are any and they fit.
    static int Put(const unsigned char* bytes, std::size_t count, unsigned char* room, std::size_t size) {
        if (size < count)
            return Short;
        for (std::size_t i = 0; i < count; ++i)
            room[i] = bytes[i];
        return static_cast<int>(count);
    }
};

/// Null when neither this library nor the system has such a charset.
std::unique_ptr<CharsetCodec> MakeCharsetCodec(std::string_view name);

} // namespace Platform
