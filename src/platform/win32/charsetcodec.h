#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace Platform {

/// A charset seen as characters, one at a time.
class CharsetCodec {
public:
    /// What became of a character: the bytes that it took, or one of these.
    static constexpr int Invalid = -1; ///< no text of the charset, or a character that it lacks
    static constexpr int Short = 0;    ///< the text ends in the middle of it, or there is no room for it

    virtual ~CharsetCodec() = default;
    virtual int Decode(const unsigned char* text, std::size_t length, char32_t& character) = 0;
    virtual int Encode(char32_t character, unsigned char* room, std::size_t size) = 0;
    /// Forgets the text before.
    virtual void Reset() {}
};

/// Null when the system has no such charset.
std::unique_ptr<CharsetCodec> MakeCharsetCodec(std::string_view name);

} // namespace Platform
