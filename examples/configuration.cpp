// Reads the engine's configuration, shows it, looks messages up, changes a value and saves a copy.
// With arguments: says what an XML file holds, and writes it in another encoding.

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "toolkit/qzmarkup.h"
#include "toolkit/qzregistry.h"
#include "toolkit/qzstringex.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace {

// ---- The configuration

// Root() is the process's one configuration. A registry on another file is a class of one's own.
class Configuration : public QzRegistry {
public:
    explicit Configuration(const KeldMBString& file) : QzRegistry(file) {}
};

void PrintLine(int depth, const char* kind, const KeldMBString& name, const KeldMBString& value) {
    const int indent = 2 * depth;
    std::printf("  %-15s%*s%-*s  %s\n", kind, indent, "", 18 - indent, name.Cstr(), value.Cstr());
}

void PrintObject(int depth, const QzRegistry::Object& object) {
    for (const auto& [name, value] : object)
        PrintLine(depth, "", name, value);
}

KeldMBString Number(int n) {
    KeldMBString text;
    text.Format("[%d]", n);
    return text;
}

void PrintEntries(int depth, const QzRegistry& registry) {
    for (const auto& [name, value] : registry)
        PrintLine(depth, "value", name, value);
    for (const KeldMBString& name : registry.Names(QzRegistry::ElemObject)) {
        PrintLine(depth, "object", name, "");
        PrintObject(depth + 1, registry.Obj(name));
    }
    for (const KeldMBString& name : registry.Names(QzRegistry::ElemSequence)) {
        PrintLine(depth, "sequence", name, "");
        int n = 0;
        for (const KeldMBString& text : registry.Seq(name))
            PrintLine(depth + 1, "", Number(n++), text);
    }
    for (const KeldMBString& name : registry.Names(QzRegistry::ElemObjectSequence)) {
        PrintLine(depth, "objectsequence", name, "");
        int n = 0;
        for (const QzRegistry::Object& object : registry.ObjSeq(name)) {
            PrintLine(depth + 1, "", Number(n++), "");
            PrintObject(depth + 2, object);
        }
    }
    for (const KeldMBString& name : registry.Names(QzRegistry::ElemExternal)) {
        KeldMBString held;
        held.Format("%s (%d entries)", registry.GetSubFileName(name).Cstr(), registry.SubFile(name).GetCount());
        PrintLine(depth, "external", name, held);
    }
}

// Registries nest as deep as a file likes, so those still to be printed are kept in a list and not on the stack.
void PrintRegistry(const QzRegistry& root) {
    struct Nested {
        int depth;
        const QzRegistry* registry;
    };
    std::vector<Nested> pending{{0, &root}};
    while (!pending.empty()) {
        const auto [depth, registry] = pending.back();
        pending.pop_back();
        if (depth > 0)
            PrintLine(depth - 1, "subreg", registry->Name(), "");
        PrintEntries(depth, *registry);
        const QzRegistry::Sequence names = registry->Names(QzRegistry::ElemSubReg);
        for (int i = names.GetSize(); i-- > 0;)
            pending.push_back({depth + 1, &registry->SubReg(names[i])});
    }
}

void PrintMessage(const char* key) {
    QzStringEx text;
    const bool missing = text.LoadResString(KeldMBString(key)) != 0;
    std::printf("  %-6s %s\n", key, missing ? "(no such message)" : text.Cstr());
}

// A new folder for temporary files that is this user's alone, under a name that nobody can foresee.
std::filesystem::path MakePrivateDirectory(std::error_code& failed) {
    std::random_device random;
    std::filesystem::path directory;
    bool isMade = false;
    while (!isMade) {
        directory = std::filesystem::temp_directory_path(failed);
        if (!failed)
            directory /= "motoolkit-" + std::to_string(random()) + std::to_string(random());
        isMade = !failed && std::filesystem::create_directory(directory, failed);
        if (failed)
            return directory;
    }
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all, failed);
    return directory;
}

int ShowConfiguration() {
    QzRegistry& root = QzRegistry::Root();
    // What the process's own charset lacks is worked on in one that has everything.
    if (root.IsConverted() == 0 && QzToolkit::SetCurCharset(KELDCharset::UTF8))
        root.Reload();
    const KeldMBString file = QzRegistry::XmlPath() + "Zephyron.xml";
    if (root.Name().IsEmpty()) {
        std::fprintf(stderr, "configuration: %s cannot be read\n", file.Cstr());
        return 1;
    }
    std::printf("%s holds \"%s\":\n", file.Cstr(), root.Name().Cstr());
    PrintRegistry(root);

    std::printf("\nMessages:\n");
    for (const char* key : {"1001", "2001", "undo", "9999"})
        PrintMessage(key);

    const KeldMBString font = root.SubReg("Display")["Font"];
    std::printf("\nThe display font %s is %s in EPS files.\n", font.Cstr(), root.SubFile("EPSFont")[font].Cstr());

    // What is saved into a folder for everybody must not be where somebody else expects it.
    std::error_code failed;
    const std::filesystem::path directory = MakePrivateDirectory(failed);
    const std::filesystem::path copy = directory / "Zephyron.xml";
    if (!failed)
        std::filesystem::copy_file(file.Cstr(), copy, failed);
    if (failed) {
        std::fprintf(stderr, "configuration: %s cannot be written: %s\n", copy.string().c_str(),
                     failed.message().c_str());
        return 1;
    }
    Configuration changed{KeldMBString(copy.string())};
    changed.SetAt("Unit", "km");
    const QzRegistry before(changed);
    const bool equal = changed.Save() && changed.Reload() && changed == before && changed["Unit"] == "km";
    std::printf("\nUnit: %s, changed to %s, saved to %s and loaded again: the tables are %s.\n", root["Unit"].Cstr(),
                changed["Unit"].Cstr(), copy.string().c_str(), equal ? "equal" : "NOT EQUAL");
    std::filesystem::remove_all(directory, failed);
    return equal ? 0 : 1;
}

