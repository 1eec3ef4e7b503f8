#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "configuration/registry_support.h"
#include "stream/qztrace.h"
#include "support.h"
#include "toolkit/qzregistryepsfont.h"
#include "toolkit/qzregistryresource.h"
#include "toolkit/qzstringex.h"

using namespace Qzc;
using namespace std::string_literals;

namespace {

using Registry = OpenRegistry<>;

class RegistryTest : public testing::Test {
protected:
    CurrentCharset m_charset{KELDCharset::UTF8};
    TextLog<&SetTraceHandler> m_trace; // XmlPath misses the file in a build tree, which is not what is tested here
    ScratchDirectory m_scratch;
    std::string m_path = m_scratch / "conf.xml";

    Registry Loaded(const std::string& bytes) {
        WriteBytes(m_path, bytes);
        return Registry(m_path);
    }
    std::string Saved(Registry& registry) { return registry.Save() ? ReadBytes(m_path) : "(not saved)"; }
};

template <class Hash>
std::string Keys(const Hash& hash) {
    std::string keys;
    for (const auto& entry : hash)
        keys += entry.first.Cstr() + std::string(" ");
    return keys;
}

// Every kind of entry, in an order that mixes them.
constexpr const char* EveryKind = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- a comment --><Root>
  <Size type="value"> 12 </Size>
  <Log type="Object"><Path>/tmp/a&amp;b</Path><Level/><Path>/tmp/c</Path></Log>
  <Plain>text<i>not this</i>&lt;&#65;<![CDATA[<&amp;>]]></Plain>
  <Odd type="number">7</Odd>
  <Fonts TYPE="x" type='SEQUENCE'><f>Song</f><g/><f>Hei</f></Fonts>
  <Layers type="objectSequence"><l><id>1</id><n>a</n></l><l/><m><id>2</id></m></Layers>
  <Deep type="subreg"><Size>3</Size><Log type="object"><a>1</a></Log><Deep type="SubReg"><x>y</x></Deep></Deep>
  <resource type="external">/data/res.xml</resource>
  <Size type="sequence"/>
</Root>)";

} // namespace

TEST(Hash, HoldsWhatAPlainListOfPairsWould) {
    // Sizes wander across the one at which the table begins to index its keys.
    std::mt19937 random(7);
    std::vector<std::pair<std::string, int>> expected;
    QzHash<int> hash;
    for (int step = 0; step < 5000; ++step) {
        const std::string key = "key" + std::to_string(random() % 20);
        const auto known =
            std::find_if(expected.begin(), expected.end(), [&](const auto& entry) { return entry.first == key; });
        if (random() % 5 < 2 + random() % 2) {
            hash.SetAt(KeldMBString(key), step);
            (known != expected.end() ? *known : expected.emplace_back(key, 0)).second = step;
        } else {
            EXPECT_EQ(hash.RemoveKey(KeldMBString(key)), known != expected.end());
            expected.erase(known, known != expected.end() ? known + 1 : known);
        }
        if (step % 50 == 0)
            hash = QzHash<int>(hash);
        ASSERT_EQ(hash["none"], 0);
        ASSERT_EQ(hash.GetCount(), static_cast<int>(expected.size()));
        auto entry = hash.begin();
        for (const auto& [name, value] : expected) {
            ASSERT_EQ(entry->first.View(), name);
            ASSERT_EQ(hash[KeldMBString(name)], value);
            ++entry;
        }
    }
}

TEST_F(RegistryTest, ReadsEveryKindOfEntry) {
    Registry registry;
    registry.LoadDoc(EveryKind);
    EXPECT_EQ(registry.Name(), "Root");
    EXPECT_EQ(registry.Encoding(), "GB2312");
    EXPECT_EQ(registry["Size"], " 12 ");
    EXPECT_EQ(registry["Plain"], "text<A<&amp;>");
    EXPECT_EQ(Keys(registry.Obj("Log")), "Path Level ");
    EXPECT_EQ(registry.Obj("Log")["Path"], "/tmp/c");
    std::string fonts;
    for (const KeldMBString& font : registry.Seq("Fonts"))
        fonts += font.Cstr() + std::string(";");
    EXPECT_EQ(fonts, "Song;;Hei;");
    std::string layers;
    for (const QzRegistry::Object& layer : registry.ObjSeq("Layers"))
        layers += Keys(layer) + layer["id"].Cstr() + ";";
    EXPECT_EQ(layers, "id n 1;;id 2;");
    const QzRegistry& deep = registry.SubReg("Deep");
    EXPECT_EQ(deep.Name(), "Deep");
    EXPECT_EQ(deep["Size"] + deep.Obj("Log")["a"] + deep.SubReg("Deep")["x"], "31y");
    EXPECT_EQ(registry.GetSubFileName("resource"),
              std::filesystem::absolute("/data/res.xml").make_preferred().string().c_str());

    EXPECT_TRUE(registry.Obj("Size").IsEmpty() && registry.Seq("x").IsEmpty() && registry.ObjSeq("x").IsEmpty());
    EXPECT_TRUE(registry.SubReg("x") == Registry() && registry.SubFile("x") == Registry());

    registry.LoadDoc("<Other><Size>13</Size><Log type='object'/><New>1</New><Deep type='subreg'/>"
                     "<Deep type='subreg'><b>1</b></Deep></Other>");
    EXPECT_EQ(registry.Name(), "Other");
    EXPECT_EQ(Keys(registry), "Size Plain Odd New ") << "a later entry takes the earlier one's place";
    EXPECT_EQ(registry["Size"], "13");
    EXPECT_TRUE(registry.Obj("Log").IsEmpty());
    EXPECT_EQ(Keys(registry.SubReg("Deep")), "b ");
}

