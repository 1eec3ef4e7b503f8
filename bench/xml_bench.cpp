// QzMarkup beside the XML libraries that a C++ programmer would otherwise take, on documents that others
// wrote.
//
// Every contender gets the same bytes in memory and keeps its document until it is done. All of them copy the
// text: QzMarkup, pugixml, tinyxml2 and libxml2 do so themselves, and for rapidxml, which parses in place,
// the copy is part of the work. What they do not do alike:
//   - QzMarkup finds the elements and resolves nothing until it is read. "pugixml-minimal" and
//     "rapidxml-fastest" are those libraries with the flags that do as little: no references resolved, no
//     comments; rapidxml-fastest has no text nodes either.
//   - rapidxml and QzMarkup do not compare attribute names for doubles, expat and libxml2 do, and check every
//     byte of the text besides.
//   - expat builds no tree: it calls empty functions.
//   - tinyxml2 resolves references when a value is first read, so that only the first walk pays for them.
// "read" is parse and walk together and charges each of them for all that it does.

#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <thread>
#include <type_traits>

#include <expat.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <malloc.h>
#include <pugixml.hpp>
#include <rapidxml/rapidxml.hpp>
#include <rapidxml/rapidxml_print.hpp>
#include <tinyxml2.h>

#include "ratio.h"
#include "toolkit/qzmarkup.h"

namespace {

using Text = std::string_view;

/// What a walk reads: it counts, and adds up every byte, so that nothing read is left unused. Blanks are not
/// added, because half of the contenders drop the text between tags that is nothing else.
struct Tally {
    std::uint64_t elements = 0;
    std::uint64_t attributes = 0;
    std::uint64_t names = 0;
    std::uint64_t values = 0; ///< names and values of the attributes
    std::uint64_t texts = 0;

    static std::uint64_t Sum(Text text) {
        std::uint64_t sum = 0;
        for (const char c : text)
            sum += static_cast<unsigned char>(c) > ' ' ? static_cast<unsigned char>(c) : 0U;
        return sum;
    }
    void Element(Text name) {
        ++elements;
        names += Sum(name);
    }
    void Attribute(Text name, Text value) {
        ++attributes;
        values += Sum(name) + 3 * Sum(value);
    }
    void Data(Text text) { texts += Sum(text); }
};

Text View(const xmlChar* text) {
    return text != nullptr ? reinterpret_cast<const char*>(text) : Text();
}

/// One child element of the document that "build" makes.
struct Item {
    std::string attribute;
    std::string text;
};
using Items = std::vector<Item>;
using TextSink = std::function<void(Text)>; ///< none: the tree is enough

// ---- The contenders: Parse a text, Walk what was parsed, Build a document

struct Markup {
    static constexpr const char* Name = "QzMarkup";
    Qzc::QzMarkup doc;

    bool Parse(const std::string& text) { return doc.SetDoc(text.c_str()) != 0; }

    void Walk(Tally& tally) { WalkElement(doc.TopElement(), tally); }
    static void WalkElement(Qzc::QzMarkup::Element element, Tally& tally) {
        tally.Element(element.GetTagNameView());
        for (const auto& attribute : element.Attributes()) {
            const Text name = attribute.GetNameView();
            tally.Attribute(name, attribute.GetValueView());
        }
        tally.Data(element.GetDataView());
        for (const auto child : element.Children())
            WalkElement(child, tally);
    }

    static void Build(const Items& items, const TextSink& sink) {
        Qzc::QzMarkup built;
        built.AddElem("items");
        for (const Item& item : items) {
            built.AddChildElem("item", item.text.c_str());
            built.SetChildAttrib("name", item.attribute.c_str());
        }
        if (sink)
            sink(built.GetDoc().View());
    }
};

/// With a text of its own for each name and value that is read.
struct MarkupCopies : Markup {
    static constexpr const char* Name = "QzMarkup-copies";

