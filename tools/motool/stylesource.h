#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/keldmbstring.h"
#include "toolkit/qzstyle.h"

namespace Motool {

/// The kinds of records, as QzStyle has them, and the one of all fields.
enum StyleKind : int { Point = 0, Line = 1, Region = 2, Model = 3, AllFields = 100, NoKind = -1 };

const char* KindName(int kind);
int KindOf(const std::string& name); ///< `NoKind` for none

/// The styles of a file: elements of style XML, or records one behind the other.
class StyleSource {
public:
    /// `kind` is that of records; with `NoKind` the first ones are tried. An exit status; what is wrong is told.
    int Open(const std::string& file, int kind);

    int Kind() const { return m_kind; } ///< `NoKind` for XML
    /// Shows the styles in order, until it is told to end; false, and told, when one cannot be read.
    bool Visit(const std::function<bool(const Qzc::QzStyle&)>& visit) const;

private:
    int OpenXml(const std::string& file);
    bool Fits(int kind) const;
    bool VisitRecords(int kind, const std::function<bool(const Qzc::QzStyle&)>& visit, std::int64_t& count) const;

    std::string m_file;
    int m_kind = NoKind;
    std::vector<Qzc::QzStyle> m_styles; ///< those of XML
};

} // namespace Motool
