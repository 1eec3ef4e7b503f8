#include "platform/win32/iconv/systempage.h"

#include <algorithm>
#include <map>
#include <memory>

#include "platform/globallock.h"
#include "platform/win32/codepage.h"
#include "platform/win32/system.h"

namespace Platform {

SystemPage::SystemPage(unsigned int codePage) : m_codePage(codePage), m_takesFlags(!TakesNoFlags(codePage)) {}

char32_t SystemPage::Decode(const unsigned char* bytes, int count) const {
    wchar_t units[2] = {};
    const auto* const text = reinterpret_cast<const char*>(bytes);
    if (MultiByteToWideChar(m_codePage, m_takesFlags ? MB_ERR_INVALID_CHARS : 0, text, count, units, 2) != 1 ||
        (units[0] >= 0xD800 && units[0] <= 0xDFFF))
        return NoCharacter;
    char back[8];
    const int length = WideCharToMultiByte(m_codePage, m_takesFlags ? WC_NO_BEST_FIT_CHARS : 0, units, 1, back,
                                           static_cast<int>(sizeof(back)), nullptr, nullptr);
    return length == count && std::equal(text, text + count, back) ? units[0] : NoCharacter;
}

DoubleByteTable::DoubleByteTable(const SystemPage& page) {
    for (unsigned int first = 0x80; first < 0x100; ++first) {
        unsigned char bytes[] = {static_cast<unsigned char>(first), 0};
        const char32_t single = page.Decode(bytes, 1);
        if (single != NoCharacter) {
            m_single[first - 0x80] = static_cast<char16_t>(single);
            m_bytes[single] = static_cast<std::uint16_t>(first);
            continue;
        }
        for (unsigned int second = 1; second < 0x100; ++second) {
            bytes[1] = static_cast<unsigned char>(second);
            const char32_t character = page.Decode(bytes, 2);
            if (character == NoCharacter)
                continue;
            m_double[first - 0x80][second] = static_cast<char16_t>(character);
            m_bytes[character] = static_cast<std::uint16_t>(first << 8 | second);
        }
    }
}

const DoubleByteTable* DoubleByteTable::Of(unsigned int codePage) {
    CPINFO information = {};
    if (GetCPInfo(codePage, &information) == 0 || information.MaxCharSize != 2)
        return nullptr;
    // They outlive whoever still converts while the program ends.
    static GlobalLock s_lock;
    static auto& s_tables = *new std::map<unsigned int, std::unique_ptr<const DoubleByteTable>>;
    const GlobalLock::Guard guard(s_lock);
    auto& table = s_tables[codePage];
    if (table == nullptr)
        table.reset(new DoubleByteTable(SystemPage(codePage)));
    return table.get();
}

} // namespace Platform
