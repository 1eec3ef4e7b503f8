// Tells what the process's configuration is: tests start it with copies of the libraries, each in a place of
// its own. Every argument is a key to look up among the messages, by number where it is one.

#include <cstdio>
#include <cstdlib>

#include "stream/qztrace.h"
#include "toolkit/qzregistry.h"
#include "toolkit/qzstringex.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

int main(int argc, char** argv) {
    QzToolkit::SetCurCharset(KELDCharset::UTF8);
    SetTraceHandler([](const char* text) { std::printf("trace %s", text); });
    std::printf("path %s\n", QzRegistry::XmlPath().Cstr());
    std::printf("name %s\n", QzRegistry::Root().Name().Cstr());
    for (int i = 1; i < argc; ++i) {
        QzStringEx text(KeldMBString("before"));
        const unsigned long number = std::strtoul(argv[i], nullptr, 10);
        const bool missing = number != 0 ? text.LoadResString(static_cast<unsigned>(number)) != 0
                                         : text.LoadResString(KeldMBString(argv[i])) != 0;
        std::printf("%s %d %s\n", argv[i], missing, text.Cstr());
    }
    return 0;
}
