#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/keldcharset.h"
#include "base/kelddict.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

class MarkupText;

/// An XML document: one text in the current charset, and beside it a table of records that say where in the
/// text each element lies. Reading cuts names and values out of the text when they are asked for; editing
/// splices the text and moves the offsets behind the splice, so that the records are always those that
/// parsing the text afresh would give. An edit costs what it writes and the distance to the edit before it, so
/// a loop of edits along the document takes time in proportion to the document.
///
/// Navigation. A position is a parent element, a main element in it, and a child of the main element. "Main"
/// operations act on the main element, "Child" ones on the child. A new document stands before its top
/// element:
///     QzMarkup markup;
///     if (markup.Load("places.xml") && markup.FindElem("places")) {
///         while (markup.FindChildElem("place"))
///             Print(markup.GetChildAttrib("name"));
///     }
/// Positions stay valid across edits that do not remove their element. Children() and Attributes() read without
/// moving, see toolkit/qzmarkupranges.h:
///     for (const auto place : markup.Children())
///         Print(place.GetAttrib("name"));
///
/// Results are booleans (1: done) unless stated. What fails changes nothing: neither text nor position. Names
/// and values passed in are text in the current charset; null counts as empty. Nothing throws. Documents of
/// 2^31 bytes and more are refused; nesting may be as deep as the text is long.
///
/// Threads. Const operations on one document may run in many threads at once while nobody changes or moves it;
/// a document that is edited or navigated is used by one thread at a time.
class MOTOOLKIT_API QzMarkup {
public:
    QzMarkup();                           ///< an empty document, not well formed, in the current charset
    explicit QzMarkup(const char* szDoc); ///< parses the text, as SetDoc
    QzMarkup(const QzMarkup& other);      ///< copies text, records, positions and saved positions
    QzMarkup(QzMarkup&& other) noexcept;
    QzMarkup& operator=(QzMarkup other) noexcept;
    ~QzMarkup();

    // ---- Document

    /// Replaces the text and parses it; whether it is well formed. A malformed text is held all the same,
    /// without records, and GetError says what is wrong.
    unsigned char SetDoc(const char* szDoc);
    /// The text. The reference stays valid as long as the document; what it refers to is whole until the next
    /// edit and then again when GetDoc is called.
    const KeldMBString& GetDoc() const;

    /// Whether there is a top element. Text before it is skipped and text behind its end tag is not looked at.
    unsigned char IsWellFormed() const;

    /// What the last SetDoc, Load or Save had to say: a parser's message, the system's message for a file, or
    /// "%d bytes" after a file was read or written.
    const KeldMBString& GetError() const { return m_strError; }

    /// Where the parser found what its message tells, while the document is not well formed: the tag or the node
    /// at fault, the start tag of an element that does not end, or the end of a text without an element. Lines
    /// end at a line feed and columns count bytes of the text as GetDoc gives it, both from 1. False, and
    /// nothing set, where there is no such place.
    unsigned char GetErrorPosition(int& line, int& column) const;

    /// Reads a file, converts it to the current charset and parses. The encoding is that of a byte-order mark of
    /// UTF-16 or UTF-32, else the one that the declaration names, in either kind of quotes and not necessarily as
    /// its last word, else UTF-8 where there is its mark, else the current charset. The mark is no part of the
    /// text. An encoding that is not known, or bytes that are no text of it, leave the text as it was read (see
    /// IsConverted); the result tells of the parsing alone. A file that cannot be read leaves the document as it
    /// was; one that cannot be opened is also recorded in the log.
    unsigned char Load(const char* szFileName);

    /// Whether the text is in the current charset: 0 after Load could not convert the file, until the next
    /// SetDoc, Load or SetEncoding. Text that is put into such a document is written as it is passed in.
    unsigned char IsConverted() const;