TEST_F(RegistryTest, EveryFileIsReadInItsOwnEncoding) {
    WriteBytes(m_scratch / "res.xml", "<?xml version='1.0' encoding='Big5' standalone='yes'?>"
                                      "<r><section><ICode><res id='1'>\xB0\x54\xAE\xA7</res></ICode></section></r>");
    WriteBytes(m_scratch / "eps.xml", "<?xml version=\"1.0\" encoding=\"shift_jis\"?><r><tml:fontname>"
                                      "<tml:Qzc>\x91\x76\x91\xCC</tml:Qzc><tml:EPS>S</tml:EPS></tml:fontname></r>");
    const auto external = [&](const std::string& tag, const std::string& file) {
        return "<" + tag + " type=\"external\">" + m_scratch.Path() + file + "</" + tag + ">";
    };
    const Registry registry = Loaded("<?xml version=\"1.0\" encoding=\"GB2312\"?><\xD6\xD0>"
                                     "<a>\xE9\x46\xBB\xF9</a>" + // the first character is GBK only
                                     external("Resource", "\\sub\\../res.xml") +
                                     external("epsFONT", "/eps.xml") + external("gone", "/gone.xml") + "</\xD6\xD0>");
    EXPECT_EQ(registry.Name(), "中");
    EXPECT_EQ(registry["a"], "镕基");
    EXPECT_EQ(registry.GetSubFileName("Resource").View(), m_scratch / "res.xml");
    EXPECT_EQ(registry.SubFile("Resource")["1"], "訊息");
    EXPECT_EQ(registry.SubFile("epsFONT")["宋体"], "S");
    QzRegistry& gone = registry.SubFile("gone");
    EXPECT_TRUE(gone.IsEmpty() && gone.Name().IsEmpty());
    WriteBytes(m_scratch / "gone.xml", "<r><a>1</a></r>");
    EXPECT_EQ(&registry.SubFile("gone"), &gone) << "a file is looked for once";
}

TEST_F(RegistryTest, ResourceAndFontFiles) {
    OpenRegistry<QzRegistryResource> resource;
    resource.LoadDoc("<R><Section><ECODE><res id='1'>one</res><RES id='2'>two</RES><x id='3'>no</x></ECODE>"
                     "<other><res id='4'>no</res></other></Section><part><ECode><res id='5'>no</res></ECode></part>"
                     "<section><icode><Res id='1'>eins</Res></icode></section></R>");
    EXPECT_EQ(Keys(resource), "1 2 ");
    EXPECT_EQ(resource["1"], "eins") << "a later id replaces an earlier one";
    OpenRegistry<QzRegistryEpsFont> fonts;
    fonts.LoadDoc("<F><tml:fontname><tml:EPS>E1</tml:EPS><tml:Qzc>Q1</tml:Qzc></tml:fontname><x/>"
                  "<tml:fontname><tml:Qzc>Q2</tml:Qzc></tml:fontname><tml:fontname><tml:EPS>E3</tml:EPS>"
                  "</tml:fontname><fontname><tml:Qzc>Q4</tml:Qzc></fontname></F>");
    EXPECT_EQ(Keys(fonts), "Q1 Q2 ");
    EXPECT_EQ(fonts["Q1"], "E1");
    const KeldMBString text("<&>'\"]]> \0\t\r\n "s);
    const auto survivesSave = [&](auto& registry) {
        WriteBytes(m_path, "<top/>");
        registry.LoadFile(KeldMBString(m_path));
        registry.SetAt(text, text);
        EXPECT_TRUE(registry.Save());
        EXPECT_TRUE(std::decay_t<decltype(registry)>(m_path) == registry) << ReadBytes(m_path);
    };
    survivesSave(resource);
    survivesSave(fonts);
}

