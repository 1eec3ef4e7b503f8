// QzMarkup beside a tree that does the same: pugixml, which another wrote, with the few rules for line ends that
// QzMarkup has for what it writes.

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>

#include <pugixml.hpp>

#include "support.h"
#include "xml/markup_records.h"

using namespace Qzc;

namespace {

using Node = pugi::xml_node;
constexpr unsigned ParseAll =
    pugi::parse_ws_pcdata | pugi::parse_cdata | pugi::parse_comments | pugi::parse_pi | pugi::parse_escapes;

bool IsText(Node node) {
    return node.type() == pugi::node_pcdata;
}

/// The length of blanks and a line end that a text starts with; 0 when something else comes first.
std::size_t LineEndLength(const std::string& text) {
    std::size_t at = std::min(text.find_first_not_of(" \t"), text.size());
    at += text.compare(at, 2, "\r\n") == 0 ? 1 : 0;
    return text.compare(at, 1, "\n") == 0 ? at + 1 : 0;
}

std::string Data(Node element) {
    std::string data;
    for (const Node child : element)
        data += IsText(child) || child.type() == pugi::node_cdata ? child.value() : "";
    return data;
}

std::string Written(const pugi::xml_document& document) {
    struct Writer : pugi::xml_writer { // a stream of another C++ library is none to the peer
        void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
        std::string text;
    } writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration | pugi::format_no_empty_element_tags);
    return writer.text;
}

std::string ContentOf(Node element) {
    std::string content = "<" + std::string(element.name()) + ">" + Data(element);
    for (const pugi::xml_attribute attribute : element.attributes())
        content += std::string(" ") + attribute.name() + "=" + attribute.value();
    for (const Node child : element)
        content += child.type() == pugi::node_element ? ContentOf(child) : "";
    return content + "/";
}

class Mirror {
public:
    struct Position {
        Node parent, main, child;
    };
    Position at;

    explicit Mirror(const char* text) {
        m_doc.load_string(text, ParseAll);
        Opened(m_doc);
        at = {m_doc, Node(), Node()};
    }
    const pugi::xml_document& Doc() const { return m_doc; }

    static Node Next(Node parent, Node node, const std::string& name) {
        node = node ? node.next_sibling() : parent.first_child();
        while (node && (node.type() != pugi::node_element || (!name.empty() && name != node.name())))
            node = node.next_sibling();
        return node;
    }

    bool Add(const std::string& fragment, bool insert, bool ofChild) {
        Node parent = ofChild ? at.main : at.parent;
        Node& position = ofChild ? at.child : at.main;
        if (!parent || parent.type() == pugi::node_document)
            return false;
        pugi::xml_document made;
        made.load_string((fragment + (fragment.back() == '\n' ? "" : "\r\n")).c_str(), ParseAll | pugi::parse_fragment);
        Node before; // what the new nodes stand behind; none: in front
        if (m_opened.insert(parent.hash_value()).second) {
            before = parent.append_child(pugi::node_pcdata);
            before.set_value("\r\n");
        } else if (insert && position) {
            before = position.previous_sibling();
        } else if (insert || position) {
            before = BehindLineEnd(parent, position);
        } else {
            before = parent.last_child();
        }
        for (const Node node : made) {
            before = before ? parent.insert_copy_after(node, before) : parent.prepend_copy(node);
            if (before.type() == pugi::node_element)
                position = before;
            Opened(before);
        }
        if (!ofChild)
            at.child = Node();
        return true;
    }

    bool SetAttribute(Node node, const char* name, const char* value) {
        if (!node)
            return false;
        pugi::xml_attribute attribute = node.attribute(name);
        (attribute ? attribute : node.append_attribute(name)).set_value(value);
        return true;
    }