    /// Writes the document in its encoding (see SetEncoding); safely, as QzFile::ReplaceAll does: what fails
    /// leaves the file and the document as they were, a text that the encoding cannot hold among them. A UTF-8
    /// byte-order mark that Load met is written again; UTF-16 and UTF-32 always have one, and are declared by
    /// these names. A document that is not converted is written as it was read, under its own declaration, and
    /// one of unknown encoding as its text stands. UTF-7 and EBCDIC are written as asked, but have other bytes for
    /// ASCII, so that Load does not find their declaration.
    ///
    /// All others are made to say what they are written in. What counts as the declaration is the first
    /// "<?...?>", wherever it stands:
    /// - Without one, a declaration and a line break are put in front.
    /// - When the encoding is not the current charset, a declaration takes its place: that of an
    ///   <?xml-stylesheet?> in front, too, and that of an instruction in mid-document, if that is the first.
    /// - In the current charset all stays as it is, but for a declaration that names a charset by which the file
    ///   would be misread. That is replaced, or, if it stands in another instruction, one is put in front.
    ///
    /// The change becomes part of the document's own text, but the records are not moved for it, so until the
    /// next SetDoc or Load what is read from elements is not to be relied on: save last.
    unsigned char Save(const char* szFileName);

    /// Writes what Save would, laid out for people: elements, comments and instructions on lines of their own,
    /// indented by a tab a level (at most 16). An element that holds text or no element at all, or that says
    /// xml:space="preserve", is written as it stands with all that is in it; so is what is behind the top
    /// element. Only what is well formed, its declaration included, is written, and nothing that could not be converted
    /// from UTF-16 or UTF-32. The document itself stays as it is.
    unsigned char SaveIndented(const char* szFileName);

    KeldMBString GetXMLFileHeader() const; ///< the declaration for the document's encoding, without a line break
    KELDCharset::Charset GetEncoding() const { return m_encoding; } ///< `Unknown` after Load met a name not known
    /// What Save writes; the text is not changed. Whoever sets it says that the text is in the current charset,
    /// even one that Load could not convert.
    void SetEncoding(KELDCharset::Charset encoding) {
        m_encoding = encoding;
        m_fileForm.isConverted = true;
    }

    // ---- Navigation: false, and no move, when there is nothing to move to

    unsigned char FindElem(const char* szName = nullptr); ///< the next sibling of that name, any for null or empty
    unsigned char FindChildElem(const char* szName = nullptr);
    unsigned char MoveNextElem(); ///< the next sibling whatever its name; the first when there is no main element
    unsigned char MoveNextChildElem();
    unsigned char IntoElem();       ///< the main element becomes the parent, its child the main position
    unsigned char OutOfElem();      ///< the parent becomes the main element again, the main element its child
    unsigned char ResetPos();       ///< before the top element; always 1, as the next two
    unsigned char ResetMainPos();   ///< before the first element of the current parent
    unsigned char ResetChildPos();  ///< before the first child of the main element
    unsigned char HasChild() const; ///< whether the main element has child elements

    /// Keeps the position under a name until the text is replaced or one of its elements is removed.
    unsigned char SavePos(const char* szName);
    unsigned char RestorePos(const char* szName); ///< false, and no move, when there is no such position

    // ---- Reading: empty text where there is no such element or attribute
    //
    // A view spares the copy. It points into the document, or into a scratch text of the calling thread where
    // references are resolved or pieces put together: it is valid until the next change of the document or the
    // thread's next read from any.

    KeldMBString GetTagName() const; ///< the name of the element
    KeldMBString GetChildTagName() const;
    std::string_view GetTagNameView() const;
    std::string_view GetChildTagNameView() const;

    /// The element's own text: character data with its references resolved and CDATA sections as written, in
    /// order; comments, instructions and child elements are left out. A numeric reference always gives UTF-8
    /// bytes.
    KeldMBString GetData() const;
    KeldMBString GetChildData() const;
    std::string_view GetDataView() const;
    std::string_view GetChildDataView() const;