    void Walk(Tally& tally) {
        doc.ResetPos();
        WalkSiblings(tally);
    }
    void WalkSiblings(Tally& tally) {
        while (doc.FindElem()) {
            tally.Element(doc.GetTagName().View());
            const int count = doc.GetAttribCount();
            for (int i = 0; i < count; ++i) {
                const KELD::KeldMBString name = doc.GetAttribName(i);
                tally.Attribute(name.View(), doc.GetAttribValue(i).View());
            }
            tally.Data(doc.GetData().View());
            if (doc.HasChild()) {
                doc.IntoElem();
                WalkSiblings(tally);
                doc.OutOfElem();
            }
        }
    }
};

template <unsigned Flags>
struct Pugi {
    static constexpr const char* Name = Flags == pugi::parse_minimal ? "pugixml-minimal" : "pugixml";
    pugi::xml_document doc;

    bool Parse(const std::string& text) {
        return static_cast<bool>(doc.load_buffer(text.data(), text.size(), Flags, pugi::encoding_utf8));
    }

    void Walk(Tally& tally) { WalkElement(doc.document_element(), tally); }
    static void WalkElement(pugi::xml_node element, Tally& tally) {
        tally.Element(element.name());
        for (const pugi::xml_attribute attribute : element.attributes())
            tally.Attribute(attribute.name(), attribute.value());
        for (const pugi::xml_node child : element) {
            if (child.type() == pugi::node_element)
                WalkElement(child, tally);
            else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
                tally.Data(child.value());
        }
    }

    static void Build(const Items& items, const TextSink& sink) {
        pugi::xml_document built;
        pugi::xml_node root = built.append_child("items");
        for (const Item& item : items) {
            pugi::xml_node child = root.append_child("item");
            child.append_attribute("name").set_value(item.attribute.c_str());
            child.append_child(pugi::node_pcdata).set_value(item.text.c_str());
        }
        if (!sink)
            return;
        struct Writer : pugi::xml_writer {
            std::string text;
            void write(const void* data, std::size_t size) override {
                text.append(static_cast<const char*>(data), size);
            }
        } writer;
        built.save(writer, "", pugi::format_raw);
        sink(writer.text);
    }
};

struct PugiCopies : Pugi<pugi::parse_default> {
    static constexpr const char* Name = "pugixml-copies";

    void Walk(Tally& tally) { WalkElement(doc.document_element(), tally); }
    static void WalkElement(pugi::xml_node element, Tally& tally) {
        tally.Element(std::string(element.name()));
        for (const pugi::xml_attribute attribute : element.attributes()) {
            const std::string name = attribute.name();
            tally.Attribute(name, std::string(attribute.value()));
        }
        for (const pugi::xml_node child : element) {
            if (child.type() == pugi::node_element)
                WalkElement(child, tally);
            else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
                tally.Data(std::string(child.value()));
        }
    }
};

template <int Flags>
struct Rapid {
    static constexpr const char* Name = Flags == rapidxml::parse_fastest ? "rapidxml-fastest" : "rapidxml";
    using Node = rapidxml::xml_node<>;
    // It holds its first 64 KiB of nodes in itself; on the heap they count like anybody else's.
    std::unique_ptr<rapidxml::xml_document<>> doc = std::make_unique<rapidxml::xml_document<>>();
    std::string copy;

    bool Parse(const std::string& text) {
        copy = text;
        try {
            doc->parse<Flags>(copy.data());
        } catch (const rapidxml::parse_error&) {
            return false;
        }
        return true;
    }

    void Walk(Tally& tally) { WalkElement(*doc->first_node(), tally); }
    static void WalkElement(const Node& element, Tally& tally) {
        tally.Element(Text(element.name(), element.name_size()));
        for (const auto* a = element.first_attribute(); a != nullptr; a = a->next_attribute())
            tally.Attribute(Text(a->name(), a->name_size()), Text(a->value(), a->value_size()));
        for (const Node* child = element.first_node(); child != nullptr; child = child->next_sibling()) {
            if (child->type() == rapidxml::node_element)
                WalkElement(*child, tally);
            else if (child->type() == rapidxml::node_data || child->type() == rapidxml::node_cdata)
                tally.Data(Text(child->value(), child->value_size()));
        }
    }

