#pragma once

#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "base/keldcharset.h"
#include "base/kelddict.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// An XML document: one text in the current charset, and beside it a table of records that say where in the
/// text each element lies. Reading cuts names and values out of the text when they are asked for; editing
/// splices the text and moves the offsets behind the splice, so that the records are always those that
/// parsing the text afresh would give.
///
/// Navigation. A position is a parent element, a main element in it, and a child of the main element. "Main"
/// operations act on the main element, "Child" ones on the child. A new document stands before its top
/// element:
///     QzMarkup markup;
///     if (markup.Load("places.xml") && markup.FindElem("places")) {
///         while (markup.FindChildElem("place"))
///             Print(markup.GetChildAttrib("name"));
///     }
/// Positions stay valid across edits that do not remove their element.
///
/// Results are booleans (1: done) unless stated. What fails changes nothing: neither text nor position. Names
/// and values passed in are text in the current charset; null counts as empty. Nothing throws. Documents of
/// 2^31 bytes and more are refused; nesting may be as deep as the text is long. An object is used by one
/// thread at a time.
class MOTOOLKIT_API QzMarkup {
public:
    QzMarkup(); ///< an empty document, not well formed, in the current charset
    explicit QzMarkup(const char* szDoc);
    QzMarkup(const QzMarkup& other); ///< copies text, records, positions and saved positions
    QzMarkup(QzMarkup&& other) noexcept;
    QzMarkup& operator=(QzMarkup other) noexcept;
    ~QzMarkup();

    // ---- Document

    /// Replaces the text and parses it; whether it is well formed. A malformed text is held all the same,
    /// without records, and GetError says what is wrong.
    unsigned char SetDoc(const char* szDoc);
    const KeldMBString& GetDoc() const { return m_strDoc; }

    /// Whether there is a top element. Text before it is skipped and text behind its end tag is not looked at.
    unsigned char IsWellFormed() const;

    /// What the last SetDoc, Load or Save had to say: a parser's message, the system's message for a file, or
    /// "%d bytes" after a file was read or written.
    const KeldMBString& GetError() const { return m_strError; }

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
    /// one of unknown encoding as its text stands.
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
    /// element. Only a well-formed document is written. The document itself is not changed.
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
    unsigned char RestorePos(const char* szName);

    // ---- Reading: empty text where there is no such element or attribute

    KeldMBString GetTagName() const;
    KeldMBString GetChildTagName() const;

    /// The element's own text: character data with its references resolved and CDATA sections as written, in
    /// order; comments, instructions and child elements are left out. A numeric reference always gives UTF-8
    /// bytes.
    KeldMBString GetData() const;
    KeldMBString GetChildData() const;

    KeldMBString GetAttrib(const char* szAttrib) const;
    KeldMBString GetChildAttrib(const char* szAttrib) const;
    KeldMBString GetAttribName(int n) const; ///< counted from 0
    KeldMBString GetChildAttribName(int n) const;
    int GetAttribCount() const;
    int GetChildAttribCount() const;

    KeldMBString GetSubDoc() const; ///< the element's markup, from start tag to end tag
    KeldMBString GetChildSubDoc() const;

    // ---- Editing
    //
    // A name that is none (see IsName) is refused. So is a second top element, and markup that is not well
    // formed.

    // A value or a text of more than MaxValueLength bytes is refused, for it may grow when it is escaped.
    static constexpr int MaxValueLength = KeldMBString::MaxLength / 6;

    /// Whether a text can name an element or an attribute: it is not empty, and holds no blank, no quote, no
    /// "&" and none of <>=\/?!.
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
    // The layer that the operations above rest on. Elements are record indices; 0 is the document (as a
    // parent) or none (as anything else). Offsets are bytes in the text; ranges name their first and last
    // byte.