    /// The value of an attribute, references resolved.
    KeldMBString GetAttrib(const char* szAttrib) const;
    KeldMBString GetChildAttrib(const char* szAttrib) const;
    KeldMBString GetAttribName(int n) const; ///< counted from 0
    KeldMBString GetChildAttribName(int n) const;
    KeldMBString GetAttribValue(int n) const; ///< of the same one, also where a name stands twice
    KeldMBString GetChildAttribValue(int n) const;
    std::string_view GetAttribNameView(int n) const; ///< counted from 0
    std::string_view GetChildAttribNameView(int n) const;
    std::string_view GetAttribValueView(int n) const; ///< of the same one
    std::string_view GetChildAttribValueView(int n) const;
    int GetAttribCount() const; ///< how many attributes there are
    int GetChildAttribCount() const;

    KeldMBString GetSubDoc() const; ///< the element's markup, from start tag to end tag
    KeldMBString GetChildSubDoc() const;

    /// Where the element's start tag stands, in line and column as GetErrorPosition gives them; false when there
    /// is none. Counted from the start of the text when asked.
    unsigned char GetElemPosition(int& line, int& column) const;
    unsigned char GetChildElemPosition(int& line, int& column) const;

    // Ranges to read from: they leave the position alone, and are valid until the document changes.
    class Element;
    class Attribute;
    class ElementRange;
    class AttributeRange;
    Element TopElement() const;             ///< none (see Element) when the document is not well formed
    inline ElementRange Children() const;   ///< of the main element
    AttributeRange Attributes() const;      ///< of the main element
    AttributeRange ChildAttributes() const; ///< of the child

    // ---- Editing
    //
    // A name that is none (see IsName) is refused. So is a second top element, and markup that is not well
    // formed.

    // A value or a text of more than MaxValueLength bytes is refused, for it may grow when it is escaped.
    static constexpr int MaxValueLength = KeldMBString::MaxLength / 6;

    /// Whether a text can name an element or an attribute in what is written: of the ASCII characters it has
    /// only letters, digits and any of _:-. and starts with none of the digits, "-" and ".". Any other character
    /// will do, as long as its bytes are above 127 or the second of two. Other names are read where they stand.
    static unsigned char IsName(const char* szName);

    /// A new element behind (Add) or before (Insert) the main element; without a main element at the end
    /// (start) of the parent's content. It becomes the main element and ends its own line. Null or empty
    /// data: an empty element.
    unsigned char AddElem(const char* szName, const char* szData = nullptr);
    unsigned char InsertElem(const char* szName, const char* szData = nullptr);
    unsigned char AddChildElem(const char* szName, const char* szData = nullptr); ///< one level down
    unsigned char InsertChildElem(const char* szName, const char* szData = nullptr);

    /// Markup with one or more elements at the same places; the last of them becomes the position. An XML
    /// declaration in front of it is left out.
    unsigned char AddSubDoc(const char* szSubDoc);
    unsigned char InsertSubDoc(const char* szSubDoc);
    unsigned char AddChildSubDoc(const char* szSubDoc);
    unsigned char InsertChildSubDoc(const char* szSubDoc);

    /// Replaces the attribute's value, or appends the attribute to the start tag.
    unsigned char SetAttrib(const char* szAttrib, const char* szValue);
    unsigned char SetAttrib(const char* szAttrib, int nValue);
    unsigned char SetChildAttrib(const char* szAttrib, const char* szValue);
    unsigned char SetChildAttrib(const char* szAttrib, int nValue);
    unsigned char AddAttrib(const char* szAttrib, const char* szValue) { return SetAttrib(szAttrib, szValue); }
    unsigned char AddAttrib(const char* szAttrib, int nValue) { return SetAttrib(szAttrib, nValue); }
    unsigned char AddChildAttrib(const char* szAttrib, const char* szValue);
    unsigned char AddChildAttrib(const char* szAttrib, int nValue);

    unsigned char RemoveAttrib(const char* szAttrib); ///< false when the element has no such attribute

