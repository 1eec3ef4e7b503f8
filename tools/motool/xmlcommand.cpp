#include <algorithm>
#include <string>
#include <string_view>

#include "base/keldsystem.h"
#include "commands.h"
#include "stream/qzfile.h"
#include "system.h"
#include "toolkit/qzmarkup.h"
#include "xmlfile.h"
#include "xmlpath.h"

using namespace Qzc;

namespace Motool {

namespace {

struct XmlOptions {
    std::string file;
    std::vector<std::string> get;
    std::vector<std::string> set; ///< path and value in turn
    std::vector<std::string> remove;
    std::string encoding;
    bool indents = false;
    std::string output;

    bool Edits() const { return !set.empty() || !remove.empty() || !encoding.empty() || indents; }
};

bool ParsePath(const std::string& argument, XmlPath& path) {
    std::string error;
    if (XmlPath::Parse(FromTerminal(argument).View(), path, error))
        return true;
    FailUsage("the path " + Shown(argument) + ": " + Escaped(error));
    return false;
}

// ---- What it holds

struct Contents {
    std::int64_t elements = 0;
    std::int64_t attributes = 0;
    std::int64_t depth = 0;
};

Contents Count(QzMarkup& markup) {
    Contents contents;
    std::int64_t depth = 1;
    markup.ResetPos();
    while (depth > 0) {
        if (markup.FindElem() != 0) {
            ++contents.elements;
            contents.attributes += markup.GetAttribCount();
            contents.depth = std::max(contents.depth, depth);
            markup.IntoElem();
            markup.ResetMainPos();
            ++depth;
        } else {
            markup.OutOfElem();
            --depth;
        }
    }
    markup.ResetPos();
    return contents;
}

int Describe(QzMarkup& markup, const XmlOptions& options, Loaded loaded) {
    QzFile file;
    const bool isOpen = file.Open(PathOf(options.file), QzFile::Access::Read);
    const bool isKnown = markup.GetEncoding() != KELDCharset::Unknown;
    const bool isConverted = markup.IsConverted() != 0;
    const Contents contents = loaded == Loaded::Whole ? Count(markup) : Contents();
    std::string encoding = isKnown ? std::string(KeldSystem::GetCharsetName(markup.GetEncoding()).View()) : "unknown";
    if (isKnown && !isConverted)
        encoding += ", but its bytes are no text of it";
    Table table({});
    table.Add({"size", Plural(isOpen ? file.GetLength() : 0, "byte", "bytes")});
    table.Add({"encoding", encoding});
    if (loaded == Loaded::Whole) {
        table.Add({"top element", std::string(markup.TopElement().GetTagNameView())});
        table.Add({"elements", Number(contents.elements)});
        table.Add({"attributes", Number(contents.attributes)});
        table.Add({"depth", Number(contents.depth)});
    }
    table.Add({"well formed", loaded == Loaded::Whole ? "yes" : "no"},
              loaded == Loaded::Whole ? Colour::Green : Colour::Red, 1);
    table.Print();
    return loaded == Loaded::Whole && isConverted ? Done : Failed;
}

// ---- Reading

// Whether there was any.
bool PrintAttribute(const QzMarkup& markup, const std::string& name) {
    for (const auto& attribute : markup.Attributes()) {
        if (attribute.GetNameView() == name) {
            PrintLine(attribute.GetValueView());
            return true;
        }
    }
    return false;
}

int Get(QzMarkup& markup, const std::string& argument) {
    XmlPath path;
    if (!ParsePath(argument, path))
        return WrongUsage;
    bool found = false;
    VisitElements(markup, path, path.elements.size(), [&](QzMarkup& at) {
        if (!path.attribute.empty()) {
            found = PrintAttribute(at, path.attribute) || found;
        } else {
            PrintLine(at.GetDataView());
            found = true;
        }
        return true;
    });
    return found ? Done : Fail("there is no " + Shown(argument));
}

// ---- Editing

// An element that is not there, in each of the parents that are.
bool AddMissing(QzMarkup& markup, const XmlPath& path, const KeldMBString& value) {
    const XmlPath::Step& last = path.elements.back();
    bool isAdded = false;
    if (path.elements.size() < 2 || last.number != 0 || last.name == "*")
        return false;
    VisitElements(markup, path, path.elements.size() - 1, [&](QzMarkup& at) {
        isAdded = at.AddChildElem(last.name.c_str(), value.Cstr()) != 0;
        return isAdded;
    });
    return isAdded;
}

int Set(QzMarkup& markup, const std::string& argument, const std::string& text) {
    XmlPath path;
    if (!ParsePath(argument, path))
        return WrongUsage;
    const KeldMBString value = FromTerminal(text);
    bool hasChildren = false;
    bool isRefused = false;
    const int count = VisitElements(markup, path, path.elements.size(), [&](QzMarkup& at) {
        hasChildren = path.attribute.empty() && at.HasChild() != 0;
        if (!hasChildren)
            isRefused = (path.attribute.empty() ? at.SetData(value.Cstr())
                                                : at.SetAttrib(path.attribute.c_str(), value.Cstr())) == 0;
        return !hasChildren && !isRefused;
    });
    if (hasChildren)
        return Fail(Shown(argument) + " holds elements, which a text would take the place of");
    if (isRefused)
        return Fail(Shown(argument) + " cannot be set: a name or a value that XML cannot hold");
    if (count > 0 || (path.attribute.empty() && AddMissing(markup, path, value)))
        return Done;
    return Fail("there is no " + Shown(argument));
}

int Remove(QzMarkup& markup, const std::string& argument) {
    XmlPath path;
    if (!ParsePath(argument, path))
        return WrongUsage;
    if (path.attribute.empty() && path.elements.size() == 1)
        return Fail("the top element cannot be removed");
    bool found = false;
    VisitElements(markup, path, path.elements.size(), [&](QzMarkup& at) {
        const bool isGone = (path.attribute.empty() ? at.RemoveElem() : at.RemoveAttrib(path.attribute.c_str())) != 0;
        found = found || isGone;
        return isGone || !path.attribute.empty();
    });
    return found ? Done : Fail("there is no " + Shown(argument));
}

int Edit(QzMarkup& markup, const XmlOptions& options) {
    int status = Done;
    for (std::size_t i = 0; i + 1 < options.set.size() && status == Done; i += 2)
        status = Set(markup, options.set[i], options.set[i + 1]);
    for (auto path = options.remove.begin(); path != options.remove.end() && status == Done; ++path)
        status = Remove(markup, *path);
    return status;
}

int Save(QzMarkup& markup, const XmlOptions& options) {
    const std::string& target = options.output.empty() ? options.file : options.output;
    const KeldMBString path = PathOf(target);
    const bool isSaved = (options.indents ? markup.SaveIndented(path.Cstr()) : markup.Save(path.Cstr())) != 0;
    return isSaved ? Done : Fail(Shown(target) + " was not written: " + Escaped(markup.GetError().View()));
}

int RunXml(const XmlOptions& options) {
    if (!options.output.empty() && !options.Edits())
        return FailUsage("-o wants something to write: --set, --remove, --encode or --indent");
    const KELDCharset::Charset encoding =
        options.encoding.empty() ? KELDCharset::Current
                                 : KeldSystem::GetCharset(KeldMBString(std::string_view(options.encoding)));
    if (encoding == KELDCharset::Unknown)
        return FailUsage("the encoding " + Shown(options.encoding) + " is not known");
    QzMarkup markup;
    const Loaded loaded = LoadDocument(markup, options.file);
    if (loaded == Loaded::Failed)
        return Failed;
    if (!options.Edits() && options.get.empty())
        return Describe(markup, options, loaded);
    if (loaded == Loaded::Malformed)
        return Failed;
    if (options.Edits() && markup.IsConverted() == 0)
        return Fail(Shown(options.file) + ": its bytes are no text of the encoding that it declares");
    int status = Edit(markup, options);
    for (auto path = options.get.begin(); path != options.get.end() && status == Done; ++path)
        status = Get(markup, *path);
    if (status != Done || !options.Edits())
        return status;
    if (!options.encoding.empty())
        markup.SetEncoding(encoding);
    return Save(markup, options);
}

} // namespace

void AddXmlCommand(CLI::App& program, Chosen& chosen) {
    const auto options = std::make_shared<XmlOptions>();
    CLI::App& command = AddCommand(
        program, chosen, "xml", "Look at an XML document, read values of it, edit and convert it",
        "Without an option it tells what the document holds, or what is wrong with it and where.\n"
        "A PATH leads from the top element down: map/layer[2]/@name is the attribute \"name\" of the second\n"
        "\"layer\" in \"map\"; * is any element. What is edited is saved in place, or under -o, and as a "
        "whole:\n"
        "what fails leaves the file as it was.\n\n"
        "Examples:\n"
        "  motool xml places.xml\n"
        "  motool xml places.xml --get 'places/place/@name'\n"
        "  motool xml places.xml --set 'places/place[2]/@name' Bath --remove places/old -o new.xml\n"
        "  motool xml places.xml --encode UTF-8 --indent",
        options, RunXml);
    command.add_option("FILE", options->file, "the document")->required();
    AddRepeated(command, "--get", options->get, "print the texts or attribute values at a path, a line each")
        ->type_name("PATH");
    command.add_option("--set", options->set, "set the text or the attribute at a path, adding what is missing there")
        ->type_size(2)
        ->allow_extra_args(false)
        ->type_name("PATH VALUE");
    AddRepeated(command, "--remove", options->remove, "remove what is at a path")->type_name("PATH");
    command.add_option("--encode", options->encoding, "write it in this encoding, and declare that")
        ->type_name("ENCODING");
    command.add_flag("--indent", options->indents, "lay it out for people");
    command.add_option("-o,--output", options->output, "write to this file and leave the other as it is")
        ->type_name("OUT");
}

} // namespace Motool