    // Its nodes only point at text. Values are copied into the document, as they must be where the caller's
    // do not outlive it.
    static void Build(const Items& items, const TextSink& sink) {
        const auto built = std::make_unique<rapidxml::xml_document<>>();
        Node* const root = built->allocate_node(rapidxml::node_element, "items");
        built->append_node(root);
        const auto copied = [&](const std::string& text) {
            return built->allocate_string(text.c_str(), text.size() + 1);
        };
        for (const Item& item : items) {
            Node* const child = built->allocate_node(rapidxml::node_element, "item");
            child->append_attribute(built->allocate_attribute("name", copied(item.attribute)));
            child->append_node(built->allocate_node(rapidxml::node_data, nullptr, copied(item.text)));
            root->append_node(child);
        }
        if (!sink)
            return;
        std::string text;
        rapidxml::print(std::back_inserter(text), *built, rapidxml::print_no_indenting);
        sink(text);
    }
};

struct Tiny {
    static constexpr const char* Name = "tinyxml2";
    tinyxml2::XMLDocument doc;

    bool Parse(const std::string& text) { return doc.Parse(text.data(), text.size()) == tinyxml2::XML_SUCCESS; }

    void Walk(Tally& tally) {
        if (doc.RootElement() != nullptr)
            WalkElement(*doc.RootElement(), tally);
    }
    static void WalkElement(const tinyxml2::XMLElement& element, Tally& tally) {
        tally.Element(element.Name());
        for (const auto* a = element.FirstAttribute(); a != nullptr; a = a->Next())
            tally.Attribute(a->Name(), a->Value());
        for (const auto* child = element.FirstChild(); child != nullptr; child = child->NextSibling()) {
            if (const auto* childElement = child->ToElement())
                WalkElement(*childElement, tally);
            else if (child->ToText() != nullptr)
                tally.Data(child->Value());
        }
    }

    static void Build(const Items& items, const TextSink& sink) {
        tinyxml2::XMLDocument built;
        tinyxml2::XMLElement* const root = built.NewElement("items");
        built.InsertEndChild(root);
        for (const Item& item : items) {
            tinyxml2::XMLElement* const child = root->InsertNewChildElement("item");
            child->SetAttribute("name", item.attribute.c_str());
            child->SetText(item.text.c_str());
        }
        if (!sink)
            return;
        tinyxml2::XMLPrinter printer(nullptr, true);
        built.Print(&printer);
        sink(printer.CStr());
    }
};

struct Xml2 {
    static constexpr const char* Name = "libxml2";
    struct Free {
        void operator()(xmlDocPtr freed) const { xmlFreeDoc(freed); }
    };
    using Document = std::unique_ptr<xmlDoc, Free>;
    Document doc;

    // It may keep short texts inside the nodes.
    bool Parse(const std::string& text) {
        constexpr int Options = XML_PARSE_COMPACT | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
        doc.reset(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, Options));
        return doc != nullptr;
    }