    /// Replaces the content, child elements included, by a text: escaped, or as a CDATA section when `nCDATA`
    /// is not 0 and the text can stand in one (it does not hold "]]>").
    unsigned char SetData(const char* szData, int nCDATA = 0);
    unsigned char SetChildData(const char* szData, int nCDATA = 0);

    /// Replaces the main element's content by markup, exactly as given.
    unsigned char SetRealData(const char* szData);

    /// Removes the element with all that is in it, and its line when nothing else stands on it. The sibling
    /// before it becomes the position (none when it was the first).
    unsigned char RemoveElem();
    unsigned char RemoveChildElem();

protected:
    /// @cond
    // The layer that the operations above rest on. Elements are record indices; 0 is the document (as a
    // parent) or none (as anything else). Offsets are bytes in the text; ranges name their first and last
    // byte.

    /// Where an element lies. For an empty element (`<a/>`) the end tag is the start tag. A tag behind the place
    /// of the last edit has offsets counted from the end of the text, which are below 0, so that an edit need
    /// not move what is far behind it: GetElementPos gives all from the start.
    struct ElementPos {
        int nStartL, nStartR; ///< first and last byte of the start tag
        int nEndL, nEndR;     ///< first and last byte of the end tag
        int iElemLast;        ///< last child, so that appending needs no walk along the children
        int iElemParent;
        int iElemChild; ///< first child
        int iElemNext;  ///< next sibling
    };

    /// What can stand in a document beside text.
    enum NodeType {
        NodeInvalid = 0, ///< none of the below, or one that does not end
        NodeElement = 1,
        NodeComment = 2,
        NodeInstruction = 4,
        NodeCData = 8,
        NodeDeclaration = 16
    };

    /// The scanner's cursor over a zero-terminated text.
    struct TokenPos {
        explicit TokenPos(const char* text, int next = 0) : szDoc(text), nNext(next) {}
        const char* szDoc;
        int nNext;              ///< where the next token is looked for
        int nL = 0;             ///< the token's first byte
        int nR = -1;            ///< the token's last byte; before nL when it is empty
        bool bIsString = false; ///< it stood in quotes, which are not part of it
    };

    /// Sibling records that are not linked into the document yet.
    struct Fragment {
        int iFirst = 0;
        int iLast = 0;
        int nCount = 0;
    };

    struct SavedPos {
        int iPosParent = 0;
        int iPos = 0;
        int iPosChild = 0;
    };

    // Parsing
    unsigned char ParseDoc();
    int ParseElem(int iPosParent);        ///< the top element, for parent 0; its record, or -1 with the error text set
    int ParseNode(TokenPos& token) const; ///< at a '<': steps over what is no element; its NodeType
    int ParseError(const char* szError,
                   const char* szName);                 ///< sets the error text, formatted with the name; -1
    KeldMBString GetToken(const TokenPos& token) const; ///< as it stands
    static bool FindToken(TokenPos& token); ///< the next name, quoted string or single delimiter; false at the end
    static bool FindAny(const char* szDoc, int& nChar); ///< steps over white space; false at the end
    static bool FindChar(const char* szDoc, int& nChar,
                         char c);                                 ///< false, and `nChar` at the end, when absent
    bool FindAttrib(TokenPos& token, const char* szAttrib) const; ///< from inside a start tag to the value
    KeldMBString TextToDoc(const char* szText, unsigned char bAttrib) const;
    KeldMBString TextFromDoc(int nLeft, int nRight) const;

    // Reading
    int FindElem(int iPosParent, int iPos, const char* szName) const; ///< 0 if none
    KeldMBString GetTagName(int iPos) const;
    KeldMBString GetData(int iPos) const;
    KeldMBString GetSubDoc(int iPos) const;
    KeldMBString GetAttrib(int iPos, const char* szAttrib) const;

