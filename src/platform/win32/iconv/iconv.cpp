#include "platform/win32/iconv/iconv.h"

#include <cerrno>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string_view>

#include "platform/win32/charsetcodec.h"

namespace {

using Platform::CharsetCodec;

struct Descriptor {
    std::unique_ptr<CharsetCodec> to;
    std::unique_ptr<CharsetCodec> from;
    bool drops = false;
    bool replaces = false;
};

iconv_t NoDescriptor() {
    return reinterpret_cast<iconv_t>(static_cast<std::intptr_t>(-1));
}

constexpr std::size_t Failed = static_cast<std::size_t>(-1);
constexpr char32_t NoCharacter = 0xFFFFFFFF; // a mark, which is no part of the text

std::string_view WithoutSuffixes(std::string_view name) {
    return name.substr(0, name.find("//"));
}

bool Has(std::string_view name, std::string_view suffix) {
    const std::size_t at = name.find("//");
    if (at == std::string_view::npos)
        return false;
    for (std::size_t i = at; i + suffix.size() <= name.size(); ++i) {
        std::size_t same = 0;
        while (same < suffix.size() && (name[i + same] & ~0x20) == suffix[same])
            ++same;
        if (same == suffix.size())
            return true;
    }
    return false;
}

} // namespace

iconv_t iconv_open(const char* to, const char* from) {
    errno = EINVAL;
    try {
        auto descriptor = std::make_unique<Descriptor>();
        descriptor->to = Platform::MakeCharsetCodec(WithoutSuffixes(to));
        descriptor->from = Platform::MakeCharsetCodec(WithoutSuffixes(from));
        descriptor->drops = Has(to, "IGNORE");
        descriptor->replaces = Has(to, "TRANSLIT");
        return descriptor->to != nullptr && descriptor->from != nullptr ? descriptor.release() : NoDescriptor();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return NoDescriptor();
    }
}

std::size_t iconv(iconv_t descriptor, char** in, std::size_t* inLeft, char** out, std::size_t* outLeft) {
    auto& self = *static_cast<Descriptor*>(descriptor);
    if (in == nullptr || *in == nullptr) {
        self.to->Reset();
        self.from->Reset();
        return 0;
    }
    std::size_t replaced = 0;
    bool hasDropped = false;
    while (*inLeft != 0) {
        char32_t character = 0;
        const int taken = self.from->Decode(reinterpret_cast<const unsigned char*>(*in), *inLeft, character);
        if (taken == CharsetCodec::Short) {
            errno = EINVAL;
            return Failed;
        }
        if (taken == CharsetCodec::Invalid) {
            errno = EILSEQ;
            return Failed;
        }
        int given = 0;
        if (character != NoCharacter) {
            auto* const room = reinterpret_cast<unsigned char*>(*out);
            given = self.to->Encode(character, room, *outLeft);
            if (given == CharsetCodec::Invalid && self.replaces) {
                given = self.to->Encode('?', room, *outLeft);
                replaced += given > 0 ? 1 : 0;
            }
            if (given == CharsetCodec::Short) {
                errno = E2BIG;
                return Failed;
            }
            if (given == CharsetCodec::Invalid && !self.drops) {
                errno = EILSEQ;
                return Failed;
            }
            hasDropped = hasDropped || given == CharsetCodec::Invalid;
            given = given > 0 ? given : 0;
        }
        *in += taken;
        *inLeft -= static_cast<std::size_t>(taken);
        *out += given;
        *outLeft -= static_cast<std::size_t>(given);
    }
    if (hasDropped) { // all was read; what was dropped is told all the same
        errno = EILSEQ;
        return Failed;
    }
    return replaced;
}

int iconv_close(iconv_t descriptor) {
    delete static_cast<Descriptor*>(descriptor);
    return 0;
}
