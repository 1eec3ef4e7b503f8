#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "commands.h"
#include "stream/qzfile.h"
#include "stream/qztrace.h"
#include "system.h"
#include "toolkit/qzregistry.h"

using namespace Qzc;

namespace Motool {

namespace {

struct ConfigOptions {
    std::optional<std::string> file; ///< none: that of the installed library
    std::vector<std::string> get;
    bool checks = false;
    bool isJson = false;
};

// ---- What is wrong: the library tells that as lines of trace

std::vector<std::string> s_faults;

void NoteFault(const char* text) {
    std::string fault = text;
    fault.erase(fault.find_last_not_of('\n') + 1);
    s_faults.push_back(std::move(fault));
}

/// A configuration of any file: what it names lies beside it.
class ConfigFile : public QzRegistry {
public:
    explicit ConfigFile(const KeldMBString& path) : QzRegistry(path, DirectoryOf(path)) {}

private:
    static KeldMBString DirectoryOf(const KeldMBString& path) {
        KeldMBString directory;
        KeldMBString name;
        KeldMBString extension;
        std::error_code failed;
        const KeldMBString current(std::filesystem::current_path(failed).string());
        QzFile::SplitPath(QzFile::GetAbsolutePath(current, path), directory, name, extension);
        return directory;
    }
};

std::string Text(const KeldMBString& text) {
    return std::string(text.View());
}

// ---- Going through all of it

struct Kind {
    QzRegistry::ElemType type;
    const char* name;
};
constexpr Kind Kinds[] = {{QzRegistry::ElemValue, "value"},       {QzRegistry::ElemObject, "object"},
                          {QzRegistry::ElemSequence, "sequence"}, {QzRegistry::ElemObjectSequence, "objectsequence"},
                          {QzRegistry::ElemSubReg, "subreg"},     {QzRegistry::ElemExternal, "external"}};

/// Is told the tree in the order of its text. What opens is closed.
class Visitor {
public:
    virtual ~Visitor() = default;
    virtual void OpenKind(const char* kind) = 0; ///< of the entries that follow in a registry
    virtual void CloseKind() = 0;
    virtual void Value(const std::string& name, const char* kind, const std::string& text) = 0;
    virtual void Open(const std::string& name, const char* kind, bool isList) = 0;
    virtual void Close(bool isList) = 0;
    /// In front of the entries of an external file; `why` tells why there are none.
    virtual void OpenFile(const std::string& name, const std::string& path, const std::string& why) = 0;
    virtual void CloseFile() = 0;
};

void VisitObject(const QzRegistry::Object& object, Visitor& visitor) {
    for (const auto& [name, text] : object)
        visitor.Value(Text(name), "", Text(text));
}

void VisitEntry(const QzRegistry& registry, const Kind& kind, const KeldMBString& name, Visitor& visitor) {
    switch (kind.type) {
    case QzRegistry::ElemValue: visitor.Value(Text(name), kind.name, Text(registry[name])); break;
    case QzRegistry::ElemObject:
        visitor.Open(Text(name), kind.name, false);
        VisitObject(registry.Obj(name), visitor);
        visitor.Close(false);
        break;
    case QzRegistry::ElemSequence: {
        int number = 0;
        visitor.Open(Text(name), kind.name, true);
        for (const KeldMBString& text : registry.Seq(name))
            visitor.Value(Number(++number), "", Text(text));
        visitor.Close(true);
        break;
    }
    case QzRegistry::ElemObjectSequence: {
        int number = 0;
        visitor.Open(Text(name), kind.name, true);
        for (const QzRegistry::Object& object : registry.ObjSeq(name)) {
            visitor.Open(Number(++number), "", false);
            VisitObject(object, visitor);
            visitor.Close(false);
        }
        visitor.Close(true);
        break;
    }
    default: break;
    }
}

/// A registry that the walk is in.
struct Level {
    const QzRegistry* registry;
    bool isFile;
    std::size_t kind = 0;
    int next = 0;
    QzRegistry::Sequence names = {};
};

// Why an external file gives nothing; empty for one that is to be gone into.
std::string Refusal(const KeldMBString& path, std::set<std::string>& seen) {
    if (!QzFile::IsExist(path))
        return "is missing";
    if (!seen.insert(Text(path)).second)
        return "stands above";
    return std::string();
}

// Nested registries may be as deep as a file cares to nest them, and files may name each other: each is gone into once.
void Visit(const QzRegistry& root, std::set<std::string> seen, Visitor& visitor) {
    std::vector<Level> open{{&root, false}};
    while (!open.empty()) {
        Level& level = open.back();
        if (level.kind == std::size(Kinds)) {
            const bool isFile = level.isFile;
            open.pop_back();
            if (!open.empty() && isFile)
                visitor.CloseFile();
            else if (!open.empty())
                visitor.Close(false);
            continue;
        }
        const Kind& kind = Kinds[level.kind];
        if (level.next == 0) {
            level.names = level.registry->Names(kind.type);
            if (!level.names.IsEmpty())
                visitor.OpenKind(kind.name);
        }
        if (level.next == level.names.GetSize()) {
            if (!level.names.IsEmpty())
                visitor.CloseKind();
            level.next = 0;
            ++level.kind;
            continue;
        }
        const KeldMBString name = level.names[level.next++];
        if (kind.type == QzRegistry::ElemSubReg) {
            visitor.Open(Text(name), kind.name, false);
            open.push_back({&level.registry->SubReg(name), false});
        } else if (kind.type == QzRegistry::ElemExternal) {
            const KeldMBString path = level.registry->GetSubFileName(name);
            const std::string why = Refusal(path, seen);
            visitor.OpenFile(Text(name), Text(path), why);
            if (why.empty())
                open.push_back({&level.registry->SubFile(name), true});
            else
                visitor.CloseFile();
        } else {
            VisitEntry(*level.registry, kind, name, visitor);
        }
    }
}

// ---- What is shown

class TableVisitor : public Visitor {
public:
    void OpenKind(const char*) override {}
    void CloseKind() override {}
    void Value(const std::string& name, const char* kind, const std::string& text) override { Add(name, kind, text); }
    void Open(const std::string& name, const char* kind, bool) override {
        Add(name, kind, "");
        ++m_depth;
    }
    void Close(bool) override { --m_depth; }
    void OpenFile(const std::string& name, const std::string& path, const std::string& why) override {
        if (why.empty())
            Add(name, "external", path);
        else
            m_table.Add({Indented(name), "external", path + ' ' + why}, Colour::Red, 2);
        ++m_depth;
    }
    void CloseFile() override { --m_depth; }

