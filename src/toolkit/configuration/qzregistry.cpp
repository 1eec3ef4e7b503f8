#include "toolkit/qzregistry.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "stream/qzfile.h"
#include "stream/qzfilestream.h"
#include "stream/qztrace.h"
#include "toolkit/configuration/entryname.h"
#include "toolkit/configuration/registrywriter.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzregistryepsfont.h"
#include "toolkit/qzregistryresource.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/xml/qzxmldeclaration.h"

namespace Qzc {

namespace {

constexpr const char* ConfigurationFile = "Zephyron.xml";
constexpr const char* BaseModule = "MoBase";
constexpr int BufferSize = 8192;

constexpr std::array<const char*, 6> TypeNames = {"value",          "object", "sequence",
                                                  "objectsequence", "subreg", "external"};

QzRegistry::ElemType ToElemType(const KeldMBString& type) {
    for (std::size_t i = 0; i < TypeNames.size(); ++i) {
        if (type.CompareNoCase(TypeNames[i]) == 0)
            return static_cast<QzRegistry::ElemType>(i);
    }
    return QzRegistry::ElemValue;
}

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

// One level up: without the separators at its end, and cut behind the last one that is left.
KeldMBString ParentDirectory(KeldMBString directory) {
    int length = directory.GetLength();
    while (length > 0 && IsSeparator(directory[length - 1]))
        --length;
    directory = directory.Left(length);
    while (length > 0 && !IsSeparator(directory[length - 1]))
        --length;
    if (length > 0)
        directory = directory.Left(length);
    return directory.IsEmpty() ? KeldMBString(".") : directory;
}

// The configuration directory. What lies in it is looked for whether the file itself is found or not.
KeldMBString FindDirectory(bool& isFound) {
    KeldMBString beside = QzFile::GetModulePath(BaseModule);
    isFound = beside.IsEmpty() || QzFile::IsExist(beside + ConfigurationFile);
    if (isFound)
        return beside;
    KeldMBString above = ParentDirectory(beside);
    isFound = QzFile::IsExist(above + ConfigurationFile);
    return above;
}

KeldMBString FindDirectory() {
    bool ignored = false;
    return FindDirectory(ignored);
}

void TraceMissing() {
    qztrace("cannot find file: Zephyron.xml, pelease make sure the file: Zephyron.xml at qzc bin dir!\n");
}

// The first instruction of a text, which its encoding is read from.
KeldMBString FirstInstruction(const KeldMBString& text) {
    const int start = text.Find("<?");
    const int end = text.Find("?>");
    return start >= 0 && start < end ? text.Mid(start, end + 2 - start) : KeldMBString();
}

// The main element's children as a table of tag and text.
QzRegistry::Object ReadObject(QzMarkup& markup) {
    QzRegistry::Object object;
    markup.IntoElem();
    while (markup.FindElem())
        object.SetAt(NameOfTag(markup.GetTagName()), markup.GetData());
    markup.OutOfElem();
    return object;
}

} // namespace

// ---- Lifetime. Nested registries may be as deep as a file cares to nest them, so nothing here recurses.

QzRegistry::QzRegistry() = default;

// As LoadFile, but nothing that a derived class overrides can be called yet.
QzRegistry::QzRegistry(const KeldMBString& strFile) : QzRegistry(strFile, KeldMBString()) {}

QzRegistry::QzRegistry(const KeldMBString& strFile, const KeldMBString& strDirectory)
    : m_strFile(strFile), m_strDirectory(strDirectory) {
    KeldMBString text;
    if (ReadFile(text, m_fileForm))
        AddEntries(Parsed(text, true));
}

QzRegistry::QzRegistry(const QzRegistry& other) : QzHash<KeldMBString>(other) {
    std::vector<std::pair<const QzRegistry*, QzRegistry*>> pending{{&other, this}};
    const auto copyValues = [&](const QzRegistry& from, std::unique_ptr<QzRegistry> to) {
        static_cast<QzHash<KeldMBString>&>(*to) = from;
        pending.emplace_back(&from, to.get());
        return to;
    };
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        to->CopyTables(*from);
        for (const auto& [name, registry] : from->m_subRegistries)
            to->m_subRegistries.SetAt(name, copyValues(*registry, std::unique_ptr<QzRegistry>(new QzRegistry)));
        for (const auto& [name, registry] : from->m_loadedFiles)
            to->m_loadedFiles.SetAt(name, copyValues(*registry, MakeExternal(name)));
    }
}