TEST_F(RegistryTest, SavedEntriesReadBackInTheirOrder) {
    std::string document = EveryKind;
    Registry registry = Loaded(document.insert(document.find("</Root>"), "<in type='external'>data\\x.xml</in>"));
    EXPECT_EQ(registry.GetSubFileName("in"), QzRegistry::XmlPath() + Native("data/x.xml").c_str());
    const std::string saved = Saved(registry);
    EXPECT_TRUE(Registry(m_path) == registry) << saved;
    EXPECT_TRUE(saved.find("<Fonts ") < saved.find("<Deep ") && saved.find("<Deep ") < saved.find("<in ")) << saved;
    EXPECT_NE(saved.find(">data/x.xml<"), std::string::npos) << "relative, as it was";

    const KeldMBString awkward("\0 <a b='\"'>&amp;&#65;]]><![CDATA[x]]>-->\r\n\t \0"s);
    registry.SetAt("Awkward", awkward);
    registry.Obj("Log").SetAt("Awkward", awkward);
    registry.Seq("Fonts").Add(awkward);
    registry.ObjSeq("Layers")[1].SetAt("Awkward", awkward);
    registry.SubReg("Deep").SubReg("Deep").SetAt("Awkward", awkward);
    registry.SubReg("Deep").RemoveKey("Size");
    registry.RemoveKey("Plain");
    Saved(registry);
    const Registry again(m_path);
    EXPECT_TRUE(again == registry) << ReadBytes(m_path);
    EXPECT_EQ(Keys(again), "Size Odd Awkward ");

    KeldSystem::SetCurCharset(KELDCharset::GB2312);
    Registry chinese = Loaded("<?xml version=\"1.0\" encoding=\"UTF-8\"?><r><a>镕</a></r>");
    EXPECT_NE(Saved(chinese).find(">\xE9\x46<"), std::string::npos) << "in the current charset";
    KeldSystem::SetCurCharset(KELDCharset::UTF8);
    EXPECT_EQ(Registry(m_path)["a"], "镕") << "and declared as that";
}

TEST_F(RegistryTest, SavesWhatBecameOfItsEntries) {
    Registry registry = Loaded("<r><v>1</v><a type='subreg'><x>1</x></a><b type='subreg'><y>2</y></b></r>");
    registry.SubReg("a") = registry.SubReg("b");
    EXPECT_TRUE(registry.Save());
    EXPECT_EQ(Registry(m_path).SubReg("a")["y"], "2") << "under the entry's name, not its own";

    registry.RemoveKey("v");
    registry.LoadDoc("<r><v>1</v><a type='subreg'/></r>");
    const std::string saved = Saved(registry);
    for (const char* tag : {"<v ", "<a "})
        EXPECT_EQ(saved.find(tag), saved.rfind(tag)) << "read again, saved once: " << saved;
}

TEST_F(RegistryTest, AFailedSaveLeavesTheOldFile) {
    const std::string before = "<r><a>1</a><o type='object'/><s type='subreg'/></r>";
    WriteBytes(m_path, before);
    for (const std::string& name : {""s, "a b"s, "a\0b"s, "x>y</x><z"s}) {
        for (std::size_t place = 0; place < 3; ++place) {
            Registry registry(m_path);
            QzRegistry::Object* const tables[] = {&registry, &registry.Obj("o"), &registry.SubReg("s")};
            tables[place]->SetAt(KeldMBString(name), "1");
            EXPECT_FALSE(registry.Save()) << name << place;
        }
    }
    Registry registry(m_path);
    {
        const FullDisk full(50);
        EXPECT_EQ(full.Is(), PosixFiles);
        EXPECT_FALSE(full.Is() && registry.Save());
    }
    EXPECT_EQ(ReadBytes(m_path), before);
    EXPECT_EQ(FilesIn(m_scratch.Path()).size(), 1U) << "nothing left behind";
}