    void Print() { m_table.Print(); }

private:
    std::string Indented(const std::string& name) const {
        constexpr std::size_t Deepest = 24;
        return std::string(2 * std::min(m_depth, Deepest), ' ') + name;
    }
    void Add(const std::string& name, const char* kind, const std::string& text) {
        m_table.Add({Indented(name), kind, text});
    }

    Table m_table{{"NAME", "KIND", "VALUE"}};
    std::size_t m_depth = 0;
};

/// Each registry is an object with a member for each kind that it has.
class JsonVisitor : public Visitor {
public:
    void OpenKind(const char* kind) override { OpenMember(kind, "{"); }
    void CloseKind() override { CloseMember("}"); }
    void Value(const std::string& name, const char*, const std::string& text) override {
        PrintBytes(Separator());
        if (!m_isList.back())
            PrintBytes(Json(name) + ": ");
        PrintBytes(Json(text));
    }
    void Open(const std::string& name, const char*, bool isList) override {
        if (m_isList.back())
            PrintBytes(Separator() + "{");
        else
            OpenMember(name, isList ? "[" : "{");
        m_isList.push_back(isList);
        m_isFirst = true;
    }
    void Close(bool isList) override {
        m_isList.pop_back();
        CloseMember(isList ? "]" : "}");
    }
    void OpenFile(const std::string& name, const std::string& path, const std::string& why) override {
        OpenMember(name, "{");
        Value("file", "", path);
        if (!why.empty())
            Value("fault", "", why);
    }
    void CloseFile() override { CloseMember("}"); }

private:
    std::string Separator() { return std::exchange(m_isFirst, false) ? "" : ", "; }
    void OpenMember(const std::string& name, const char* bracket) {
        PrintBytes(Separator() + Json(name) + ": " + bracket);
        m_isFirst = true;
    }
    void CloseMember(const char* bracket) {
        PrintBytes(bracket);
        m_isFirst = false;
    }

    std::vector<bool> m_isList{false};
    bool m_isFirst = true;
};

class CheckVisitor : public Visitor {
public:
    void OpenKind(const char*) override {}
    void CloseKind() override {}
    void Value(const std::string&, const char*, const std::string&) override {}
    void Open(const std::string&, const char*, bool) override {}
    void Close(bool) override {}
    void OpenFile(const std::string& name, const std::string& path, const std::string& why) override {
        if (why == "is missing")
            s_faults.push_back("the file of \"" + name + "\" is missing: " + path);
    }
    void CloseFile() override {}
};

// ---- One entry

const KeldMBString* Item(const QzRegistry::Sequence& sequence, std::string_view number) {
    int index = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), index);
    const bool isNumber = result.ec == std::errc() && result.ptr == number.data() + number.size();
    return isNumber && index >= 1 && index <= sequence.GetSize() ? &sequence.GetData()[index - 1] : nullptr;
}

bool PrintIfThere(const KeldMBString* text) {
    if (text != nullptr)
        PrintLine(text->View());
    return text != nullptr;
}

