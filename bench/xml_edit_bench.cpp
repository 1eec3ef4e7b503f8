// Loops that edit a document from end to end, with QzMarkup and with pugixml. Both start from the parsed document
// and finish with its text; two sizes show how the time grows with the number of siblings.
//
// pugixml's tree has pointers to go along. What it does not do: it lets an element have an attribute twice, so
// "attributes" gives it the cheaper work of appending without a look, and of going from one to the next when they are
// set again. It has no saved positions; a map from names to nodes stands for them.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include <pugixml.hpp>

#include "ratio.h"
#include "toolkit/qzmarkup.h"

namespace {

struct PugiText : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

std::string SavedText(const pugi::xml_document& doc) {
    PugiText writer;
    doc.save(writer, "", pugi::format_raw);
    return std::move(writer.text);
}

std::string Siblings(int count) {
    std::string text = "<list>\r\n";
    for (int i = 0; i < count; ++i)
        text += "<item key=\"" + std::to_string(i) + "\">text of item " + std::to_string(i) + "</item>\r\n";
    return text + "</list>\r\n";
}

std::string PositionName(int i) {
    return "position " + std::to_string(i);
}

// A loop that edits, once for each class. The main position is the first item, or the list for what is done to it.
struct Loop {
    const char* name;
    bool atList;
    bool startsEmpty; ///< the list has no items
    void (*markup)(Qzc::QzMarkup& doc, int count);
    void (*pugi)(pugi::xml_node node, int count);
};

const Loop Loops[] = {
    {"set-attribute", false, false,
     [](Qzc::QzMarkup& doc, int) {
         int i = 0;
         do
             doc.SetAttrib("id", ++i);
         while (doc.FindElem());
     },
     [](pugi::xml_node node, int) {
         for (int i = 0; node; node = node.next_sibling()) {
             pugi::xml_attribute attribute = node.attribute("id");
             (attribute ? attribute : node.append_attribute("id")).set_value(++i);
         }
     }},
    {"set-data", false, false,
     [](Qzc::QzMarkup& doc, int) {
         do
             doc.SetData("another text, <longer> than before");
         while (doc.FindElem());
     },
     [](pugi::xml_node node, int) {
         for (; node; node = node.next_sibling()) {
             node.remove_children();
             node.append_child(pugi::node_pcdata).set_value("another text, <longer> than before");
         }
     }},
    {"remove-first", false, false,
     [](Qzc::QzMarkup& doc, int) {
         do
             doc.RemoveElem();
         while (doc.FindElem());
     },
     [](pugi::xml_node node, int) {
         const pugi::xml_node list = node.parent();
         while (list.first_child())
             pugi::xml_node(list).remove_child(list.first_child());
     }},
    {"remove-last", false, false,
     [](Qzc::QzMarkup& doc, int) {
         while (doc.FindElem()) {
         }
         while (doc.RemoveElem()) {
         }
     },
     [](pugi::xml_node node, int) {
         pugi::xml_node list = node.parent();
         while (list.last_child())
             list.remove_child(list.last_child());
     }},
    {"insert-first", true, true,
     [](Qzc::QzMarkup& doc, int count) {
         for (int i = 0; i < count; ++i) {
             doc.ResetChildPos();
             doc.InsertChildElem("item", "text of an item");
         }
     },
     [](pugi::xml_node node, int count) {
         for (int i = 0; i < count; ++i)
             node.prepend_child("item").append_child(pugi::node_pcdata).set_value("text of an item");
     }},
    {"insert-between", false, false,
     [](Qzc::QzMarkup& doc, int) {
         do {
             doc.InsertElem("before", "text of an item");
             doc.FindElem();
         } while (doc.FindElem());
     },
     [](pugi::xml_node node, int) {
         for (; node; node = node.next_sibling())
             node.parent()
                 .insert_child_before("before", node)
                 .append_child(pugi::node_pcdata)
                 .set_value("text of an item");
     }},
    {"attributes", true, true,
     [](Qzc::QzMarkup& doc, int count) {
         for (int i = 0; i < count; ++i)
             doc.SetAttrib(("a" + std::to_string(i)).c_str(), i);
     },
     [](pugi::xml_node node, int count) {
         for (int i = 0; i < count; ++i)
             node.append_attribute(("a" + std::to_string(i)).c_str()).set_value(i);
     }},
    {"attributes-twice", true, true,
     [](Qzc::QzMarkup& doc, int count) {
         for (int i = 0; i < 2 * count; ++i)
             doc.SetAttrib(("a" + std::to_string(i % count)).c_str(), i);
     },
     [](pugi::xml_node node, int count) {
         for (int i = 0; i < count; ++i)
             node.append_attribute(("a" + std::to_string(i)).c_str()).set_value(i);
         for (pugi::xml_attribute attribute : node.attributes())
             attribute.set_value(count++);
     }},
    {"saved-positions", false, false,
     [](Qzc::QzMarkup& doc, int count) {
         int i = 0;
         do
             doc.SavePos(PositionName(i++).c_str());
         while (doc.FindElem());
         for (i = 0; i < count; i += 2) {
             doc.RestorePos(PositionName(i).c_str());
             doc.RemoveElem();
         }
     },
     [](pugi::xml_node node, int count) {
         std::map<std::string, pugi::xml_node> saved;
         for (int i = 0; node; node = node.next_sibling())
             saved[PositionName(i++)] = node;
         for (int i = 0; i < count; i += 2) {
             const pugi::xml_node found = saved.at(PositionName(i));
             found.parent().remove_child(found);
         }
     }},
};

void Edit(const Loop& loop, int count, Qzc::QzMarkup& doc) {
    doc.ResetPos();
    doc.FindElem();
    if (!loop.atList) {
        doc.IntoElem();
        doc.FindElem();
    }
    loop.markup(doc, count);
}

void Edit(const Loop& loop, int count, pugi::xml_document& doc) {
    const pugi::xml_node list = doc.document_element();
    loop.pugi(loop.atList ? list : list.first_child(), count);
}

/// Whether both make the same document, blanks between elements aside.
bool MakeTheSame(const Loop& loop, const std::string& start, int count) {
    Qzc::QzMarkup ours(start.c_str());
    Edit(loop, count, ours);
    pugi::xml_document reread;
    reread.load_string(ours.GetDoc().Cstr());
    pugi::xml_document theirs;
    theirs.load_string(start.c_str());
    Edit(loop, count, theirs);
    return SavedText(reread) == SavedText(theirs);
}

void Register(const Loop& loop, const std::string& start, int count) {
    const std::string group = std::string("edit-") + loop.name + '/' + std::to_string(count) + '/';
    benchmark::RegisterBenchmark((group + "QzMarkup").c_str(), [&loop, start, count](benchmark::State& state) {
        const Qzc::QzMarkup parsed(start.c_str());
        for (auto _ : state) {
            state.PauseTiming();
            Qzc::QzMarkup doc(parsed);
            state.ResumeTiming();
            Edit(loop, count, doc);
            benchmark::DoNotOptimize(doc.GetDoc().Cstr());
            state.PauseTiming();
            doc.SetDoc(nullptr);
            state.ResumeTiming();
        }
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((group + "pugixml").c_str(), [&loop, start, count](benchmark::State& state) {
        for (auto _ : state) {
            state.PauseTiming();
            pugi::xml_document doc;
            doc.load_string(start.c_str());
            state.ResumeTiming();
            Edit(loop, count, doc);
            const std::string text = SavedText(doc);
            benchmark::DoNotOptimize(text.data());
            state.PauseTiming();
            doc.reset();
            state.ResumeTiming();
        }
    })->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    for (const Loop& loop : Loops) {
        for (const int count : {20000, 80000}) {
            const std::string start = loop.startsEmpty ? "<list></list>" : Siblings(count);
            if (!MakeTheSame(loop, loop.startsEmpty ? start : Siblings(1000), 1000)) {
                std::fprintf(stderr, "%s: not the same document\n", loop.name);
                return 1;
            }
            Register(loop, start, count);
        }
    }
    return Bench::Run(argc, argv);
}