    bool SetContent(Node node, const char* text, pugi::xml_node_type type) {
        if (!node)
            return false;
        for (const Node child : node)
            Forget(child);
        node.remove_children();
        m_opened.insert(node.hash_value());
        if (type == pugi::node_element) {
            node.append_buffer(text, std::string(text).size(), ParseAll | pugi::parse_fragment);
            Opened(node);
        } else if (*text != '\0' || type == pugi::node_cdata) {
            node.append_child(type).set_value(text);
        }
        if (node == at.main)
            at.child = Node();
        return true;
    }

    bool Remove(bool ofChild) {
        Node& position = ofChild ? at.child : at.main;
        if (!position || position.parent() == m_doc)
            return false;
        Node parent = position.parent();
        Node before = Joined(position.previous_sibling());
        Node behind = Joined(position.next_sibling());
        const std::string left = before && IsText(before) ? before.value() : "";
        const std::string right = behind && IsText(behind) ? behind.value() : "";
        const std::size_t kept = left.find_last_not_of(" \t") + 1;
        const std::size_t lineEnd = LineEndLength(right);
        if (kept != 0 && left[kept - 1] == '\n' && lineEnd != 0) {
            before.set_value(left.substr(0, kept).c_str());
            behind.set_value(right.substr(lineEnd).c_str());
        }
        Node previous = position.previous_sibling();
        while (previous && previous.type() != pugi::node_element)
            previous = previous.previous_sibling();
        Forget(position);
        parent.remove_child(position);
        position = previous;
        if (!ofChild)
            at.child = Node();
        return true;
    }

    void Save(const std::string& name) { m_saved[name] = at; }
    bool Restore(const std::string& name) {
        const auto found = m_saved.find(name);
        if (found != m_saved.end())
            at = found->second;
        return found != m_saved.end();
    }

private:
    // One node for the text that `node` is in the middle of.
    static Node Joined(Node node) {
        if (!node || !IsText(node))
            return node;
        while (IsText(node.previous_sibling()))
            node = node.previous_sibling();
        while (IsText(node.next_sibling())) {
            node.set_value((std::string(node.value()) + node.next_sibling().value()).c_str());
            node.parent().remove_child(node.next_sibling());
        }
        return node;
    }

    // Where something new goes that follows `node`, or leads `parent`: not on a line that ends there.
    static Node BehindLineEnd(Node parent, Node node) {
        Node text = Joined(node ? node.next_sibling() : parent.first_child());
        const std::string all = text && IsText(text) ? text.value() : "";
        const std::size_t length = LineEndLength(all);
        if (length == 0)
            return node;
        text.set_value(all.substr(0, length).c_str());
        parent.insert_child_after(pugi::node_pcdata, text).set_value(all.substr(length).c_str());
        return text;
    }

    // Elements that are not written <so/>: all that ever had something in them.
    void Opened(Node node) {
        m_opened.erase(node.hash_value()); // which may have been another's
        if (node.first_child())
            m_opened.insert(node.hash_value());
        for (const Node child : node)
            Opened(child);
    }

    void Forget(Node node) {
        for (auto saved = m_saved.begin(); saved != m_saved.end();) {
            const Position& position = saved->second;
            const bool gone = position.parent == node || position.main == node || position.child == node;
            saved = gone ? m_saved.erase(saved) : std::next(saved);
        }
        for (const Node child : node)
            Forget(child);
    }

    pugi::xml_document m_doc;
    std::set<std::size_t> m_opened;
    std::map<std::string, Position> m_saved;
};

std::string Escaped(std::string text) {
    const std::pair<char, const char*> entities[] = {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}};
    for (const auto& [c, entity] : entities) {
        for (std::size_t at = 0; (at = text.find(c, at)) != std::string::npos; ++at)
            text.replace(at, 1, entity);
    }
    return text;
}