    // Names come apart into prefix and rest, and namespace declarations are not among the attributes.
    void Walk(Tally& tally) { WalkElement(*xmlDocGetRootElement(doc.get()), tally); }
    static void WalkElement(const xmlNode& element, Tally& tally) {
        tally.Element(View(element.name));
        tally.names += PrefixSum(element.ns);
        for (const xmlNs* ns = element.nsDef; ns != nullptr; ns = ns->next) {
            tally.Attribute("xmlns", View(ns->href));
            if (ns->prefix != nullptr)
                tally.values += Tally::Sum(View(ns->prefix)) + ':';
        }
        for (const xmlAttr* a = element.properties; a != nullptr; a = a->next) {
            tally.Attribute(View(a->name), a->children != nullptr ? View(a->children->content) : Text());
            tally.values += PrefixSum(a->ns);
        }
        for (const xmlNode* child = element.children; child != nullptr; child = child->next) {
            if (child->type == XML_ELEMENT_NODE)
                WalkElement(*child, tally);
            else if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE)
                tally.Data(View(child->content));
        }
    }
    static std::uint64_t PrefixSum(const xmlNs* ns) {
        return ns != nullptr && ns->prefix != nullptr ? Tally::Sum(View(ns->prefix)) + ':' : 0;
    }

    static void Build(const Items& items, const TextSink& sink) {
        const auto bytes = [](const char* text) { return reinterpret_cast<const xmlChar*>(text); };
        const Document built(xmlNewDoc(bytes("1.0")));
        const xmlNodePtr root = xmlNewDocNode(built.get(), nullptr, bytes("items"), nullptr);
        xmlDocSetRootElement(built.get(), root);
        for (const Item& item : items) {
            const xmlNodePtr child = xmlNewTextChild(root, nullptr, bytes("item"), bytes(item.text.c_str()));
            xmlNewProp(child, bytes("name"), bytes(item.attribute.c_str()));
        }
        if (!sink)
            return;
        xmlChar* text = nullptr;
        int length = 0;
        xmlDocDumpMemory(built.get(), &text, &length);
        sink(Text(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)));
        xmlFree(text);
    }
};

struct Expat {
    static constexpr const char* Name = "expat";

    static bool Parse(const std::string& text) {
        return Run(
            text, nullptr, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*, int) {});
    }

    static bool Read(const std::string& text, Tally& tally) {
        return Run(
            text, &tally,
            [](void* parser, const XML_Char* name, const XML_Char** attributes) {
                TallyOf(parser).Element(name);
                // Behind the specified ones are the defaults of the document type.
                const int specified = XML_GetSpecifiedAttributeCount(static_cast<XML_Parser>(parser));
                for (int i = 0; i < specified; i += 2)
                    TallyOf(parser).Attribute(attributes[i], attributes[i + 1]);
            },
            [](void* parser, const XML_Char* data, int length) {
                TallyOf(parser).Data(Text(data, static_cast<std::size_t>(length)));
            });
    }

    static Tally& TallyOf(void* parser) {
        return *static_cast<Tally*>(XML_GetUserData(static_cast<XML_Parser>(parser)));
    }

    static bool Run(const std::string& text, Tally* tally, XML_StartElementHandler start,
                    XML_CharacterDataHandler data) {
        const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                                  &XML_ParserFree);
        XML_SetUserData(parser.get(), tally);
        XML_UseParserAsHandlerArg(parser.get());
        XML_SetElementHandler(parser.get(), start, [](void*, const XML_Char*) {});
        XML_SetCharacterDataHandler(parser.get(), data);
        return XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
    }
};

// ---- The works

struct Input {
    std::string name;
    std::string text;
    Tally tally; ///< QzMarkup's
};

std::string BenchmarkName(const char* work, const std::string& input, const char* contender) {
    return std::string(work) + '/' + input + '/' + contender;
}

template <class Work>
void Register(const std::string& name, Work work) {
    benchmark::RegisterBenchmark(name.c_str(), work)->Unit(benchmark::kMicrosecond);
}

/// Text parsed per second.
void CountBytes(benchmark::State& state, const Input& input) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(input.text.size()));
}

template <class Contender>
void RegisterParse(const Input& input) {
    Register(BenchmarkName("parse", input.name, Contender::Name), [&input](benchmark::State& state) {
        for (auto _ : state) {
            Contender contender;
            if (!contender.Parse(input.text))
                state.SkipWithError("cannot parse");
        }
        CountBytes(state, input);
    });
}

template <class Contender>
void RegisterWalk(const Input& input) {
    Register(BenchmarkName("walk", input.name, Contender::Name), [&input](benchmark::State& state) {
        Contender contender;
        contender.Parse(input.text);
        for (auto _ : state) {
            Tally tally;
            contender.Walk(tally);
            benchmark::DoNotOptimize(tally);
        }
    });
}

