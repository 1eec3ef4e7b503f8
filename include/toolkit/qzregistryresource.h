#pragma once

#include "toolkit/qzregistry.h"

namespace Qzc {

/// The messages of a resource file, by id: the `res` elements in the `ECode` and `ICode` children of the top
/// element's `section` elements (tags without regard to case). All go into the one table, a later id
/// replacing an earlier one; saving writes them into one section.
class MOTOOLKIT_API QzRegistryResource : public QzRegistry {
protected:
    void LoadDoc(const KeldMBString& strDoc) override;
    void LoadFromMarkup(const QzMarkup& markup) override;
    unsigned char SaveDoc(QzMarkup& markup) const override;
};

} // namespace Qzc