/// What differs between an element and its image, read in every way there is; empty when nothing does.
std::string Difference(const QzMarkup& markup, bool ofChild, Node image) {
    const std::string_view tag = ofChild ? markup.GetChildTagNameView() : markup.GetTagNameView();
    if (tag != image.name() || (ofChild ? markup.GetChildTagName() : markup.GetTagName()) != image.name())
        return "tag " + std::string(tag);
    const std::string data = Data(image);
    if ((ofChild ? markup.GetChildDataView() : markup.GetDataView()) != data ||
        (ofChild ? markup.GetChildData() : markup.GetData()) != data.c_str())
        return "data of " + std::string(tag);
    int n = 0;
    auto inRange = (ofChild ? markup.ChildAttributes() : markup.Attributes()).begin();
    for (const pugi::xml_attribute attribute : image.attributes()) {
        const bool same =
            (ofChild ? markup.GetChildAttribValueView(n) : markup.GetAttribValueView(n)) == attribute.value() &&
            (ofChild ? markup.GetChildAttribNameView(n) : markup.GetAttribNameView(n)) == attribute.name() &&
            (ofChild ? markup.GetChildAttribValue(n) : markup.GetAttribValue(n)) == attribute.value() &&
            (ofChild ? markup.GetChildAttribName(n) : markup.GetAttribName(n)) == attribute.name() &&
            (ofChild ? markup.GetChildAttrib(attribute.name()) : markup.GetAttrib(attribute.name())) ==
                attribute.value() &&
            inRange->GetNameView() == attribute.name() && inRange->GetValueView() == attribute.value();
        if (!same)
            return "attribute " + std::string(attribute.name());
        ++n;
        ++inRange;
    }
    if ((ofChild ? markup.GetChildAttribCount() : markup.GetAttribCount()) != n ||
        inRange != QzMarkup::AttributeRange::Iterator())
        return "number of attributes";
    const bool hasChild = !ofChild && Mirror::Next(image, Node(), "");
    return ofChild || hasChild == (markup.HasChild() != 0) ? "" : "whether there is a child";
}

// By whether it is the child, and whether it is inserted.
constexpr unsigned char (QzMarkup::*Adds[2][2])(const char*, const char*) = {
    {&QzMarkup::AddElem, &QzMarkup::InsertElem}, {&QzMarkup::AddChildElem, &QzMarkup::InsertChildElem}};
constexpr unsigned char (QzMarkup::*AddSubDocs[2][2])(const char*) = {
    {&QzMarkup::AddSubDoc, &QzMarkup::InsertSubDoc}, {&QzMarkup::AddChildSubDoc, &QzMarkup::InsertChildSubDoc}};

