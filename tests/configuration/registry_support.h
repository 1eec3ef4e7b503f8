#pragma once

#include <string>

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
