#include "stylesource.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "output.h"
#include "stream/qzfilestream.h"
#include "system.h"
#include "toolkit/qzmarkup.h"
#include "xmlfile.h"

using namespace Qzc;

namespace Motool {

namespace {

constexpr int OldDialect = 20031211;
constexpr int CurrentDialect = 0;

struct NamedKind {
    const char* name;
    int kind;
};
constexpr std::array<NamedKind, 5> Kinds = {
    {{"point", Point}, {"line", Line}, {"region", Region}, {"model", Model}, {"all", AllFields}}};

bool IsOneOf(std::string_view tag, std::initializer_list<std::string_view> tags) {
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

// An element's name is whatever the writer chose: a style is told by what is in it.
bool IsStyle(const QzMarkup::Element& element, int& dialect) {
    bool isStyle = false;
    bool isOld = element.GetTagNameView() == "zpl:GeoStyle";
    for (const auto& child : element.Children()) {
        const std::string_view tag = child.GetTagNameView();
        isOld = isOld || IsOneOf(tag, {"zpl:SymbolStyle", "zpl:SymbolSize", "zpl:BackTransparent"});
        isStyle = isStyle || IsOneOf(tag, {"zpl:MarkerStyle", "zpl:MarkerSize", "zpl:SymbolStyle", "zpl:SymbolSize",
                                           "zpl:LineStyle", "zpl:LineWidth", "zpl:LineColor", "zpl:FillStyle",
                                           "zpl:FillForeColor", "zpl:PointSize"});
    }
    dialect = isOld ? OldDialect : CurrentDialect;
    return isStyle || IsOneOf(element.GetTagNameView(), {"zpl:Style", "zpl:GeoStyle"});
}

bool StartsAsXml(const std::string& file, bool& isReadable, std::string& error) {
    QzFileStream stream(PathOf(file), QzFileStream::Direction::Read);
    isReadable = stream.IsOpen();
    error = std::string(stream.GetError().View());
    std::array<char, 256> head{};
    const auto length = static_cast<std::size_t>(stream.Read(head.data(), static_cast<std::int64_t>(head.size())));
    // A "<" behind blanks, a mark, or the zero bytes of UTF-16 and UTF-32.
    const std::string_view text(head.data(), length);
    const std::size_t first = text.find_first_not_of(std::string_view("\xEF\xBB\xBF\xFE\xFF\0 \t\r\n", 10));
    return first != std::string_view::npos && text[first] == '<';
}

} // namespace

const char* KindName(int kind) {
    const auto* const found =
        std::find_if(Kinds.begin(), Kinds.end(), [&](const NamedKind& one) { return one.kind == kind; });
    return found != Kinds.end() ? found->name : "";
}

int KindOf(const std::string& name) {
    const auto* const found =
        std::find_if(Kinds.begin(), Kinds.end(), [&](const NamedKind& one) { return name == one.name; });
    return found != Kinds.end() ? found->kind : NoKind;
}

int StyleSource::Open(const std::string& file, int kind) {
    m_file = file;
    bool isReadable = false;
    std::string error;
    const bool isXml = StartsAsXml(file, isReadable, error);
    if (!isReadable)
        return Fail(Shown(file) + ": " + Escaped(error));
    if (isXml)
        return OpenXml(file);
    m_kind = kind;
    if (kind != NoKind)
        return Done;
    int fitting = 0;
    for (const int one : {Point, Line, Region, Model}) {
        if (Fits(one)) {
            ++fitting;
            m_kind = one;
        }
    }
    if (fitting == 0)
        return Fail(Shown(file) + ": this is neither style XML nor a stream of records");
    if (fitting > 1)
        return FailUsage(Shown(file) + ": the records may be of several kinds: tell which with --kind");
    return Done;
}

int StyleSource::OpenXml(const std::string& file) {
    QzMarkup markup;
    if (LoadDocument(markup, file) != Loaded::Whole)
        return Failed;
    const auto add = [&](const QzMarkup::Element& element) {
        int dialect = CurrentDialect;
        QzStyle style;
        if (!IsStyle(element, dialect))
            return false;
        if (style.FromXML(element.GetSubDoc(), dialect) != 0)
            m_styles.push_back(std::move(style));
        return true;
    };
    if (!add(markup.TopElement())) {
        for (const auto& child : markup.TopElement().Children())
            add(child);
    }
    return m_styles.empty() ? Fail(Shown(file) + ": there is no style in it") : Done;
}

bool StyleSource::VisitRecords(int kind, const std::function<bool(const QzStyle&)>& visit, std::int64_t& count) const {
    QzFileStream stream(PathOf(m_file), QzFileStream::Direction::Read);
    for (count = 0;; ++count) {
        QzStyle style;
        const std::int64_t left = stream.GetRemaining();
        const bool isRead = kind == AllFields
                                ? left >= QzStyle::GetStoreSize() &&
                                      style.LoadAll(stream, static_cast<int>(QzStyle::GetStoreSize())) != 0
                                : QzStyle::LoadNext(stream, kind, style) != 0;
        if (!isRead)
            return stream.IsOpen() && stream.IsGood() && (kind != AllFields || left == 0);
        if (!visit(style))
            return true;
    }
}

// Whether the first records are of the kind, and hold nothing but what it would write: a reader takes much for older
// forms that is of another kind.
bool StyleSource::Fits(int kind) const {
    constexpr int Enough = 1000;
    QzFileStream stream(PathOf(m_file), QzFileStream::Direction::Read);
    int count = 0;
    for (; count < Enough; ++count) {
        QzStyle style;
        const std::int64_t start = stream.GetPosition();
        if (QzStyle::LoadNext(stream, kind, style) == 0)
            break;
        if (style.GetStyleSize(kind) != stream.GetPosition() - start)
            return false;
    }
    return stream.IsGood() && count > 0;
}

bool StyleSource::Visit(const std::function<bool(const QzStyle&)>& visit) const {
    if (m_kind == NoKind) {
        for (const QzStyle& style : m_styles) {
            if (!visit(style))
                break;
        }
        return true;
    }
    std::int64_t count = 0;
    if (VisitRecords(m_kind, visit, count))
        return true;
    Warn(Shown(m_file) + ": record " + Number(count + 1) + " is no " + KindName(m_kind) + " record, or damaged");
    return false;
}

} // namespace Motool