TEST(MarkupMirror, EditsAsATreeDoes) {
    static const char* const Names[] = {"a", "b", "item", "x:y", "n-1.", "\xC3\xA9", "of-seventeen-byte"};
    static const char* const Texts[] = {
        "",   "t",     "two\r\nlines", "<&>'\"",          "&amp;&#65;",
        "]]", "x]]>y", " \t",          "of fifteen byte", "of more, and with <&>'\" in it: fifty bytes and some"};
    static const char* const Fragments[] = {"<a/>",
                                            "<b x='1'>t</b>",
                                            "<!--c--><a/>t<b><a/>\r\n  <b/></b>\n",
                                            "<item>\n  <a k=\"&lt;\"/>\n</item>",
                                            "\r\n <b/> \n t",
                                            "<![CDATA[<]]><a/>"};
    constexpr const char* Start = "<top>\n  <item k='1'>one</item>\n  <item/>\r\n<a><b/>t</a>\n</top>";
    constexpr int Steps = 300000;
    constexpr int Large = 200; // elements; then more is removed than added
    CurrentCharset current(KELDCharset::UTF8);
    std::mt19937 random(20);
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    CheckedMarkup markup(Start);
    Mirror mirror(Start);
    int elements = 5;
    for (int step = 0; step < Steps; ++step) {
        const bool ofChild = below(2) != 0;
        const bool insert = below(2) != 0;
        const char* const name = Names[below(std::size(Names))];
        const char* const text = Texts[below(std::size(Texts))];
        const char* const fragment = Fragments[below(std::size(Fragments))];
        const char* const wanted = below(4) == 0 ? name : "";
        const char* const place = below(2) != 0 ? "p" : "q";
        Mirror::Position& at = mirror.at;
        const Node edited = ofChild ? at.child : at.main;
        bool done = false;
        bool expected = false;
        switch (below(elements > Large ? 24 : 20)) {
        case 0:
        case 1: {
            const std::string data = Escaped(text);
            const std::string made = data.empty() ? "<" + std::string(name) + "/>"
                                                  : "<" + std::string(name) + ">" + data + "</" + name + ">";
            expected = mirror.Add(made, insert, ofChild);
            done = (markup.*Adds[ofChild][insert])(name, text);
            break;
        }
        case 2:
            expected = mirror.Add(fragment, insert, ofChild);
            done = (markup.*AddSubDocs[ofChild][insert])(fragment);
            break;
        case 3:
        case 4:
            expected = mirror.SetAttribute(edited, name, text);
            done = ofChild ? markup.SetChildAttrib(name, text) : markup.SetAttrib(name, text);
            break;
        case 5:
            if (edited && Mirror::Next(edited, Node(), "") && below(8) != 0)
                break; // what it removes grows back slowly
            expected = mirror.SetContent(
                edited, text,
                insert && std::string(text).find("]]>") == std::string::npos ? pugi::node_cdata : pugi::node_pcdata);
            done = ofChild ? markup.SetChildData(text, insert) : markup.SetData(text, insert);
            break;
        case 6:
            if (at.main && at.main.parent() == mirror.Doc())
                break;
            expected = mirror.SetContent(at.main, fragment, pugi::node_element);
            done = markup.SetRealData(fragment);
            break;
        case 7:
            mirror.Save(place);
            expected = true;
            done = markup.SavePos(place);
            break;
        case 8:
            expected = mirror.Restore(place);
            done = markup.RestorePos(place);
            break;
        case 9:
            at = {mirror.Doc(), Node(), Node()};
            expected = done = markup.ResetPos();
            break;
        case 10:
            at.main = at.child = Node();
            expected = done = markup.ResetMainPos();
            break;
        case 11:
            at.child = Node();
            expected = done = markup.ResetChildPos();
            break;
        case 12:
            expected = at.parent != mirror.Doc();
            if (expected)
                at = {at.parent.parent(), at.parent, at.main};
            done = markup.OutOfElem();
            break;
        case 13:
        case 14:
            expected = !at.main.empty();
            if (expected)
                at = {at.main, at.child, Node()};
            done = markup.IntoElem();
            break;
        case 15: {
            const Node found = at.main ? Mirror::Next(at.main, at.child, wanted) : Node();
            expected = !found.empty();
            if (expected)
                at.child = found;
            done = markup.FindChildElem(wanted);
            break;
        }
        case 16:
            if (below(64) == 0) {
                CheckedMarkup copy(markup);
                copy.SetDoc("<other/>");
                copy = markup;
                markup = std::move(copy);
            }
            break;
        case 17:
        case 18: {
            const Node found = Mirror::Next(at.parent, at.main, wanted);
            expected = !found.empty();
            if (expected)
                at = {at.parent, found, Node()};
            done = markup.FindElem(wanted);
            break;
        }
        default:
            if (!edited || edited.parent() == mirror.Doc())
                break;
            expected = mirror.Remove(ofChild);
            done = ofChild ? markup.RemoveChildElem() : markup.RemoveElem();
            break;
        }
        ASSERT_EQ(done, expected) << "step " << step << "\n" << markup.GetDoc().Cstr();
        ASSERT_EQ(Difference(markup, false, mirror.at.main), "") << "step " << step << "\n" << markup.GetDoc().Cstr();
        ASSERT_EQ(Difference(markup, true, mirror.at.child), "") << "step " << step << "\n" << markup.GetDoc().Cstr();
        if (step % 128 != 0)
            continue;
        pugi::xml_document read;
        ASSERT_TRUE(read.load_string(markup.GetDoc().Cstr(), ParseAll));
        ASSERT_EQ(Written(read), Written(mirror.Doc())) << "step " << step;
        ASSERT_EQ(Content(markup.TopElement()), ContentOf(mirror.Doc().document_element())) << "step " << step;
        ASSERT_TRUE(markup.RecordsMatchText()) << "step " << step;
        ASSERT_TRUE(markup.PositionMatchesText(false) && markup.PositionMatchesText(true)) << "step " << step;
        elements = static_cast<int>(markup.Rows().size());
    }
}

