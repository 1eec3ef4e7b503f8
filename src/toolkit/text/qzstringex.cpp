#include "toolkit/qzstringex.h"

#include <cstdint>

#include "toolkit/qztextcodec.h"
#include "toolkit/resourcetext.h"

namespace Qzc {

unsigned int QzStringEx::HashVal() const {
    std::uint32_t hash = 0;
    for (const char c : View())
        hash = hash * 33 ^ static_cast<std::uint32_t>(static_cast<signed char>(c));
    return hash;
}

unsigned char QzStringEx::ChangeCharset(int charset) {
    const auto to = static_cast<KELDCharset::Charset>(charset);
    if (!QzTextCodec(to, GetCharset()).Convert(*this, *this))
        return 0;
    SetCharset(to);
    return 1;
}

unsigned char QzStringEx::LoadResString(unsigned int id) {
    KeldMBString key;
    key.Format("%d", static_cast<int>(id));
    return LoadResString(key);
}

unsigned char QzStringEx::LoadResString(const KeldMBString& key) {
    *this = FindResourceText(key);
    return IsEmpty();
}

QzByteArray& operator<<(QzByteArray& bytes, const QzStringEx& text) {
    static_cast<QzStream&>(bytes) << text;
    return bytes;
}

QzByteArray& operator>>(QzByteArray& bytes, QzStringEx& text) {
    static_cast<QzStream&>(bytes) >> text;
    return bytes;
}

} // namespace Qzc