QzRegistry& QzRegistry::operator=(const QzRegistry& other) {
    QzRegistry copy(other);
    Swap(copy);
    return *this;
}

QzRegistry::~QzRegistry() {
    std::vector<std::unique_ptr<QzRegistry>> pending;
    const auto adoptChildren = [&](QzRegistry& registry) {
        for (Owned<QzRegistry>* const children : {&registry.m_subRegistries, &registry.m_loadedFiles}) {
            for (auto& child : *children)
                pending.push_back(std::move(child.second));
            children->RemoveAll();
        }
    };
    adoptChildren(*this);
    while (!pending.empty()) {
        const std::unique_ptr<QzRegistry> last = std::move(pending.back());
        pending.pop_back();
        adoptChildren(*last);
    }
}

// Everything but the values and the registries below this one.
void QzRegistry::CopyTables(const QzRegistry& other) {
    const auto copy = [](auto& to, const auto& from) {
        for (const auto& [name, item] : from)
            to.SetAt(name, std::make_unique<std::decay_t<decltype(*item)>>(*item));
    };
    copy(m_objects, other.m_objects);
    copy(m_sequences, other.m_sequences);
    copy(m_objectSequences, other.m_objectSequences);
    m_externalFiles = other.m_externalFiles;
    m_strName = other.m_strName;
    m_strFile = other.m_strFile;
    m_strDirectory = other.m_strDirectory;
    m_fileForm = other.m_fileForm;
    m_order = other.m_order;
}

void QzRegistry::Swap(QzRegistry& other) noexcept {
    std::swap(static_cast<QzHash<KeldMBString>&>(*this), static_cast<QzHash<KeldMBString>&>(other));
    std::swap(m_objects, other.m_objects);
    std::swap(m_sequences, other.m_sequences);
    std::swap(m_objectSequences, other.m_objectSequences);
    std::swap(m_subRegistries, other.m_subRegistries);
    std::swap(m_loadedFiles, other.m_loadedFiles);
    std::swap(m_externalFiles, other.m_externalFiles);
    std::swap(m_strName, other.m_strName);
    std::swap(m_strFile, other.m_strFile);
    std::swap(m_strDirectory, other.m_strDirectory);
    std::swap(m_fileForm, other.m_fileForm);
    std::swap(m_order, other.m_order);
}

bool operator==(const QzRegistry& a, const QzRegistry& b) {
    const auto sameItems = [](const auto& left, const auto& right) {
        return left.GetCount() == right.GetCount() && std::all_of(left.begin(), left.end(), [&](const auto& entry) {
                   const auto* const other = right.Find(entry.first);
                   return other != nullptr && **other == *entry.second;
               });
    };
    std::vector<std::pair<const QzRegistry*, const QzRegistry*>> pending{{&a, &b}};
    while (!pending.empty()) {
        const auto [left, right] = pending.back();
        pending.pop_back();
        if (left->m_strName != right->m_strName || left->m_externalFiles != right->m_externalFiles ||
            static_cast<const QzHash<KeldMBString>&>(*left) != *right ||
            left->m_subRegistries.GetCount() != right->m_subRegistries.GetCount() ||
            !sameItems(left->m_objects, right->m_objects) || !sameItems(left->m_sequences, right->m_sequences) ||
            !sameItems(left->m_objectSequences, right->m_objectSequences))
            return false;
        for (const auto& [name, registry] : left->m_subRegistries) {
            const auto* const other = right->m_subRegistries.Find(name);
            if (other == nullptr)
                return false;
            pending.emplace_back(registry.get(), other->get());
        }
    }
    return true;
}

// ---- Reading

QzRegistry& QzRegistry::Root() {
    static QzRegistry s_root;
    static const bool s_isRead = [] {
        bool isFound = false;
        s_root.m_strFile = FindDirectory(isFound) + ConfigurationFile;
        if (isFound)
            s_root.LoadFile(s_root.m_strFile);
        else
            TraceMissing();
        return isFound;
    }();
    static_cast<void>(s_isRead);
    return s_root;
}

KeldMBString QzRegistry::XmlPath() {
    bool isFound = false;
    KeldMBString directory = FindDirectory(isFound);
    if (!isFound)
        TraceMissing();
    return directory;
}

