#include "platform/win32/iconv/systempage.h"

#include <algorithm>
#include <map>
#include <memory>

#include "platform/globallock.h"
#include "platform/win32/codepage.h"
#include "platform/win32/system.h"

namespace Platform {

SystemPage::SystemPage(unsigned int codePage) : m_codePage(codePage), m_takesFlags(!TakesNoFlags(codePage)) {}

char32_t SystemPage::ToUnicode(const char* text, int count) const {
    wchar_t units[2] = {};
    if (MultiByteToWideChar(m_codePage, m_takesFlags ? MB_ERR_INVALID_CHARS : 0, text, count, units, 2) != 1 ||
        (units[0] >= 0xD800 && units[0] <= 0xDFFF))
        return NoCharacter;
    return units[0];
}

int SystemPage::FromUnicode(char32_t character, char (&text)[8]) const {
    const auto unit = static_cast<wchar_t>(character);
    return WideCharToMultiByte(m_codePage, m_takesFlags ? WC_NO_BEST_FIT_CHARS : 0, &unit, 1, text,
                               static_cast<int>(sizeof(text)), nullptr, nullptr);
}

char32_t SystemPage::Decode(unsigned char byte) const {
    const auto letter = static_cast<char>(byte);
    const char32_t character = ToUnicode(&letter, 1);
    char back[8];
    const bool comesBack = character != NoCharacter && FromUnicode(character, back) == 1 && back[0] == letter;
    return comesBack ? character : NoCharacter;
}

char32_t SystemPage::Decode(const unsigned char (&bytes)[2], bool& isWritten) const {
    const auto* const text = reinterpret_cast<const char*>(bytes);
    const char32_t character = ToUnicode(text, 2);
    char back[8];
    if (character == NoCharacter || FromUnicode(character, back) != 2)
        return NoCharacter;
    isWritten = std::equal(text, text + 2, back);
    // Without flags, bytes that are undefined become a character that stands for them all.
    return isWritten || (m_takesFlags && ToUnicode(back, 2) == character) ? character : NoCharacter;
}

DoubleByteTable::DoubleByteTable(const SystemPage& page) {
    for (unsigned int first = 0x80; first < 0x100; ++first) {
        unsigned char bytes[] = {static_cast<unsigned char>(first), 0};
        const char32_t single = page.Decode(bytes[0]);
        if (single != NoCharacter) {
            m_single[first - 0x80] = static_cast<char16_t>(single);
            m_bytes[single] = static_cast<std::uint16_t>(first);
            continue;
        }
        for (unsigned int second = 1; second < 0x100; ++second) {
            bytes[1] = static_cast<unsigned char>(second);
            bool isWritten = false;
            const char32_t character = page.Decode(bytes, isWritten);
            if (character == NoCharacter)
                continue;
            m_double[first - 0x80][second] = static_cast<char16_t>(character);
            if (isWritten)
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