    /// Where an element lies. For an empty element (<a/>) the end tag is the start tag.
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
                   const char* szName);     ///< sets the error text, formatted with the name; -1
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
    int RemoveElem(int iPos); ///< the sibling before it, 0 if none
    static unsigned char CreateNode(KeldMBString& strNode, int nNodeType, const char* szText);
    int LocateNew(int iPosParent, int iPosRel, unsigned char bInsert) const; ///< the offset for a new element
    unsigned char DocChange(int nLeft, int nReplace, const KeldMBString& strInsert);
    void Adjust(int iPos, int nShift,
                unsigned char bAfterPos); ///< moves iPos (or only what follows it) and all behind

    // Records
    const ElementPos& Pos(int i) const { return const_cast<QzMarkup&>(*this).Pos(i); }
    void PosInsert(const Fragment& fragment, int iPosParent,
                   int iPosBefore);   ///< behind a child; 0: in front of all
    bool AllocPosArray(int nNewSize); ///< adds at most one segment
    int GetFreePos();                 ///< 0 when memory has run out
    void ReleasePos(int iFirst);      ///< a record, its next siblings and all that is below them
    void SetPos(int iPosParent, int iPos, int iPosChild);

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

    struct Attribute {
        std::string_view name;
        TokenPos value;
        bool hasEqualsSign;
    };
    ElementPos& Pos(int i) { return m_segments[static_cast<unsigned>(i) >> SegmentBits][i & (SegmentSize - 1)]; }
    bool IsEmptyElement(int iPos) const { return Pos(iPos).nEndL == Pos(iPos).nStartL; }
    int Clip(int offset) const; ///< into the text: after Save, records may point behind its end
    std::string_view Range(int nLeft, int nRight) const;
    std::string_view TagName(int iPos) const;
    TokenPos InsideTag(int iPos) const; ///< behind the name of the start tag
    static bool NextAttribute(TokenPos& token, Attribute& attribute);
    const std::vector<Attribute>& Attributes(int iPos) const; ///< of the start tag, until the text changes
    void ForgetAttributes() { m_iAttributesOf = 0; }          ///< whenever the text changes
    /// Another text under the same records: their offsets are not moved. With GetDoc the only way to the text
    /// for what does not edit elements.
    void SetText(KeldMBString text) {
        m_strDoc = std::move(text);
        ForgetAttributes();
    }
    KeldMBString AttribName(int iPos, int n) const;
    int AttribCount(int iPos) const;
    int TagBodyEnd(int iPos) const; ///< behind the last attribute (or the name) in the start tag

    bool ParseTree();
    int ParseElem(const KeldMBString& text, int& nNext, int nBase, int iPosParent);
    bool ParseFragment(const KeldMBString& text, int nBase, int iPosParent, Fragment& fragment);
    void ReleaseChildren(int iPos);
    bool IsReleased(int iPos) const { return Pos(iPos).iElemParent < 0; }
    void ForgetReleasedPositions();
    void ShiftSubtrees(int iFirst, int nShift);
    int PreviousSibling(int iPos) const;
    /// `only` is the record of the one element that the text is, with offsets in the text, where it is known.
    unsigned char InsertMarkup(const KeldMBString& text, unsigned char bInsert, unsigned char bAddChild,
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
    KeldMBString m_strDoc;
    KeldMBString m_strError;
    int m_iPosParent = 0;
    int m_iPos = 0;
    int m_iPosChild = 0;
    int m_nNodeType = 0;    ///< NodeElement when there is a main element
    int m_iPosFree = 1;     ///< the next record never used
    int m_iPosReleased = 0; ///< a chain of released records, along iElemNext
    KeldDict<KeldMBString, SavedPos> m_mapSavedPos;
    std::vector<Segment> m_segments;
    int m_nPosCapacity = 0;
    // Whoever counts or numbers an element's attributes is about to read them all: the start tag is taken
    // apart once, not for each of them.
    mutable std::vector<Attribute> m_attributes;
    mutable int m_iAttributesOf = 0;
};

} // namespace Qzc