QzRegistry::Object& QzRegistry::Obj(const KeldMBString& strName) const {
    static Object s_none;
    const auto* const object = m_objects.Find(strName);
    return object != nullptr ? **object : s_none;
}

QzRegistry::Sequence& QzRegistry::Seq(const KeldMBString& strName) const {
    static Sequence s_none;
    const auto* const sequence = m_sequences.Find(strName);
    return sequence != nullptr ? **sequence : s_none;
}

QzRegistry::ObjectSequence& QzRegistry::ObjSeq(const KeldMBString& strName) const {
    static ObjectSequence s_none;
    const auto* const sequence = m_objectSequences.Find(strName);
    return sequence != nullptr ? **sequence : s_none;
}

QzRegistry& QzRegistry::SubReg(const KeldMBString& strName) const {
    static QzRegistry s_none;
    const auto* const registry = m_subRegistries.Find(strName);
    return registry != nullptr ? **registry : s_none;
}

QzRegistry& QzRegistry::SubFile(const KeldMBString& strName) const {
    static QzRegistry s_none;
    const KeldMBString path = GetSubFileName(strName);
    if (path.IsEmpty())
        return s_none;
    const auto* const loaded = m_loadedFiles.Find(strName);
    if (loaded != nullptr)
        return **loaded;
    std::unique_ptr<QzRegistry> file = MakeExternal(strName);
    QzRegistry& result = *file;
    result.m_strDirectory = m_strDirectory;
    result.LoadFile(path);
    m_loadedFiles.SetAt(strName, std::move(file));
    return result;
}

std::unique_ptr<QzRegistry> QzRegistry::MakeExternal(const KeldMBString& strName) {
    if (strName.CompareNoCase("resource") == 0)
        return std::make_unique<QzRegistryResource>();
    if (strName.CompareNoCase("EPSFont") == 0)
        return std::make_unique<QzRegistryEpsFont>();
    return std::unique_ptr<QzRegistry>(new QzRegistry);
}

KeldMBString QzRegistry::GetSubFileName(const KeldMBString& strName) const {
    return m_externalFiles[strName];
}

QzRegistry::Sequence QzRegistry::Names(ElemType type) const {
    Sequence names;
    const auto add = [&](const auto& table) {
        for (const auto& entry : table)
            names.Add(entry.first);
    };
    switch (type) {
    case ElemValue: add(*this); break;
    case ElemObject: add(m_objects); break;
    case ElemSequence: add(m_sequences); break;
    case ElemObjectSequence: add(m_objectSequences); break;
    case ElemSubReg: add(m_subRegistries); break;
    case ElemExternal: add(m_externalFiles); break;
    }
    return names;
}

// ---- Loading

bool QzRegistry::ReadFile(KeldMBString& text, FileForm& form) const {
    QzFileStream stream(m_strFile, QzFileStream::Direction::Read, BufferSize);
    const std::int64_t length = stream.GetLength();
    std::string bytes;
    if (stream.IsOpen() && length <= KeldMBString::MaxLength) {
        bytes.resize(static_cast<std::size_t>(length));
        stream.Read(bytes.data(), length);
    } else {
        stream.SetFailed();
    }
    if (!stream.IsGood()) {
        qztrace("cannot read file: %s %s\n", m_strFile.Cstr(), stream.GetError().Cstr());
        return false;
    }
    stream.Close();
    text = KeldMBString(std::move(bytes));
    const XmlFileForm decoded = DecodeXmlFile(text);
    form.isConverted = decoded.isConverted;
    form.hasMark = decoded.hasMark;
    form.declaration = decoded.isConverted ? KeldMBString() : FirstInstruction(text);
    return true;
}

void QzRegistry::LoadFile(const KeldMBString& strFile) {
    m_strFile = strFile;
    KeldMBString text;
    if (!ReadFile(text, m_fileForm))
        return;
    m_isFileText = true;
    LoadDoc(text);
    m_isFileText = false;
}

void QzRegistry::LoadDoc(const KeldMBString& strDoc) {
    LoadFromMarkup(Parsed(strDoc, m_isFileText));
}

QzMarkup QzRegistry::Parsed(const KeldMBString& text, bool isFile) const {
    QzMarkup markup(text.Cstr());
    if (!markup.IsWellFormed()) {
        KeldMBString message = markup.GetError();
        message.TrimLeft(',').TrimLeft();
        int line = 1;
        int column = 1;
        markup.GetErrorPosition(line, column);
        qztrace("cannot parse %s line %d: %s\n", isFile ? ("file: " + m_strFile).Cstr() : "text:", line,
                message.IsEmpty() ? "it is empty" : message.Cstr());
    }
    return markup;
}