    // Editing
    unsigned char SetAttrib(int iPos, const char* szAttrib, const char* szValue);
    unsigned char SetAttrib(int iPos, const char* szAttrib, int nValue);
    unsigned char SetData(int iPos, const char* szData, int nCDATA);
    unsigned char SetRealData(int iPos, const char* szData);
    unsigned char AddElem(const char* szName, const char* szData, unsigned char bInsert, unsigned char bAddChild);
    unsigned char AddSubDoc(const char* szSubDoc, unsigned char bInsert, unsigned char bAddChild);
    int RemoveElem(int iPos); ///< the sibling before it, 0 if none; nothing is removed for 0
    static unsigned char CreateNode(KeldMBString& strNode, int nNodeType, const char* szText);
    int LocateNew(int iPosParent, int iPosRel, unsigned char bInsert) const; ///< the offset for a new element
    /// Splices the text. What is told from the end of it moves along.
    unsigned char DocChange(int nLeft, int nReplace, const KeldMBString& strInsert);
    /// Behind a splice: moves iPos (or only what follows it) and all behind as far as it is told from the start,
    /// and tells it from the end from then on.
    void Adjust(int iPos, int nShift, unsigned char bAfterPos);

    // Records
    const ElementPos& Pos(int i) const { return const_cast<QzMarkup&>(*this).Pos(i); }
    ElementPos GetElementPos(int i) const; ///< with all offsets from the start of the text
    void PosInsert(const Fragment& fragment, int iPosParent,
                   int iPosBefore);   ///< behind a child; 0: in front of all
    bool AllocPosArray(int nNewSize); ///< adds at most one segment
    int GetFreePos();                 ///< 0 when memory has run out
    void ReleasePos(int iFirst);      ///< a record, its next siblings and all that is below them
    void SetPos(int iPosParent, int iPos, int iPosChild);
    /// @endcond

private:
    // Records live in segments of 65,536, so that growing the table moves at most the last of them.
    static constexpr int SegmentBits = 16;
    static constexpr int SegmentSize = 1 << SegmentBits;
    struct FreeMemory {
        void operator()(void* memory) const { std::free(memory); }
    };
    using Segment = std::unique_ptr<ElementPos[], FreeMemory>;

    /// What Load saw of a file beside its encoding, for Save to write it alike.
    struct FileForm {
        bool isConverted = true; ///< the text is in the current charset
        bool hasMark = false;    ///< a UTF-8 byte-order mark stood in front
    };

    /// A tag in the order of the text; behind the last one there is none, with record 0.
    struct Tag {
        int iPos = 0;
        bool isEnd = false;
        bool operator==(const Tag& other) const { return iPos == other.iPos && isEnd == other.isEnd; }
    };
    /// A saved position, and the number of releases that had been made then.
    struct SavedPosAt : SavedPos {
        std::uint64_t nReleases = 0;
    };
    /// The names in the start tag that attributes were added to last, when they are many.
    struct AttributeNames;
    class Writer;

    ElementPos& Pos(int i) { return m_segments[static_cast<unsigned>(i) >> SegmentBits][i & (SegmentSize - 1)]; }
    bool IsEmptyElement(int iPos) const { return Pos(iPos).nEndL == Pos(iPos).nStartL; }
    int FromStart(int offset) const;
    int StartL(int iPos) const { return FromStart(Pos(iPos).nStartL); }
    int StartR(int iPos) const { return FromStart(Pos(iPos).nStartR); }
    int EndL(int iPos) const { return FromStart(Pos(iPos).nEndL); }
    int EndR(int iPos) const { return FromStart(Pos(iPos).nEndR); }
    Tag TagBehind(Tag tag) const;
    Tag TagBehindElement(int iPos) const;
    int TagOffset(Tag tag) const; ///< of its first byte; the text's end for none
    template <class Move>
    void MoveTag(Tag tag, Move move); ///< calls it for each offset of the tag
    void TellFromStart(int nBefore);  ///< all tags that start before an offset
    void TellFromEnd(Tag tag, int nShift);

