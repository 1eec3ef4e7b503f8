// Arbitrary bytes as the file of a configuration, of messages and of fonts: whatever is read from it can be copied,
// and what is saved reads back the same.

#include <cstddef>
#include <cstdint>

#include "../tests/configuration/registry_support.h"
#include "fuzzfile.h"
#include "stream/qztrace.h"
#include "toolkit/qzregistryepsfont.h"
#include "toolkit/qzregistryresource.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace {

template <class Base>
void LoadCopySave(const std::string& bytes) {
    const FuzzFile file(bytes);
    OpenRegistry<Base> registry(FuzzFile::Path());
    OpenRegistry<Base> copy(registry);
    Require(copy == registry);
    // What stands for the declaration of a file that is not converted may be too odd to be written again.
    const bool isSaved = copy.Save();
    Require(isSaved == !copy.Name().IsEmpty() || !copy.IsConverted());
    if (!isSaved)
        return;
    const OpenRegistry<Base> again(FuzzFile::Path());
    // What could not be converted for bytes in a comment, say, can be without it.
    Require(again == registry || (again.IsConverted() && !registry.IsConverted()));
    Require(copy.Reload() && copy == again);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    SetTraceHandler([](const char*) {});
    QzToolkit::SetCurCharset(KELDCharset::UTF8);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    LoadCopySave<QzRegistry>(bytes);
    LoadCopySave<QzRegistryResource>(bytes);
    LoadCopySave<QzRegistryEpsFont>(bytes);
    return 0;
}
