#include "platform/win32/iconv/iconv.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string_view>

#include "platform/thread.h"
#include "platform/win32/iconv/charsetcodec.h"

namespace {

using Platform::CharsetCodec;
using Platform::NoCharacter;

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

/// What is left of the text, and of the room for the other.
struct Texts {
    char*& in;
    std::size_t& inLeft;
    char*& out;
    std::size_t& outLeft;

    void Advance(std::size_t taken, std::size_t given) const {
        in += taken;
        inLeft -= taken;
        out += given;
        outLeft -= given;
    }
};

// Units of one size each stand for ASCII on both sides.
void CopyAscii(const Texts& texts, std::size_t from, std::size_t to) {
    const std::size_t most = std::min(texts.inLeft / from, texts.outLeft / to);
    std::size_t count = 0;
    for (; count < most; ++count) {
        const char* const unit = texts.in + count * from;
        bool isAscii = (unit[0] & 0x80) == 0;
        for (std::size_t i = 1; i < from; ++i)
            isAscii = isAscii && unit[i] == 0;
        if (!isAscii)
            break;
        char* const room = texts.out + count * to;
        room[0] = unit[0];
        for (std::size_t i = 1; i < to; ++i)
            room[i] = 0;
    }
    texts.Advance(count * from, count * to);
}

std::size_t Fail(int error) {
    errno = error;
    return Failed;
}

// Writes one character: the bytes that it took, or the negative error.
int Write(Descriptor& self, char32_t character, const Texts& texts, std::size_t& replaced, bool& hasDropped) {
    auto* const room = reinterpret_cast<unsigned char*>(texts.out);
    int given = self.to->Encode(character, room, texts.outLeft);
    if (given == CharsetCodec::Invalid && self.replaces) {
        given = self.to->Encode('?', room, texts.outLeft);
        replaced += given > 0 ? 1 : 0;
    }
    if (given == CharsetCodec::Short)
        return -E2BIG;
    if (given != CharsetCodec::Invalid)
        return given;
    hasDropped = hasDropped || self.drops;
    return self.drops ? 0 : -EILSEQ;
}

// What the end of the text adds.
std::size_t Finish(Descriptor& self, const Texts& texts) {
    std::size_t replaced = 0;
    bool hasDropped = false;
    const char32_t held = self.from->Held();
    if (held != NoCharacter) {
        const int given = Write(self, held, texts, replaced, hasDropped);
        if (given < 0)
            return Fail(-given);
        texts.Advance(0, static_cast<std::size_t>(given));
        self.from->Reset();
    }
    const int given = self.to->Finish(reinterpret_cast<unsigned char*>(texts.out), texts.outLeft);
    if (given == CharsetCodec::Invalid)
        return Fail(E2BIG);
    texts.Advance(0, static_cast<std::size_t>(given));
    return hasDropped ? Fail(EILSEQ) : replaced;
}

} // namespace

iconv_t iconv_open(const char* to, const char* from) {
    const Platform::TerminationShield shield; // tables that all share are made here
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
        std::size_t nothing = 0;
        char* nowhere = nullptr;
        const bool hasRoom = out != nullptr && *out != nullptr;
        const std::size_t result = hasRoom ? Finish(self, {nowhere, nothing, *out, *outLeft}) : 0;
        if (result == Failed && errno == E2BIG)
            return result; // and once more, with more room
        self.to->Reset();
        self.from->Reset();
        return result;
    }
    const Texts texts = {*in, *inLeft, *out, *outLeft};
    std::size_t replaced = 0;
    bool hasDropped = false;
    while (texts.inLeft != 0) {
        if ((*texts.in & 0x80) == 0) {
            const int from = self.from->AsciiUnit();
            const int to = self.to->AsciiUnit();
            if (from != 0 && to != 0)
                CopyAscii(texts, static_cast<std::size_t>(from), static_cast<std::size_t>(to));
            if (texts.inLeft == 0)
                break;
        }
        char32_t character = 0;
        const int taken = self.from->Decode(reinterpret_cast<const unsigned char*>(texts.in), texts.inLeft, character);
        if (taken == CharsetCodec::Short || taken == CharsetCodec::Invalid)
            return Fail(taken == CharsetCodec::Short ? EINVAL : EILSEQ);
        int given = 0;
        if (character != NoCharacter) {
            given = Write(self, character, texts, replaced, hasDropped);
            if (given < 0)
                return Fail(-given);
        }
        self.from->Accept();
        texts.Advance(static_cast<std::size_t>(taken), static_cast<std::size_t>(given));
    }
    return hasDropped ? Fail(EILSEQ) : replaced; // what was dropped is told, although all was read
}

int iconv_close(iconv_t descriptor) {
    delete static_cast<Descriptor*>(descriptor);
    return 0;
}