TEST_F(RegistryTest, CopiesShareNothing) {
    WriteBytes(m_scratch / "res.xml", "<r><section><ICode><res id='1'>x</res></ICode></section></r>");
    std::string document = EveryKind;
    document.replace(document.find("/data/res.xml"), 13, m_scratch / "res.xml");
    Registry registry;
    registry.LoadDoc(KeldMBString(document));
    QzRegistry& resource = registry.SubFile("resource");
    const Registry copy(registry);
    Registry assigned;
    assigned.LoadDoc("<r><gone>1</gone></r>");
    assigned = copy;
    for (QzRegistry::Object* table :
         {static_cast<QzRegistry::Object*>(&registry), &registry.Obj("Log"), &registry.ObjSeq("Layers")[0],
          static_cast<QzRegistry::Object*>(&registry.SubReg("Deep")), static_cast<QzRegistry::Object*>(&resource)})
        table->SetAt("1", "y");
    registry.Seq("Fonts").RemoveAll();
    Registry expected;
    expected.LoadDoc(KeldMBString(document));
    for (const Registry* const one : {&copy, static_cast<const Registry*>(&assigned)}) {
        EXPECT_TRUE(*one == expected);
        EXPECT_EQ(one->SubFile("resource")["1"], "x") << "the loaded file came along";
    }
    static_cast<QzRegistry&>(expected) = expected.SubReg("Deep"); // from a part of itself
    EXPECT_EQ(expected["Size"], "3");
}

TEST_F(RegistryTest, NestingCostsNoStack) {
    constexpr int Depth = 1000000;
    std::string document = "<r>";
    for (int i = 0; i < Depth; ++i)
        document += "<s type='subreg'>";
    document += "<v>x</v>";
    for (int i = 0; i < Depth; ++i)
        document += "</s>";
    Registry registry = Loaded(document + "</r>");
    Registry copy(registry);
    registry = Registry();
    ASSERT_TRUE(copy.Save());
    registry.LoadFile(KeldMBString(m_path));
    EXPECT_TRUE(registry == copy);
    const QzRegistry* innermost = &registry;
    for (int i = 0; i < Depth; ++i)
        innermost = &innermost->SubReg("s");
    EXPECT_EQ((*innermost)["v"], "x");
}

TEST_F(RegistryTest, FilesThatAreNoConfigurationGiveAnEmptyRegistry) {
    for (const std::string& bytes : {""s, "a=1\nb=2"s, "<r><a>1</r></a>"s, "\xFF\xFE<\0r\0/\0>"s,
                                     "<?xml version=\"1.0\" encoding=\"GB2312\"?><r><a>\xD6"s}) {
        m_trace.Texts().clear();
        Registry registry = Loaded(bytes);
        EXPECT_TRUE(registry == Registry()) << bytes;
        EXPECT_EQ(m_trace.Texts().size(), 1U);
        EXPECT_FALSE(registry.Save()) << "there is no top element to write";
        EXPECT_EQ(ReadBytes(m_path), bytes);
    }
    std::filesystem::resize_file(m_path, std::uintmax_t{1} << 31); // sparse
    for (const std::string& unread : {m_scratch / "gone.xml", m_scratch.Path(), m_path}) {
        m_trace.Texts().clear();
        EXPECT_TRUE(Registry(unread) == Registry());
        ASSERT_EQ(m_trace.Texts().size(), 1U) << unread;
        EXPECT_EQ(m_trace.Texts()[0].find("cannot read file: " + unread), 0U) << m_trace.Texts()[0];
    }
}

TEST_F(RegistryTest, SavesEveryNameThatATagCanBe) {
    Registry registry = Loaded("<R&D><it's>1</it's><1>2</1><_x0041_>3</_x0041_></R&D>");
    EXPECT_EQ(registry.Name() + registry["it's"] + registry["1"] + registry["_x0041_"], "R&D123");
    const std::string saved = Saved(registry);
    for (const char* const tag : {"<R_x0026_D>", "<it_x0027_s ", "<_x0031_ ", "<_x0041_ "})
        EXPECT_NE(saved.find(tag), std::string::npos) << tag << saved;

    const std::string pieces[] = {"_", "x00", "2", "6", "F", "_x0022_", "a", "\"", "&", "'", "\x95\\", "-", "\xFE"};
    std::mt19937 random(4);
    for (const auto charset : {KELDCharset::UTF8, KELDCharset::Japanese}) {
        CurrentCharset current(charset);
        Registry names = Loaded("<r/>");
        for (int i = 0; i < 3000; ++i) {
            std::string name;
            for (auto count = 1 + random() % 6; count != 0; --count)
                name += pieces[random() % std::size(pieces)];
            if (charset == KELDCharset::Japanese || name.find('\\') == std::string::npos)
                names.SetAt(KeldMBString(name), KeldMBString(name));
        }
        ASSERT_TRUE(names.Save());
        ASSERT_TRUE(Registry(m_path) == names);
    }
}