// ---- Any XML file

struct Shape {
    int elements = 0;
    int depth = 0;
};

// Visits every element, however deep, without recursion.
Shape Measure(QzMarkup& markup) {
    Shape shape;
    int depth = 0;
    markup.ResetPos();
    for (;;) {
        if (markup.FindElem()) {
            ++shape.elements;
            shape.depth = depth + 1 > shape.depth ? depth + 1 : shape.depth;
            if (markup.HasChild()) {
                markup.IntoElem();
                ++depth;
            }
        } else if (depth > 0) {
            markup.OutOfElem();
            --depth;
        } else {
            return shape;
        }
    }
}

// The XML declaration in front of a document, empty when it has none.
KeldMBString Declaration(const KeldMBString& text) {
    return text.Left(5) == "<?xml" ? text.Left(text.Find("?>") + 2) : KeldMBString();
}

// The name that stands in quotes behind the declaration's word "encoding", empty when it is not there.
KeldMBString DeclaredEncoding(const KeldMBString& declaration) {
    const int word = declaration.Find("encoding");
    const KeldMBString rest = word >= 0 ? declaration.Mid(word) : KeldMBString();
    const int quote = rest.FindOneOf("\"'");
    return quote >= 0 ? rest.Mid(quote + 1, rest.Find(rest[quote], quote + 1) - quote - 1) : KeldMBString();
}

KeldMBString TopElement(QzMarkup& markup) {
    markup.ResetPos();
    markup.FindElem();
    return markup.GetSubDoc();
}

int Fail(const char* file, const KeldMBString& reason) {
    std::fprintf(stderr, "configuration: %s: %s\n", file, reason.Cstr());
    return 1;
}

int Convert(const char* file, QzMarkup& markup, const char* encodingName) {
    const KELDCharset::Charset encoding = QzTextCodec::GetCharset(encodingName);
    KeldMBString probe;
    if (!QzTextCodec(encoding, QzToolkit::GetCurCharset()).Convert(probe, KeldMBString("<?xml")))
        return Fail(file, KeldMBString("the encoding ") + encodingName + " is not known");
    if (!markup.IsConverted())
        return Fail(file, "the text is not in the encoding that it declares, or in one that is not known");

    std::filesystem::path path(file);
    path.replace_extension(std::string(".") + encodingName + path.extension().string());
    QzMarkup copy;
    copy.SetEncoding(encoding);
    // An instruction in front that is no declaration would make way for one, so the declaration is put there first.
    const int declaration = Declaration(markup.GetDoc()).GetLength();
    copy.SetDoc((copy.GetXMLFileHeader() + (declaration == 0 ? "\r\n" : "") + markup.GetDoc().Mid(declaration)).Cstr());
    if (!copy.Save(path.string().c_str()) || !copy.Load(path.string().c_str()))
        return Fail(path.string().c_str(), copy.GetError());
    if (!copy.IsConverted() || TopElement(copy) != TopElement(markup))
        return Fail(path.string().c_str(), "the copy does not load to the same content");
    std::printf("copy      %s, in %s; it loads to the same content\n", path.string().c_str(),
                QzTextCodec::GetCharsetName(encoding).Cstr());
    return 0;
}

int ShowDocument(const char* file, const char* encodingName) {
    QzMarkup markup;
    if (!markup.Load(file))
        return Fail(file, markup.GetError());
    const Shape shape = Measure(markup);
    markup.ResetPos();
    markup.FindElem();
    const KeldMBString declared = DeclaredEncoding(Declaration(markup.GetDoc()));
    const KeldMBString name = QzTextCodec::GetCharsetName(markup.GetEncoding());
    KeldMBString encoding = declared.IsEmpty() ? KeldMBString("none declared") : declared;
    if (name.IsEmpty())
        encoding += ", which is not known; the text stands as it was read";
    else if (name.CompareNoCase(declared) != 0)
        encoding += ", read as " + name;
    std::printf("file      %s, %s\n", file, markup.GetError().Cstr());
    std::printf("encoding  %s\n", encoding.Cstr());
    std::printf("root      %s\n", markup.GetTagName().Cstr());
    std::printf("elements  %d\n", shape.elements);
    std::printf("depth     %d\n", shape.depth);
    return encodingName != nullptr ? Convert(file, markup, encodingName) : 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 3) {
        std::fprintf(stderr, "usage: configuration [FILE.xml [ENCODING]]\n");
        return 2;
    }
    return argc == 1 ? ShowConfiguration() : ShowDocument(argv[1], argc == 3 ? argv[2] : nullptr);
}
