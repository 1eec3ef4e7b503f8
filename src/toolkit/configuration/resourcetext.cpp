#include "toolkit/resourcetext.h"

#include "toolkit/qzregistry.h"

namespace Qzc {

KeldMBString FindResourceText(const KeldMBString& key) {
    return QzRegistry::Root().SubFile("resource")[key];
}

} // namespace Qzc