TEST_F(RegistryTest, ReadsAnewAndFromTexts) {
    const std::string extern1 = m_scratch / "x.xml";
    WriteBytes(extern1, "<x><v>1</v></x>");
    Registry registry = Loaded("<r><a>1</a><gone>1</gone><o type='object'/><x type='external'>" + extern1 + "</x></r>");
    EXPECT_EQ(registry.SubFile("x")["v"], "1");
    WriteBytes(extern1, "<x><v>2</v></x>");
    WriteBytes(m_path, "<s><a>2</a><x type='external'>" + extern1 + "</x></s>");
    EXPECT_TRUE(registry.Reload());
    EXPECT_EQ(registry.Name() + registry["a"] + registry["gone"] + registry.SubFile("x")["v"], "s22");
    EXPECT_TRUE(registry.Names(QzRegistry::ElemObject).IsEmpty());

    const QzRegistry before(registry);
    EXPECT_FALSE(registry.LoadText("<r>"));
    WriteBytes(m_path, "<r><a>3</a>");
    EXPECT_FALSE(registry.Reload());
    std::filesystem::remove(m_path);
    EXPECT_FALSE(registry.Reload());
    EXPECT_TRUE(registry == before && registry["a"] == "2");

    EXPECT_TRUE(registry.LoadText("<t><b type='sequence'><i>1</i></b><a>4</a></t>"));
    EXPECT_EQ(registry.Name() + registry["a"] + registry.Seq("b")[0], "t41");
    EXPECT_TRUE(registry.Save()) << "to its file, though that was gone";
    EXPECT_TRUE(Registry(m_path) == registry);
}

TEST_F(RegistryTest, FilesKeepTheirForm) {
    // What cannot be converted goes back as it came, under its own declaration.
    const std::string declaration = "<?xml version=\"1.0\" encoding=\"GB2312\" standalone=\"yes\"?>";
    Registry registry = Loaded(declaration + "<r><a>\xFF\xE9</a></r>");
    EXPECT_FALSE(registry.IsConverted());
    Registry copy;
    copy = registry;
    EXPECT_EQ(Saved(copy), declaration + "\r\n<r>\r\n\t<a type=\"value\">\xFF\xE9</a>\r\n</r>\r\n");
    EXPECT_TRUE(Registry(m_path) == registry);
    Registry marked = Loaded("\xEF\xBB\xBF<r/>");
    EXPECT_EQ(Saved(marked), "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<r/>\r\n");
    Registry wide = Loaded("\xFF\xFE<\0r\0>\0<\0a\0>\0x\0<\0/\0a\0>\0<\0/\0r\0>\0"s);
    EXPECT_TRUE(wide.IsConverted() && wide["a"] == "x");
    EXPECT_EQ(Saved(wide).find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<r>"), 0U);
}

// Tells what the process's configuration is: where, and a message of it.
static const ChildRole Configured("configured", [](const Arguments& expected) {
    const CurrentCharset charset(KELDCharset::UTF8);
    EXPECT_EQ(QzRegistry::XmlPath().View(), expected[0]);
    EXPECT_EQ(QzRegistry::Root().Name().View(), expected[1]);
    QzStringEx text;
    const bool isMissing = text.LoadResString(4294967295U) != 0;
    EXPECT_EQ(text.View(), expected[2]);
    return isMissing == expected[2].empty();
});

// The place of the base library decides, so each case is a process of its own with a copy of that library.
TEST(RegistryRoot, IsFoundBesideTheBaseLibraryOrAboveIt) {
    if (!PosixFiles)
        GTEST_SKIP() << "a program finds its libraries beside itself, not where its environment says";
    for (const std::string place : {"bin/", "", "none"}) {
        const ScratchDirectory scratch;
        std::filesystem::create_directories(scratch / "bin/text");
        std::filesystem::create_directory(scratch / "text");
        std::filesystem::copy(BASE_LIBRARY, scratch / "bin");
        const std::string directory = scratch.Path() + "/" + (place == "none" ? "" : place);
        if (place == "bin/") // is preferred to the one above
            WriteBytes(scratch / "Zephyron.xml", "<Above/>");
        if (place != "none") {
            WriteBytes(directory + "Zephyron.xml", "<Conf><resource type='external'>text\\res.xml</resource></Conf>");
            WriteBytes(directory + "text/res.xml", "<r><section><ICode><res id='-1'>minus</res></ICode></section></r>");
        }
        const Arguments expected = {directory, place == "none" ? "" : "Conf", place == "none" ? "" : "minus"};
        EXPECT_TRUE(ChildProcess(Configured, expected, {"", {{"LD_LIBRARY_PATH", scratch / "bin"}}}).Succeeds());
    }
}