unsigned char QzRegistry::Reload() {
    KeldMBString text;
    FileForm form;
    return !m_strFile.IsEmpty() && ReadFile(text, form) && LoadAnew(text, form, true);
}

unsigned char QzRegistry::LoadText(const KeldMBString& xml) {
    FileForm form;
    form.hasMark = m_fileForm.hasMark;
    return LoadAnew(xml, form, false);
}

unsigned char QzRegistry::LoadAnew(const KeldMBString& text, const FileForm& form, bool isFile) {
    QzRegistry held;
    Swap(held);
    m_strFile = held.m_strFile;
    m_strDirectory = held.m_strDirectory;
    m_fileForm = form;
    m_isFileText = isFile;
    LoadDoc(text);
    m_isFileText = false;
    // A name alone is something; only what is malformed, or in no form that this class reads, gives nothing.
    const bool isLoaded = *this != QzRegistry();
    if (!isLoaded)
        Swap(held);
    return isLoaded;
}

void QzRegistry::LoadFromMarkup(const QzMarkup& markup) {
    AddEntries(markup);
}

bool QzRegistry::EnterTop(QzMarkup& walk) {
    walk.ResetPos();
    if (!walk.FindElem())
        return false;
    m_strName = NameOfTag(walk.GetTagName());
    walk.IntoElem();
    return true;
}

void QzRegistry::AddEntries(QzMarkup walk) {
    if (!EnterTop(walk))
        return;
    KeldMBString directory = m_strDirectory;
    std::vector<QzRegistry*> open{this}; // the registries whose elements the walk is in, innermost last
    while (!open.empty()) {
        if (walk.FindElem()) {
            QzRegistry* const nested = open.back()->LoadEntry(walk, directory);
            if (nested != nullptr) {
                open.push_back(nested);
                walk.IntoElem();
            }
        } else {
            open.pop_back();
            walk.OutOfElem();
        }
    }
}

// Adds the entry at the main position. A nested registry is returned, for its elements to be added to it. The
// configuration directory is looked for when the first external file is met, and not again.
QzRegistry* QzRegistry::LoadEntry(QzMarkup& markup, KeldMBString& directory) {
    const KeldMBString name = NameOfTag(markup.GetTagName());
    const ElemType type = ToElemType(markup.GetAttrib("type"));
    QzRegistry* nested = nullptr;
    bool isNew = false;
    const auto set = [&](auto& table, auto item) {
        isNew = table.Find(name) == nullptr;
        table.SetAt(name, std::move(item));
    };
    switch (type) {
    case ElemValue: set(static_cast<QzHash<KeldMBString>&>(*this), markup.GetData()); break;
    case ElemObject: set(m_objects, std::make_unique<Object>(ReadObject(markup))); break;
    case ElemSequence: {
        auto sequence = std::make_unique<Sequence>();
        while (markup.FindChildElem())
            sequence->Add(markup.GetChildData());
        set(m_sequences, std::move(sequence));
        break;
    }
    case ElemObjectSequence: {
        auto sequence = std::make_unique<ObjectSequence>();
        markup.IntoElem();
        while (markup.FindElem())
            sequence->Add(ReadObject(markup));
        markup.OutOfElem();
        set(m_objectSequences, std::move(sequence));
        break;
    }
    case ElemSubReg: {
        std::unique_ptr<QzRegistry> registry(new QzRegistry);
        registry->m_strName = name;
        registry->m_strDirectory = m_strDirectory;
        nested = registry.get();
        set(m_subRegistries, std::move(registry));
        break;
    }
    case ElemExternal:
        if (directory.IsEmpty())
            directory = FindDirectory();
        set(m_externalFiles, QzFile::GetAbsolutePath(directory, markup.GetData()));
        break;
    default: KELDASSERT_TEXT(false, "an entry of no kind"); break;
    }
    if (isNew)
        m_order.Add(OrderedEntry{type, name});
    return nested;
}

// ---- Saving

