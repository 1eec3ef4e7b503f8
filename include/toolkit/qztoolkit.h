#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// Static utilities. Every function may be called from any thread.
class MOTOOLKIT_API QzToolkit {
public:
    /// The current charset, that of the text which this process holds; see KeldSystem::GetCurCharset.
    static KELDCharset::Charset GetCurCharset();
    static bool SetCurCharset(KELDCharset::Charset charset); ///< see KeldSystem::SetCurCharset

    static int GetCPUCount(); ///< the processors that this process may run on, at least 1

    /// The XML declaration of a document in this charset, without a line break behind it.
    static KeldMBString GetXmlFileHeader(KELDCharset::Charset charset);
};

} // namespace Qzc
