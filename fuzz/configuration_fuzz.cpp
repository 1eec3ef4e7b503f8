// Arbitrary bytes as a configuration, a message file and a font file: whatever is read from them can be
// copied, and what is saved reads back the same.

#include <cstdint>
#include <cstdlib>

#include "../tests/configuration/registry_support.h"
#include "stream/qztrace.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzregistryepsfont.h"
#include "toolkit/qzregistryresource.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

bool HasTagNames(const QzHash<KeldMBString>& table) {
    for (const auto& entry : table) {
        if (!QzMarkup::IsName(entry.first.Cstr()))
            return false;
    }
    return true;
}

// The parser takes names that no editing would write, quotes in them for one; those are not saved.
bool CanBeSaved(const QzRegistry& registry, bool isConfiguration) {
    if (!QzMarkup::IsName(registry.Name().Cstr()))
        return false;
    if (!isConfiguration)
        return true;
    if (!HasTagNames(registry))
        return false;
    for (int type = QzRegistry::ElemObject; type <= QzRegistry::ElemExternal; ++type) {
        for (const auto& name : registry.Names(static_cast<QzRegistry::ElemType>(type))) {
            bool canBe = QzMarkup::IsName(name.Cstr());
            if (type == QzRegistry::ElemObject)
                canBe = canBe && HasTagNames(registry.Obj(name));
            if (type == QzRegistry::ElemSubReg)
                canBe = canBe && CanBeSaved(registry.SubReg(name), true);
            if (type == QzRegistry::ElemObjectSequence) {
                for (const auto& object : registry.ObjSeq(name))
                    canBe = canBe && HasTagNames(object);
            }
            if (!canBe)
                return false;
        }
    }
    return true;
}

template <class Base>
void LoadCopySave(const KeldMBString& document, bool isConfiguration) {
    OpenRegistry<Base> registry;
    registry.LoadDoc(document);
    const OpenRegistry<Base> copy(registry);
    Require(copy == registry);

    QzMarkup markup;
    const bool written = markup.AddElem(copy.Name().Cstr()) && markup.IntoElem() && copy.SaveDoc(markup);
    Require(written == CanBeSaved(registry, isConfiguration));
    if (!written)
        return;
    OpenRegistry<Base> again;
    again.LoadDoc(markup.GetDoc());
    Require(again == registry);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    SetTraceHandler([](const char*) {});
    QzToolkit::SetCurCharset(KELDCharset::UTF8);
    const KeldMBString document(reinterpret_cast<const char*>(data), static_cast<int>(size));
    LoadCopySave<QzRegistry>(document, true);
    LoadCopySave<QzRegistryResource>(document, false);
    LoadCopySave<QzRegistryEpsFont>(document, false);
    return 0;
}