unsigned char QzRegistry::Save() {
    if (m_strFile.IsEmpty())
        return 0;
    const KELDCharset::Charset current = QzToolkit::GetCurCharset();
    KeldMBString head = m_fileForm.isConverted ? QzToolkit::GetXmlFileHeader(current) : m_fileForm.declaration;
    if (!head.IsEmpty())
        head += "\r\n";
    QzMarkup markup(head.Cstr());
    if (!markup.AddElem(TagOfName(m_strName).Cstr()))
        return 0;
    markup.IntoElem();
    if (!SaveDoc(markup))
        return 0;
    const bool isMarked = m_fileForm.hasMark && (current == KELDCharset::UTF8 || !m_fileForm.isConverted);
    const std::string_view parts[] = {isMarked ? Utf8Mark : std::string_view(), markup.GetDoc().View()};
    const auto write = [&](QzFile& file) {
        return std::all_of(std::begin(parts), std::end(parts), [&](std::string_view part) {
            const auto size = static_cast<std::int64_t>(part.size());
            return file.Write(part.data(), size) == size;
        });
    };
    KeldMBString error;
    return QzFile::ReplaceAll(m_strFile, write, error);
}

unsigned char QzRegistry::SaveDoc(QzMarkup& markup) const {
    struct Level {
        KeldMBString name; // that of the entry, which the registry's own need not be after an assignment
        const QzRegistry* registry;
        KeldArray<OrderedEntry> entries;
        int next;
    };
    RegistryWriter writer;
    KeldMBString directory = m_strDirectory;
    std::vector<Level> open;
    open.push_back({m_strName, this, EntriesInOrder(), 0});
    while (!open.empty()) {
        Level& level = open.back();
        if (level.next == level.entries.GetSize()) {
            if (open.size() > 1)
                writer.Close(level.name);
            open.pop_back();
            continue;
        }
        const OrderedEntry& entry = level.entries[level.next++];
        if (!level.registry->WriteEntry(writer, entry, directory))
            return 0;
        if (entry.type == ElemSubReg) {
            const QzRegistry& nested = level.registry->SubReg(entry.name);
            open.push_back({entry.name, &nested, nested.EntriesInOrder(), 0});
        }
    }
    return writer.Text().IsEmpty() || markup.AddSubDoc(writer.Text().Cstr());
}

// The entries as they were read, without those that have been removed since, and then the values that are
// new.
KeldArray<QzRegistry::OrderedEntry> QzRegistry::EntriesInOrder() const {
    KeldArray<OrderedEntry> entries;
    std::unordered_set<std::string_view> values;
    for (const OrderedEntry& entry : m_order) {
        // A value that was removed and then read again stands in the list twice.
        const bool isGone = entry.type == ElemValue && Find(entry.name) == nullptr;
        const bool isKnown = entry.type == ElemValue && !values.insert(entry.name.View()).second;
        if (!isGone && !isKnown)
            entries.Add(entry);
    }
    for (const Entry& value : *this) {
        if (values.count(value.first.View()) == 0)
            entries.Add(OrderedEntry{ElemValue, value.first});
    }
    return entries;
}

// Writes an entry; of a nested registry the start tag only. The configuration directory is looked for when the first
// external file is met, and not again.
unsigned char QzRegistry::WriteEntry(RegistryWriter& writer, const OrderedEntry& entry, KeldMBString& directory) const {
    const RegistryWriter::Attribute type = {"type", TypeNames[entry.type]};
    const auto writeObject = [&](const Object& object) {
        unsigned char written = 1;
        for (const Entry& item : object)
            written = written && writer.Leaf(item.first, item.second);
        return written;
    };
    if (entry.type == ElemValue)
        return writer.Leaf(entry.name, (*this)[entry.name], type);
    if (entry.type == ElemExternal) {
        if (directory.IsEmpty())
            directory = FindDirectory();
        return writer.Leaf(entry.name, QzFile::GetRelativePath(directory, GetSubFileName(entry.name)), type);
    }
    if (!writer.Open(entry.name, type))
        return 0;
    switch (entry.type) {
    case ElemObject:
        if (!writeObject(Obj(entry.name)))
            return 0;
        break;
    case ElemSequence:
        for (const KeldMBString& text : Seq(entry.name))
            writer.Leaf("item", text);
        break;
    case ElemObjectSequence:
        for (const Object& object : ObjSeq(entry.name)) {
            writer.Open("item");
            if (!writeObject(object))
                return 0;
            writer.Close("item");
        }
        break;
    default: return 1;
    }
    writer.Close(entry.name);
    return 1;
}

} // namespace Qzc
