#pragma once

#include "base/keldsystem.h"

namespace KELD {

/// The bytes that start a two-byte character in a charset: asked for once per text, not once per byte.
class LeadBytes {
public:
    explicit LeadBytes(KELDCharset::Charset charset) {
        if (charset == KELDCharset::Current)
            charset = KeldSystem::GetCurCharset();
        if (charset == 932 || charset == 943) // as another maker writes it
            charset = KELDCharset::Japanese;
        switch (charset) {
        case KELDCharset::GB2312:
        case KELDCharset::GB18030: // a four-byte character reads as two pairs
        case KELDCharset::Big5:
        case KELDCharset::Big5HKSCS:
        case KELDCharset::Korean:
        case KELDCharset::Johab: m_kind = Kind::Upper; break;
        case KELDCharset::Japanese:
        case KELDCharset::ShiftJISX0213: m_kind = Kind::Japanese; break;
        default: break;
        }
    }

    bool IsEmpty() const { return m_kind == Kind::None; }
    bool Holds(unsigned char byte) const {
        if (m_kind == Kind::Upper)
            return byte >= 0x81 && byte <= 0xFE;
        return m_kind == Kind::Japanese && ((byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC));
    }

private:
    enum class Kind { None, Upper, Japanese };

    Kind m_kind = Kind::None;
};

} // namespace KELD
