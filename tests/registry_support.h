#pragma once

#include <string>
#include <utility>
#include <vector>

#include "toolkit/qzregistry.h"

/// Opens what a registry, of whichever class, keeps for those that derive from it.
template <class Base = Qzc::QzRegistry>
class OpenRegistry : public Base {
public:
    OpenRegistry() = default;
    explicit OpenRegistry(const std::string& file) { this->LoadFile(KELD::KeldMBString(file)); }
    using Base::LoadDoc;
    using Base::LoadFile;
    using Base::SaveDoc;
};

/// Whether two registries hold the same entries, each kind in the same order. External files count by their
/// names only.
inline bool SameTables(const Qzc::QzRegistry& first, const Qzc::QzRegistry& second) {
    using Registry = Qzc::QzRegistry;
    std::vector<std::pair<const Registry*, const Registry*>> pending{{&first, &second}};
    while (!pending.empty()) {
        const auto [a, b] = pending.back();
        pending.pop_back();
        // The registries' own comparison would look at all that is below them, at every level.
        const Qzc::QzHash<KELD::KeldMBString>& values = *a;
        if (a->Name() != b->Name() || values != *b)
            return false;
        for (int type = Registry::ElemValue; type <= Registry::ElemExternal; ++type) {
            const auto kind = static_cast<Registry::ElemType>(type);
            const Registry::Sequence names = a->Names(kind);
            if (names != b->Names(kind))
                return false;
            for (const auto& name : names) {
                const bool same = kind == Registry::ElemObject           ? a->Obj(name) == b->Obj(name)
                                  : kind == Registry::ElemSequence       ? a->Seq(name) == b->Seq(name)
                                  : kind == Registry::ElemObjectSequence ? a->ObjSeq(name) == b->ObjSeq(name)
                                                                         : true;
                if (!same || a->GetSubFileName(name) != b->GetSubFileName(name))
                    return false;
                if (kind == Registry::ElemSubReg)
                    pending.emplace_back(&a->SubReg(name), &b->SubReg(name));
            }
        }
    }
    return true;
}
