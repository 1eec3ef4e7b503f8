#pragma once

#include <memory>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzhash.h"

namespace Qzc {

class QzMarkup;
class RegistryWriter;

/// The engine's configuration: a tree of typed entries, read from "Zephyron.xml" and from the files that it
/// names.
///
/// The table that it is itself holds the plain values, by name. Beside them stand objects (tables of name and
/// value), sequences of texts, sequences of objects, nested registries, and external files, each kind under
/// names of its own. An entry's name is its element's tag, its kind the element's `type` attribute
/// (docs/configuration.md):
///     QzRegistry& root = QzRegistry::Root();
///     KeldMBString version = root["Version"];
///     KeldMBString code = root.Obj("LogSetting")["InfoID"];
///     KeldMBString text = root.SubFile("resource")["1001"];
///
/// Nothing fails for being absent: a missing value reads as empty, and the other getters then return one
/// shared empty object, which must not be changed. All text is in the current charset. A registry is meant to
/// be loaded once and then only read, which several threads may do; SubFile loads on first use and is not
/// guarded.
class MOTOOLKIT_API QzRegistry : public QzHash<KeldMBString> {
public:
    using Object = QzHash<KeldMBString>;      ///< texts by name
    using Sequence = KeldArray<KeldMBString>; ///< texts in order
    using ObjectSequence = KeldArray<Object>; ///< objects in order

    /// The kinds of entries, as the `type` attribute names them (without regard to case).
    enum ElemType {
        ElemValue = 0,          ///< "value", also for no type or an unknown one: the element's text
        ElemObject = 1,         ///< "object": each child element's tag and text
        ElemSequence = 2,       ///< "sequence": the texts of the child elements
        ElemObjectSequence = 3, ///< "objectsequence": an object of each child element
        ElemSubReg = 4,         ///< "subreg": a nested registry
        ElemExternal = 5        ///< "external": a file name, relative to the configuration directory
    };

    QzRegistry(const QzRegistry& other); ///< deep, also of loaded external registries
    QzRegistry& operator=(const QzRegistry& other);
    virtual ~QzRegistry();

    /// Whether all tables are equal, those of nested registries included. External files compare by their
    /// paths.
    friend MOTOOLKIT_API bool operator==(const QzRegistry& a, const QzRegistry& b);
    friend bool operator!=(const QzRegistry& a, const QzRegistry& b) { return !(a == b); }

    /// The process's configuration, read on the first call (which one thread must make before others follow)
    /// from "Zephyron.xml" in the configuration directory. Empty when that file is missing or not well
    /// formed.
    static QzRegistry& Root();

    /// The configuration directory: the base library's, or the one above it when "Zephyron.xml" is not beside
    /// the library. It ends with a separator (but is "." above the file system's root). When the file is in
    /// neither, a trace line says so. Empty when the base library cannot be found.
    static KeldMBString XmlPath();

    KeldMBString Name() const { return m_strName; }    ///< the top element's tag
    KeldMBString Encoding() const { return "GB2312"; } ///< what configuration files are in by convention

    Object& Obj(const KeldMBString& strName) const;            ///< the object of that name
    Sequence& Seq(const KeldMBString& strName) const;          ///< the sequence of that name
    ObjectSequence& ObjSeq(const KeldMBString& strName) const; ///< the sequence of objects of that name
    QzRegistry& SubReg(const KeldMBString& strName) const;     ///< the nested registry of that name

    /// The registry of an external file, loaded when it is first asked for. "resource" gives a
    /// QzRegistryResource, "EPSFont" a QzRegistryEpsFont (without regard to case), any other name a plain
    /// registry.
    QzRegistry& SubFile(const KeldMBString& strName) const;
    KeldMBString GetSubFileName(const KeldMBString& strName) const; ///< its absolute path, empty if there is none

    /// The names of the entries of one kind, in the order in which they were read.
    Sequence Names(ElemType type) const;

