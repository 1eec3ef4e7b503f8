#include "toolkit/qzmarkup.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "toolkit/qztoolkit.h"
#include "toolkit/xml/attributenames.h"
#include "toolkit/xml/qzmarkupinline.h"
#include "toolkit/xml/qzmarkupscan.h"

namespace Qzc {

using namespace MarkupScan;

namespace {

std::string_view View(const char* text) {
    return text != nullptr ? text : std::string_view();
}

} // namespace

// ---- Document

QzMarkup::QzMarkup() : m_encoding(QzToolkit::GetCurCharset()), m_text(std::make_unique<MarkupText>()) {
    SetDoc(nullptr);
}

QzMarkup::QzMarkup(const char* szDoc) : QzMarkup() {
    SetDoc(szDoc);
}

QzMarkup::QzMarkup(const QzMarkup& other)
    : m_encoding(other.m_encoding), m_fileForm(other.m_fileForm), m_text(std::make_unique<MarkupText>(*other.m_text)),
      m_strError(other.m_strError), m_nErrorAt(other.m_nErrorAt), m_iPosParent(other.m_iPosParent),
      m_iPos(other.m_iPos), m_iPosChild(other.m_iPosChild), m_nNodeType(other.m_nNodeType),
      m_iPosFree(other.m_iPosFree), m_iPosReleased(other.m_iPosReleased), m_mapSavedPos(other.m_mapSavedPos),
      m_fromEnd(other.m_fromEnd), m_releasedAt(other.m_releasedAt), m_nReleases(other.m_nReleases) {
    while (m_nPosCapacity < std::min(m_iPosFree, other.m_nPosCapacity) && AllocPosArray(other.m_nPosCapacity)) {
    }
    if (m_nPosCapacity < m_iPosFree ||
        m_text->GetLength() != other.m_text->GetLength()) { // no memory: the text alone, as if it were not well formed
        SetPos(0, 0, 0);
        m_mapSavedPos.RemoveAll();
        m_segments.clear();
        m_nPosCapacity = 0;
        m_iPosFree = 1;
        m_iPosReleased = 0;
        m_fromEnd = Tag();
        return;
    }
    for (int i = 0; i < m_iPosFree; i += SegmentSize)
        std::copy_n(&other.Pos(i), std::min(m_iPosFree - i, SegmentSize), &Pos(i));
}

QzMarkup::QzMarkup(QzMarkup&& other) noexcept : QzMarkup() {
    Swap(other);
}

QzMarkup& QzMarkup::operator=(QzMarkup other) noexcept {
    Swap(other);
    return *this;
}

QzMarkup::~QzMarkup() = default;

void QzMarkup::Swap(QzMarkup& other) noexcept {
    std::swap(m_encoding, other.m_encoding);
    std::swap(m_fileForm, other.m_fileForm);
    m_text->Swap(*other.m_text); // the object stays: GetDoc has handed it out
    std::swap(m_strError, other.m_strError);
    std::swap(m_nErrorAt, other.m_nErrorAt);
    std::swap(m_iPosParent, other.m_iPosParent);
    std::swap(m_iPos, other.m_iPos);
    std::swap(m_iPosChild, other.m_iPosChild);
    std::swap(m_nNodeType, other.m_nNodeType);
    std::swap(m_iPosFree, other.m_iPosFree);
    std::swap(m_iPosReleased, other.m_iPosReleased);
    std::swap(m_mapSavedPos, other.m_mapSavedPos);
    std::swap(m_segments, other.m_segments);
    std::swap(m_nPosCapacity, other.m_nPosCapacity);
    std::swap(m_fromEnd, other.m_fromEnd);
    std::swap(m_previous, other.m_previous);
    std::swap(m_releasedAt, other.m_releasedAt);
    std::swap(m_nReleases, other.m_nReleases);
    m_attributeNames.reset();
    other.m_attributeNames.reset();
}

unsigned char QzMarkup::SetDoc(const char* szDoc) {
    const std::string_view text = View(szDoc);
    if (text.size() > KeldMBString::MaxLength) {
        m_strError.Format("%zu bytes are too many for a document", text.size());
        return 0;
    }
    if (!m_text->Set(text)) {
        m_strError = "Out of memory";
        return 0;
    }
    m_fileForm.isConverted = true;
    m_strError.Empty();
    return ParseDoc();
}

const KeldMBString& QzMarkup::GetDoc() const {
    return m_text->Whole();
}

unsigned char QzMarkup::IsWellFormed() const {
    return m_nPosCapacity != 0 && Pos(0).iElemChild != 0;
}

// ---- Navigation

unsigned char QzMarkup::FindElem(const char* szName) {
    const int iPos = FindElem(m_iPosParent, m_iPos, szName);
    if (iPos == 0)
        return 0;
    SetPos(m_iPosParent, iPos, 0);
    return 1;
}

unsigned char QzMarkup::FindChildElem(const char* szName) {
    const int iPos = m_iPos != 0 ? FindElem(m_iPos, m_iPosChild, szName) : 0;
    if (iPos == 0)
        return 0;
    m_iPosChild = iPos;
    return 1;
}

unsigned char QzMarkup::MoveNextElem() {
    return FindElem(nullptr);
}

unsigned char QzMarkup::MoveNextChildElem() {
    return FindChildElem(nullptr);
}

unsigned char QzMarkup::IntoElem() {
    if (m_nNodeType != NodeElement)
        return 0;
    SetPos(m_iPos, m_iPosChild, 0);
    return 1;
}

unsigned char QzMarkup::OutOfElem() {
    if (m_iPosParent == 0)
        return 0;
    SetPos(Pos(m_iPosParent).iElemParent, m_iPosParent, m_iPos);
    return 1;
}

unsigned char QzMarkup::ResetPos() {
    SetPos(0, 0, 0);
    return 1;
}

unsigned char QzMarkup::ResetMainPos() {
    SetPos(m_iPosParent, 0, 0);
    return 1;
}

unsigned char QzMarkup::ResetChildPos() {
    m_iPosChild = 0;
    return 1;
}

unsigned char QzMarkup::HasChild() const {
    return m_nNodeType == NodeElement && Pos(m_iPos).iElemChild != 0;
}

unsigned char QzMarkup::SavePos(const char* szName) {
    m_mapSavedPos.SetAt(szName, SavedPosAt{{m_iPosParent, m_iPos, m_iPosChild}, m_nReleases});
    return 1;
}

unsigned char QzMarkup::RestorePos(const char* szName) {
    SavedPosAt saved;
    if (!m_mapSavedPos.Lookup(szName, saved))
        return 0;
    // A record may serve another element by now.
    for (const int i : {saved.iPosParent, saved.iPos, saved.iPosChild}) {
        const auto index = static_cast<std::size_t>(i);
        if (index < m_releasedAt.size() && m_releasedAt[index] > saved.nReleases) {
            m_mapSavedPos.RemoveKey(szName);
            return 0;
        }
    }
    SetPos(saved.iPosParent, saved.iPos, saved.iPosChild);
    return 1;
}

int QzMarkup::FindElem(int iPosParent, int iPos, const char* szName) const {
    if (m_nPosCapacity == 0)
        return 0;
    const std::string_view name = View(szName);
    // Most names differ, which the bytes alone tell.
    const auto isNamed = [&](int i) {
        const char* const start = SkipBlanks(m_text->Range(StartL(i) + 1, StartR(i)).data());
        return *start == name.front() && std::strncmp(start, name.data(), name.size()) == 0 &&
               SkipName(start) == start + name.size();
    };
    int iFound = iPos != 0 ? Pos(iPos).iElemNext : Pos(iPosParent).iElemChild;
    while (iFound != 0 && !name.empty() && !isNamed(iFound))
        iFound = Pos(iFound).iElemNext;
    return iFound;
}

} // namespace Qzc