template <class Contender>
bool Read(const std::string& text, Tally& tally) {
    Contender contender;
    if (!contender.Parse(text))
        return false;
    contender.Walk(tally);
    return true;
}

void RegisterRead(const Input& input, const char* contender, bool (*read)(const std::string&, Tally&)) {
    Register(BenchmarkName("read", input.name, contender), [&input, read](benchmark::State& state) {
        for (auto _ : state) {
            Tally tally;
            if (!read(input.text, tally))
                state.SkipWithError("cannot read");
            benchmark::DoNotOptimize(tally);
        }
        CountBytes(state, input);
    });
}

template <class Contender>
void RegisterBuild(const Items& items) {
    static const TextSink sinks[] = {[](Text text) { benchmark::DoNotOptimize(text.data()); }, nullptr};
    for (const TextSink& sink : sinks) {
        const char* const work = sink ? "build-text" : "build-tree";
        Register(BenchmarkName(work, std::to_string(items.size()) + "-elements", Contender::Name),
                 [&items, &sink](benchmark::State& state) {
                     for (auto _ : state)
                         Contender::Build(items, sink);
                 });
    }
}

/// The heap that one parsed document takes, in bytes. A thread of its own starts without blocks that earlier
/// ones freed and the allocator still counts.
template <class Contender>
double HeapBytes(const std::string& text) {
    const auto used = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    double bytes = 0;
    std::thread([&] {
        std::make_unique<Tally>(); // the thread's first block brings the allocator's own
        xmlResetLastError();       // and this libxml2's variables of the thread
        const double before = used();
        Contender contender;
        contender.Parse(text);
        bytes = used() - before;
    }).join();
    return bytes;
}

// ---- Before anything is timed, all must have read the same

/// What a tree contender makes of an input: it is left out where it cannot read it, and an error where it
/// reads something else. libxml2 adds the attributes that the document type gives as defaults.
enum class Verdict { Same, CannotRead, Differs };

Verdict Compare(const Input& input, const char* contender, bool (*read)(const std::string&, Tally&),
                bool addsDefaults) {
    Tally tally;
    if (!read(input.text, tally) || tally.elements == 0) {
        std::printf("%s cannot read %s: left out\n", contender, input.name.c_str());
        return Verdict::CannotRead;
    }
    const bool sameAttributes = tally.attributes == input.tally.attributes && tally.values == input.tally.values;
    const bool moreAttributes = tally.attributes >= input.tally.attributes;
    if (tally.elements == input.tally.elements && tally.names == input.tally.names &&
        tally.texts == input.tally.texts && (sameAttributes || (addsDefaults && moreAttributes)))
        return Verdict::Same;
    std::fprintf(stderr, "%s reads something else from %s than QzMarkup\n", contender, input.name.c_str());
    return Verdict::Differs;
}

using HeapFigures = std::vector<Bench::Figure>;

template <class Contender>
bool AddTree(const Input& input, HeapFigures& heap) {
    const Verdict verdict = Compare(input, Contender::Name, &Read<Contender>, std::is_same_v<Contender, Xml2>);
    if (verdict == Verdict::Same) {
        RegisterParse<Contender>(input);
        RegisterWalk<Contender>(input);
        RegisterRead(input, Contender::Name, &Read<Contender>);
        heap.push_back({Contender::Name, HeapBytes<Contender>(input.text) / static_cast<double>(input.tally.elements)});
    }
    return verdict != Verdict::Differs;
}

/// Readers that copy, in a group of their own.
template <class Contender>
bool AddCopying(const Input& input) {
    if (Compare(input, Contender::Name, &Read<Contender>, false) != Verdict::Same)
        return false;
    Register(BenchmarkName("read-copies", input.name, Contender::Name), [&input](benchmark::State& state) {
        for (auto _ : state) {
            Tally tally;
            Read<Contender>(input.text, tally);
            benchmark::DoNotOptimize(tally);
        }
        CountBytes(state, input);
    });
    return true;
}