    /// Reads the registry's file anew, and the external ones when they are asked for again. False when there is
    /// no file, it cannot be read or is not well formed (a trace line tells): nothing is changed. Otherwise what
    /// the file does not hold is gone, and references to entries are not valid any more; nobody else may be
    /// reading.
    unsigned char Reload();

    /// The same from a text in the current charset; Save still writes to the file.
    unsigned char LoadText(const KeldMBString& xml);

    /// Whether the text is in the current charset: 0 where the file's bytes are none of the encoding that it
    /// declares, or that is not known. They are then held as they are.
    unsigned char IsConverted() const { return m_fileForm.isConverted; }

    /// Writes the registry back to its file, in the current charset and with a declaration that says so (one that
    /// is not converted as it was read, under its own declaration), entries in the order in which they were read
    /// and then those added since. A name may be any that holds no blank and none of <>=\/?!. The file is
    /// replaced safely, as QzFile::ReplaceAll does: when anything fails (no file, a name that is no tag, a file
    /// that may not be written, a full disk) the result is 0 and the old file is whole. External registries are
    /// not written, only the names of their files, relative to the configuration directory.
    unsigned char Save();

protected:
    QzRegistry();
    explicit QzRegistry(const KeldMBString& strFile); ///< loaded by LoadFile
    /// The same with another directory, which all external files are relative to, those of external files too.
    QzRegistry(const KeldMBString& strFile, const KeldMBString& strDirectory);

    /// Reads a file in the encoding that it declares and hands its text to LoadDoc. Save then writes to this
    /// file. A file that cannot be read leaves a trace line and the registry empty. So does one that is not well
    /// formed; the line names the file, the line in it and what is wrong.
    void LoadFile(const KeldMBString& strFile);
    virtual void LoadDoc(const KeldMBString& strDoc);      ///< parses and calls LoadFromMarkup
    virtual void LoadFromMarkup(const QzMarkup& markup);   ///< adds the entries of the document's top element
    virtual unsigned char SaveDoc(QzMarkup& markup) const; ///< adds the entries at the end of the markup's parent

    /// Takes the name of the document's top element and goes into it. False when there is none.
    bool EnterTop(QzMarkup& walk);

private:
    template <class T>
    using Owned = QzHash<std::unique_ptr<T>>;
    struct OrderedEntry {
        ElemType type;
        KeldMBString name;
    };
    struct FileForm {
        bool isConverted = true;  ///< as QzMarkup's
        bool hasMark = false;     ///< a UTF-8 byte-order mark stood in front
        KeldMBString declaration; ///< that of a text that is not converted
    };

    static std::unique_ptr<QzRegistry> MakeExternal(const KeldMBString& strName);
    void CopyTables(const QzRegistry& other);
    void Swap(QzRegistry& other) noexcept;
    bool ReadFile(KeldMBString& text, FileForm& form) const;
    QzMarkup Parsed(const KeldMBString& text, bool isFile) const;
    unsigned char LoadAnew(const KeldMBString& text, const FileForm& form, bool isFile);
    void AddEntries(QzMarkup walk);
    QzRegistry* LoadEntry(QzMarkup& markup, KeldMBString& directory);
    KeldArray<OrderedEntry> EntriesInOrder() const;
    unsigned char WriteEntry(RegistryWriter& writer, const OrderedEntry& entry, KeldMBString& directory) const;

    Owned<Object> m_objects;
    Owned<Sequence> m_sequences;
    Owned<ObjectSequence> m_objectSequences;
    Owned<QzRegistry> m_subRegistries;
    mutable Owned<QzRegistry> m_loadedFiles;
    QzHash<KeldMBString> m_externalFiles;
    KeldMBString m_strName;
    KeldMBString m_strFile;
    KeldMBString m_strDirectory; ///< the configuration directory, if it is not the process's own
    FileForm m_fileForm;
    bool m_isFileText = false;       ///< while LoadDoc is given the text of m_strFile
    KeldArray<OrderedEntry> m_order; ///< the entries as they were read, across the kinds
};

} // namespace Qzc