    std::string_view TagName(int iPos) const;
    std::string_view TagName(int iPos, const char*& readable) const; ///< which is where what may be read ends
    std::string_view DataView(int iPos) const;
    bool PlainData(int iPos, std::string_view& text) const; ///< whether a part of the text is the data as it stands
    void AppendData(std::string& data, int iPos) const;
    Attribute AttributeAt(int iPos, int n) const;
    Attribute FindAttribute(int iPos, int n) const;
    AttributeRange AttributesOf(int iPos) const;
    int AttribCount(int iPos) const;
    unsigned char GetPosition(int nOffset, int& line, int& column) const;
    /// Finds an attribute that is about to be set, and the offset of its value; false: it is about to be added.
    bool FindOrNote(int iPos, std::string_view name, Attribute& attribute, int& nValue);
    int TagBodyEnd(int iPos) const; ///< behind the last attribute (or the name) in the start tag
    bool IsNameAlone(int iPos, int nBodyEnd) const;
    /// Another text under the same records: their offsets are not moved. With GetDoc the only way to the text
    /// for what does not edit elements.
    void SetText(KeldMBString text);
    bool Splice(int nLeft, int nReplace, std::string_view insert);
    bool SpliceStartTag(int iPos, int nLeft, int nReplace, std::string_view insert);

    bool AllocSegment(int nFirst, int nNewSize);
    bool ParseTree();
    int ParseElem(const KeldMBString& text, int& nNext, int nBase, int iPosParent);
    bool ParseFragment(const KeldMBString& text, int nBase, int iPosParent, Fragment& fragment);
    void ReleaseChildren(int iPos);
    bool IsReleased(int iPos) const { return Pos(iPos).iElemParent < 0; }
    int PreviousSibling(int iPos);
    void SetPrevious(int iPos, int iPrevious);
    /// `only` is the record of the one element that the text is, with offsets in the text, where it is known.
    unsigned char InsertMarkup(std::string_view text, unsigned char bInsert, unsigned char bAddChild,
                               const ElementPos* only = nullptr);
    unsigned char InsertTopMarkup(const KeldMBString& text);
    unsigned char ReplaceContent(int iPos, const KeldMBString& content, bool bNeedsElement = false);
    unsigned char SaveAs(const char* szFileName, bool bIndented);
    bool SetIndented(KeldMBString text); ///< of this object only the text and the error are good for anything then
    bool CanBeIndented(int iPos) const;
    int SkipLineEnd(int nOffset) const; ///< behind the line break when only blanks stand before it, else nOffset
    void Swap(QzMarkup& other) noexcept;

    KELDCharset::Charset m_encoding;
    FileForm m_fileForm;
    std::unique_ptr<MarkupText> m_text; ///< never null
    KeldMBString m_strError;
    int m_nErrorAt = -1; ///< the offset that a parser's message tells of, below 0 for none
    int m_iPosParent = 0;
    int m_iPos = 0;
    int m_iPosChild = 0;
    int m_nNodeType = 0;    ///< NodeElement when there is a main element
    int m_iPosFree = 1;     ///< the next record never used
    int m_iPosReleased = 0; ///< a chain of released records, along iElemNext
    KeldDict<KeldMBString, SavedPosAt> m_mapSavedPos;
    std::vector<Segment> m_segments;
    int m_nPosCapacity = 0;
    Tag m_fromEnd; ///< the first tag whose offsets are told from the end of the text, as all behind it are
    // For each record, once somebody asked for it: the sibling that was before it when that was last noted. It
    // is so as long as that one's next is this one.
    std::vector<int> m_previous;
    // For each record, once a position was saved: the number of the last release that it was part of.
    std::vector<std::uint64_t> m_releasedAt;
    std::uint64_t m_nReleases = 0;
    std::unique_ptr<AttributeNames> m_attributeNames;
    std::string m_scratch; ///< where an edit makes its markup
};

} // namespace Qzc

#include "toolkit/qzmarkupranges.h" // the classes that Children() and the like return