// Tags, values and references lie in every way across the blocks that tags are read by, and at the text's end.
TEST(MarkupMirror, ReadsAttributesOfEveryLength) {
    static const char* const Pieces[] = {"&amp;", "&#65;", ">", "=", "/", " ", "t", "some longer text", "'", "\""};
    static const char* const Spaces[] = {" ", "\n\t\t", "  ", "                    "};
    CurrentCharset current(KELDCharset::UTF8);
    std::mt19937 random(5);
    const auto pick = [&](const auto& table, unsigned leave = 0) {
        return table[random() % (std::size(table) - leave)];
    };
    for (int step = 0; step < 20000; ++step) {
        const std::string skipped = random() % 8 != 0 ? "" : "<!--" + std::string(random() % 9000, '<') + "-->";
        std::string doc = "<" + std::string(1 + random() % 20, 'e');
        for (auto count = random() % 8; count != 0; --count) {
            const std::string quote = random() % 2 != 0 ? "\"" : "'";
            std::string value;
            for (auto pieces = random() % 7; pieces != 0; --pieces)
                value += pick(Pieces, 2) + std::string(random() % 4 == 0 ? Pieces[quote == "'" ? 9 : 8] : "");
            const char* const sign = random() % 8 != 0 ? "=" : " = ";
            doc += pick(Spaces) + std::string(1 + random() % 18, 'n') + std::to_string(count) + sign;
            doc.append(quote).append(value).append(quote);
        }
        doc += random() % 2 != 0 ? "/>" : "\n>t<b c='d'/>&lt;</" + doc.substr(1, doc.find_first_of(" \n") - 1) + ">";
        doc.append(random() % 3 * 32, ' ').insert(0, skipped);
        pugi::xml_document image;
        ASSERT_TRUE(image.load_string(doc.c_str(), ParseAll)) << doc;
        QzMarkup markup(doc.c_str());
        ASSERT_TRUE(markup.FindElem());
        ASSERT_EQ(Difference(markup, false, image.document_element()), "") << doc;
    }
}

// Documents that nobody here wrote.
TEST(MarkupMirror, ReadsAndSavesInstalledDocuments) {
    CurrentCharset current(KELDCharset::UTF8);
    const ScratchDirectory directory;
    const std::string path = directory / "file.xml";
    for (const char* const name :
         {"/usr/share/mime/packages/freedesktop.org.xml", "/usr/share/xml/iso-codes/iso_15924.xml",
          "/usr/share/xml/iso-codes/iso_3166-2.xml", "/usr/share/xml/iso-codes/iso_639-3.xml"}) {
        if (!std::filesystem::exists(name))
            GTEST_SKIP() << name << " is not installed";
        const std::string bytes = ReadBytes(name);
        pugi::xml_document image;
        ASSERT_TRUE(image.load_string(bytes.c_str(), ParseAll));
        QzMarkup markup;
        ASSERT_TRUE(markup.Load(name)) << markup.GetError();
        EXPECT_TRUE(Content(markup.TopElement()) == ContentOf(image.document_element())) << name;
        ASSERT_TRUE(markup.Save(path.c_str()));
        EXPECT_TRUE(ReadBytes(path) == bytes) << name;
        markup.SetEncoding(KELDCharset::GB18030); // holds every character
        QzMarkup loaded;
        ASSERT_TRUE(markup.Save(path.c_str()) && loaded.Load(path.c_str()));
        EXPECT_EQ(loaded.GetEncoding(), KELDCharset::GB18030);
        EXPECT_FALSE(ReadBytes(path) == bytes);
        EXPECT_TRUE(Content(loaded.TopElement()) == ContentOf(image.document_element())) << name;
    }
}

} // namespace
