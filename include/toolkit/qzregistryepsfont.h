#pragma once

#include "toolkit/qzregistry.h"

namespace Qzc {

/// The table from the engine's font names to EPS font names: of each `tml:fontname` element under the top
/// element, the text of its `tml:Qzc` child and that of its `tml:EPS` child. An element without a `tml:Qzc`
/// child is passed over.
class MOTOOLKIT_API QzRegistryEpsFont : public QzRegistry {
protected:
    void LoadDoc(const KeldMBString& strDoc) override;
    void LoadFromMarkup(const QzMarkup& markup) override;
    unsigned char SaveDoc(QzMarkup& markup) const override;
};

} // namespace Qzc