bool PrintAll(const QzRegistry& registry, const KeldMBString& name) {
    const auto has = [&](QzRegistry::ElemType type) {
        const QzRegistry::Sequence names = registry.Names(type);
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (has(QzRegistry::ElemObject)) {
        for (const auto& [member, text] : registry.Obj(name))
            PrintLine((member + "=" + text).View());
        return true;
    }
    if (has(QzRegistry::ElemSequence)) {
        for (const KeldMBString& text : registry.Seq(name))
            PrintLine(text.View());
        return true;
    }
    if (has(QzRegistry::ElemExternal))
        return PrintIfThere(std::make_unique<KeldMBString>(registry.GetSubFileName(name)).get());
    return false;
}

// "Group.Name": names may hold dots themselves, so each is tried as the end of the first name.
bool Get(const QzRegistry& registry, std::string_view path) {
    const KeldMBString whole(path);
    if (PrintIfThere(registry.Find(whole)) || PrintAll(registry, whole))
        return true;
    for (std::size_t dot = path.find('.'); dot != std::string_view::npos; dot = path.find('.', dot + 1)) {
        const KeldMBString group(path.substr(0, dot));
        const std::string_view rest = path.substr(dot + 1);
        const std::size_t next = std::min(rest.find('.'), rest.size());
        if (PrintIfThere(registry.Obj(group).Find(KeldMBString(rest))) || PrintIfThere(Item(registry.Seq(group), rest)))
            return true;
        if (next < rest.size()) {
            const QzRegistry::ObjectSequence& objects = registry.ObjSeq(group);
            int number = 0;
            std::from_chars(rest.data(), rest.data() + next, number);
            if (number >= 1 && number <= objects.GetSize() &&
                PrintIfThere(objects.GetAt(number - 1).Find(KeldMBString(rest.substr(next + 1)))))
                return true;
        }
        const QzRegistry::Sequence nested = registry.Names(QzRegistry::ElemSubReg);
        if (std::find(nested.begin(), nested.end(), group) != nested.end() && Get(registry.SubReg(group), rest))
            return true;
        if (!registry.GetSubFileName(group).IsEmpty() && Get(registry.SubFile(group), rest))
            return true;
    }
    return false;
}

void TellFaults() {
    for (const std::string& fault : s_faults)
        Warn(Escaped(fault));
    s_faults.clear();
}

int Show(const QzRegistry& registry, const std::string& file, const ConfigOptions& options) {
    int status = Done;
    for (auto path = options.get.begin(); path != options.get.end() && status == Done; ++path) {
        if (!Get(registry, FromTerminal(*path).View()))
            status = Fail("there is no " + Shown(*path));
    }
    if (!options.get.empty())
        return status;
    const std::set<std::string> seen{file};
    if (options.checks) {
        CheckVisitor checks;
        Visit(registry, seen, checks);
        if (!s_faults.empty())
            status = Failed;
    } else if (options.isJson) {
        JsonVisitor json;
        PrintBytes("{");
        Visit(registry, seen, json);
        PrintBytes("}\n");
    } else {
        TableVisitor table;
        Visit(registry, seen, table);
        table.Print();
    }
    return status;
}

int RunConfig(const ConfigOptions& options) {
    SetTraceHandler(NoteFault);
    KeldMBString path;
    std::unique_ptr<QzRegistry> registry;
    const auto load = [&] {
        s_faults.clear();
        path = options.file ? PathOf(*options.file) : QzRegistry::XmlPath() + "Zephyron.xml";
        registry = std::make_unique<ConfigFile>(path);
    };
    if (!options.file) {
        path = QzRegistry::XmlPath() + "Zephyron.xml";
        if (!QzFile::IsExist(path))
            return Fail("there is no configuration: " + Escaped(path.View()) + " is missing");
    }
    load();
    if (s_faults.empty() && registry->IsConverted() == 0 && SwitchToUtf8())
        load();
    if (!s_faults.empty() || registry->Name().IsEmpty()) {
        TellFaults();
        return Failed;
    }
    if (registry->IsConverted() == 0)
        s_faults.push_back(Text(path) + ": its bytes are no text of the encoding that it declares");
    const int status = Show(*registry, Text(QzFile::GetAbsolutePath(CurrentFolder(), path)), options);
    TellFaults();
    return status;
}

} // namespace

void AddConfigCommand(CLI::App& program, Chosen& chosen) {
    const auto options = std::make_shared<ConfigOptions>();
    CLI::App& command =
        AddCommand(program, chosen, "config", "Look at a configuration",
                   "Without FILE it is the configuration of the installed library. What external files hold is shown\n"
                   "in their place; they are looked for beside FILE.\n"
                   "A NAME is Group.Name: a member of an object, an item of a sequence by its number from 1, an entry\n"
                   "of a nested registry or of an external file.\n\n"
                   "Examples:\n"
                   "  motool config\n"
                   "  motool config Zephyron.xml --get LogSetting.InfoID\n"
                   "  motool config Zephyron.xml --check && echo fine",
                   options, RunConfig);
    command.add_option("FILE", options->file, "the configuration");
    auto* const get = AddRepeated(command, "--get", options->get, "print the text of an entry")->type_name("NAME");
    auto* const check =
        command.add_flag("--check", options->checks, "only tell what is wrong, and that with the exit status");
    command.add_flag("--json", options->isJson, "print the tree as JSON")->excludes(get)->excludes(check);
    check->excludes(get);
}

} // namespace Motool
