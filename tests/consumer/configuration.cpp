// Reads a configuration that is in GB2312, whatever charset the process's own texts are in.

#include <cstdio>
#include <fstream>

#include "base/keldsystem.h"
#include "toolkit/qzregistry.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace {

// A Chinese city map's settings, its texts as GB2312 has them.
const char File[] =
    "<?xml version=\"1.0\" encoding=\"GB2312\"?>\r\n"
    "<Map><Name>\xD6\xD0\xCE\xC4 1</Name>"
    "<Page type=\"object\"><Title>\xB5\xD8\xC3\xFB</Title></Page>"
    "<Cities type=\"sequence\"><item>\xBE\xA9\xB6\xBC</item><item>\xC4\xCF\xBE\xA9</item></Cities></Map>";

// What does not go into the process's charset is as the file has it.
std::wstring Wide(const QzRegistry& registry, const KeldMBString& text) {
    QzStringW wide;
    wide.FromString(text,
                    registry.IsConverted() != 0 ? KELDCharset::Current : QzTextCodec::GetCharset(registry.Encoding()));
    return std::wstring(wide.View());
}

} // namespace

int main() {
    const KeldMBString path = QzRegistry::XmlPath() + "Zephyron.xml";
    std::ofstream(path.Cstr(), std::ios::binary) << File;
    QzRegistry& root = QzRegistry::Root();
    std::remove(path.Cstr());

    const QzRegistry::Sequence& cities = root.Seq("Cities");
    const bool isRight = Wide(root, root["Name"]) == L"\u4E2D\u6587 1" &&
                         Wide(root, root.Obj("Page")["Title"]) == L"\u5730\u540D" && cities.GetSize() == 2 &&
                         Wide(root, cities[0]) == L"\u4EAC\u90FD" && Wide(root, cities[1]) == L"\u5357\u4EAC";
    std::printf("%s in %s, %s\n", isRight ? "right" : "wrong",
                KeldSystem::GetCharsetName(QzToolkit::GetCurCharset()).Cstr(),
                root.IsConverted() != 0 ? "converted" : "as it was");
    return isRight ? 0 : 1;
}