/// Whether all that read the input read the same.
bool AddInput(Input& input, HeapFigures& heap) {
    if (!Read<Markup>(input.text, input.tally)) {
        std::fprintf(stderr, "QzMarkup cannot read %s\n", input.name.c_str());
        return false;
    }
    bool same = AddTree<Markup>(input, heap) && AddTree<Pugi<pugi::parse_default>>(input, heap) &&
                AddTree<Rapid<0>>(input, heap) && AddTree<Tiny>(input, heap) && AddTree<Xml2>(input, heap);
    // The first two leave references as they stand, so what they read cannot be compared; expat has no tree.
    RegisterParse<Pugi<pugi::parse_minimal>>(input);
    RegisterParse<Rapid<rapidxml::parse_fastest>>(input);
    RegisterParse<Expat>(input);
    same = same && Compare(input, Expat::Name, &Expat::Read, false) == Verdict::Same;
    RegisterRead(input, Expat::Name, &Expat::Read);
    return same && AddCopying<MarkupCopies>(input) && AddCopying<PugiCopies>(input);
}

Items MakeItems(int count) {
    Items items;
    for (int i = 0; i < count; ++i)
        items.push_back({"n" + std::to_string(i), "The text of <item> " + std::to_string(i)});
    return items;
}

template <class Contender>
bool AddBuild(const Items& items) {
    Tally expected;
    expected.elements = items.size() + 1;
    expected.attributes = items.size();
    expected.names = Tally::Sum("items") + items.size() * Tally::Sum("item");
    for (const Item& item : items) {
        expected.values += Tally::Sum("name") + 3 * Tally::Sum(item.attribute);
        expected.texts += Tally::Sum(item.text);
    }
    Tally tally;
    Contender::Build(items, [&](Text text) { Read<Markup>(std::string(text), tally); });
    if (tally.elements != expected.elements || tally.attributes != expected.attributes ||
        tally.names != expected.names || tally.values != expected.values || tally.texts != expected.texts) {
        std::fprintf(stderr, "%s builds something else\n", Contender::Name);
        return false;
    }
    RegisterBuild<Contender>(items);
    return true;
}

/// The inputs that are there and not empty: small, large with most in attributes, large with most in texts.
std::vector<Input> LoadInputs() {
    std::vector<Input> inputs;
    for (const std::string path : {"/usr/share/xml/iso-codes/iso_4217.xml", "/usr/share/xml/iso-codes/iso_639-3.xml",
                                   "/usr/share/mime/packages/freedesktop.org.xml"}) {
        std::ifstream file(path, std::ios::binary);
        Input input;
        input.name = path.substr(path.rfind('/') + 1);
        input.text.assign(std::istreambuf_iterator<char>(file), {});
        if (input.text.empty())
            std::printf("%s is missing or empty: left out (packages iso-codes, shared-mime-info)\n", path.c_str());
        else
            inputs.push_back(std::move(input));
    }
    return inputs;
}

} // namespace

int main(int argc, char** argv) {
    xmlInitParser();
    std::vector<Input> inputs = LoadInputs();
    if (inputs.empty()) {
        std::fprintf(stderr, "no document to measure with\n");
        return 1;
    }
    bool same = true;
    std::vector<HeapFigures> heap(inputs.size());
    for (std::size_t i = 0; i < inputs.size(); ++i)
        same = AddInput(inputs[i], heap[i]) && same;
    const Items items = MakeItems(100000);
    same = AddBuild<Markup>(items) && AddBuild<Pugi<pugi::parse_default>>(items) && AddBuild<Rapid<0>>(items) &&
           AddBuild<Tiny>(items) && AddBuild<Xml2>(items) && same;
    if (!same)
        return 1;

    const int result = Bench::Run(argc, argv);
    std::printf("\nHeap per element of a parsed document, its text included\n");
    for (std::size_t i = 0; i < inputs.size(); ++i)
        Bench::PrintRatios("memory/" + inputs[i].name, "bytes", heap[i]);
    xmlCleanupParser();
    return result;
}
