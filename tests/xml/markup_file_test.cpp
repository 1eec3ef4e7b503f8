#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "log/log_lines.h"
#include "support.h"
#include "system/system.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/xml/qzxmldeclaration.h"
#include "xml/markup_records.h"

using namespace Qzc;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

std::string ErrorOf(int code) {
    return std::generic_category().message(code);
}

std::string Encoded(const std::string& text, KELDCharset::Charset to, KELDCharset::Charset from = KELDCharset::UTF8) {
    KeldMBString bytes;
    EXPECT_TRUE(QzTextCodec(to, from).Convert(bytes, KeldMBString(text)));
    return std::string(bytes.View());
}

class MarkupFile : public testing::Test {
protected:
    void Permit(const char* name, unsigned mode) {
        std::filesystem::permissions(m_directory / name, static_cast<std::filesystem::perms>(mode));
    }

    ScratchDirectory m_directory;
    std::string m_path = m_directory / "file.xml";
    CurrentCharset m_current{KELDCharset::UTF8};
    LogLines m_log;
};

// ---- Loading

TEST_F(MarkupFile, LoadsWhatTheFileSays) {
    const std::string xml = "<?xml version=\"1.0\" encoding=\"";
    const std::tuple<std::string, std::string, const char*, KELDCharset::Charset> cases[] = {
        // the declaration, a text in its encoding, the same in UTF-8 and the encoding
        {xml + "GB2312\"?>", "\xB5\xD8\xCD\xBC", "\xE5\x9C\xB0\xE5\x9B\xBE", KELDCharset::GB2312},
        {xml + " GBK \"?>", "\xE6\x67", "\xE9\x8E\x94", KELDCharset::GB2312},
        {xml + "GB18030\"?>", "\x95\x32\x82\x36", "\xF0\xA0\x80\x80", KELDCharset::GB18030},
        {xml + "Big5\"?>", "\xA5\x5C", "\xE5\x8A\x9F", KELDCharset::Big5},
        {xml + "ISO-8859-1\" standalone=\"yes\"?>", "\xE9", "\xC3\xA9", KELDCharset::ISO8859_1},
        {"<?xml version='1.0' encoding = 'ISO-8859-1' ?>", "\xE9", "\xC3\xA9", KELDCharset::ISO8859_1},
        {"<!-- -->" + xml + "KOI8-R\"?>", "\xCD", "\xD0\xBC", KELDCharset::KOI8R}, // not at the start
        {"", "\xC3\xA9", "\xC3\xA9", KELDCharset::UTF8},
        {"\xEF\xBB\xBF", "\xC3\xA9", "\xC3\xA9", KELDCharset::UTF8},
        {xml + "x-nobody-knows\"?>", "\xE9", "\xE9", KELDCharset::Unknown},
        {xml + "GB2312\"?>", "\xFF\xFF", "\xFF\xFF", KELDCharset::GB2312},        // no text of it: as it was read
        {xml + "UTF-16LE\"?>", "\xE9x", "\xE9x", KELDCharset::UTF16LE},           // which cannot be true
        {xml + "IBM037\"?>", "\xE9x", "\xE9x", KeldSystem::GetCharset("IBM037")}, // which cannot be true
    };
    for (const auto& [declaration, stored, text, encoding] : cases) {
        SCOPED_TRACE(declaration + text);
        const std::string bytes = declaration + "<" + stored + ">" + stored + "</" + stored + ">";
        WriteBytes(m_path, bytes);
        QzMarkup markup;
        EXPECT_TRUE(markup.Load(m_path.c_str())) << markup.GetError();
        EXPECT_EQ(markup.GetError(), (std::to_string(bytes.size()) + " bytes").c_str());
        EXPECT_EQ(markup.GetEncoding(), encoding);
        EXPECT_EQ(markup.IsConverted(), encoding == KELDCharset::UTF8 || stored != text);
        ASSERT_TRUE(markup.FindElem(text));
        EXPECT_EQ(markup.GetData(), text);
    }
    // A mark speaks whatever the current charset is; that of wide units against the declaration, too.
    const std::pair<std::string, KELDCharset::Charset> marked[] = {
        {"\xEF\xBB\xBF<a>\xC3\xA9</a>", KELDCharset::UTF8},
        {"\xFF\xFE<\0a\0>\0\xE9\0<\0/\0a\0>\0"s, KELDCharset::UTF16LE},
        {"\xFE\xFF\0<\0a\0>\0\xE9\0<\0/\0a\0>"s, KELDCharset::UTF16BE},
        {"\xFF\xFE\0\0"s + Encoded("<a>\xC3\xA9</a>", KELDCharset::UCS4LE), KELDCharset::UCS4LE},
        {"\0\0\xFE\xFF"s + Encoded("<a>\xC3\xA9</a>", KELDCharset::UCS4BE), KELDCharset::UCS4BE},
    };
    CurrentCharset current(KELDCharset::ISO8859_1);
    for (const auto& [bytes, encoding] : marked) {
        WriteBytes(m_path, bytes);
        QzMarkup markup;
        EXPECT_TRUE(markup.Load(m_path.c_str()) && markup.IsConverted());
        EXPECT_EQ(markup.GetDoc(), "<a>\xE9</a>");
        EXPECT_EQ(markup.GetEncoding(), encoding);
    }
    EXPECT_TRUE(m_log.IsEmpty());
}

TEST_F(MarkupFile, TellsWhyItCannotLoad) {
    std::filesystem::create_directory(m_directory / "directory");
    std::vector<std::pair<const char*, int>> unopened = {{"missing", ENOENT}, {"directory", EISDIR}};
    if (PosixFiles) {
        WriteBytes(m_directory / "locked", "<a/>");
        Permit("locked", 0);
        Permit("", 0755);
        unopened.emplace_back("locked", EACCES);
    }
    for (const auto& [name, code] : unopened) {
        const std::string path = m_directory / name;
        m_log.Clear();
        QzMarkup markup("<kept/>");
        {
            const OrdinaryUser user;
            EXPECT_FALSE(markup.Load(path.c_str()));
        }
        EXPECT_EQ(markup.GetError() + markup.GetDoc(), (ErrorOf(code) + "<kept/>").c_str());
        EXPECT_TRUE(m_log.Has("error  -100: Can not open file  " + path + " Error message " + ErrorOf(code)));
        EXPECT_TRUE(m_log.Has(" qzmarkup"));
    }
    m_log.Clear();
    QzMarkup markup("<kept/>");
    WriteBytes(m_path, "");
    std::filesystem::resize_file(m_path, std::uintmax_t{1} << 31); // sparse
    EXPECT_FALSE(markup.Load(m_path.c_str()));
    EXPECT_EQ(markup.GetError() + markup.GetDoc(), (ErrorOf(EFBIG) + "<kept/>").c_str());

    const std::pair<std::string, const char*> malformed[] = {
        {"", "0 bytes"},
        {std::string(1234, ' '), "1234 bytes, Element tag not found"},
        {"\xFF\xFE<\0a\0>"s, "7 bytes, Abrupt end within tag"}, // half a unit: as it was read
        {"<?xml version=\"1.0\" encoding=\"GB2312\"?><a>\xB5\xD8", "44 bytes, End tag of a element not found"},
    };
    for (const auto& [bytes, error] : malformed) {
        WriteBytes(m_path, bytes);
        EXPECT_TRUE(markup.SetDoc("<a/>"));
        EXPECT_FALSE(markup.Load(m_path.c_str()) || markup.IsWellFormed() || markup.FindElem());
        EXPECT_EQ(markup.GetError(), error);
    }
    EXPECT_TRUE(m_log.IsEmpty());
}

// ---- Saving

TEST_F(MarkupFile, SavesWhatTheDeclarationSays) {
    using Charset = KELDCharset;
    const std::string utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    const std::string gbk = "<?xml version=\"1.0\" encoding=\"GBK\"?>";
    const std::string gb2312 = "<?xml version=\"1.0\" encoding=\"GB2312\" standalone=\"yes\"?>";
    const std::string han = "<a x='\xE9\x8E\x94'><b>1</b></a>";
    const std::string hanGbk = "<a x='\xE6\x67'><b>1</b></a>";
    const std::string wide = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<a/>";
    const std::string inWchar =
        sizeof(wchar_t) == 2
            ? "\xFF\xFE" + Encoded(wide, Charset::UTF16LE)
            : "\xFF\xFE\0\0"s + Encoded("<?xml version=\"1.0\" encoding=\"UTF-32\"?>\r\n<a/>", Charset::UCS4LE);
    const std::tuple<Charset::Charset, std::string, Charset::Charset, std::string> cases[] = {
        // the current charset, the document, the encoding and the file
        {Charset::UTF8, "<a/>", Charset::UTF8, utf8 + "\r\n<a/>"},
        {Charset::UTF8, "<a/>", Charset::Unknown, "<a/>"},
        {Charset::UTF8, "<a>\xC3\xA9</a>", Charset::ISO8859_1,
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\r\n<a>\xE9</a>"},
        {Charset::Ansi, "<a>\x80</a>", Charset::Nordic,
         "<?xml version=\"1.0\" encoding=\"WINDOWS-1252\"?>\r\n<a>\x80</a>"}, // one charset of two numbers
        // What is true stays to the letter, in the current charset.
        {Charset::UTF8, "<?xml version='1.0'?><a/>", Charset::Current, "<?xml version='1.0'?><a/>"},
        {Charset::UTF8, "<?xml  encoding='Utf8' ?><a/>", Charset::UTF8, "<?xml  encoding='Utf8' ?><a/>"},
        {Charset::GB2312, gb2312 + hanGbk, Charset::GB2312, gb2312 + hanGbk},
        {Charset::UTF8, gb2312 + "\n<a/>", Charset::UTF8, gb2312 + "\n<a/>"}, // plain ASCII is
        {Charset::UTF8, "<?xml-stylesheet href='s'?><a/>", Charset::UTF8, "<?xml-stylesheet href='s'?><a/>"},
        {Charset::UTF8, "<a><?pi?></a>", Charset::UTF8, "<a><?pi?></a>"},
        // What is false does not.
        {Charset::UTF8, gb2312 + "\n" + han, Charset::UTF8, utf8 + "\n" + han},
        {Charset::GB2312, utf8 + hanGbk, Charset::GB2312, gbk + hanGbk},
        {Charset::UTF8, "<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>", Charset::UTF8, utf8 + "<a/>"},
        {Charset::UTF8, "<a b='\xC3\xA9'><?pi encoding=\"Big5\"?></a>", Charset::UTF8,
         utf8 + "\r\n<a b='\xC3\xA9'><?pi encoding=\"Big5\"?></a>"},
        // A stray "?>" ends nothing.
        {Charset::UTF8, "<!-- ?> --><a/>", Charset::UTF8, utf8 + "\r\n<!-- ?> --><a/>"},
        {Charset::UTF8, "<a>?><?pi?></a>", Charset::GB2312, gbk + "\r\n<a>?><?pi?></a>"},
        // In another charset the first instruction makes way, wherever it stands.
        {Charset::UTF8, gb2312 + "\n" + han, Charset::GB2312, gbk + "\n" + hanGbk},
        {Charset::UTF8, "<a><?pi?><?pi?></a>", Charset::GB2312, "<a>" + gbk + "<?pi?></a>"},
        // Wide units have a mark, whatever number they go by.
        {Charset::UTF8, "<a/>", Charset::UCS2BE, "\xFE\xFF" + Encoded(wide, Charset::UTF16BE)},
        {Charset::UTF8, "<a/>", Charset::Wide, inWchar},
    };
    for (const auto& [current, doc, encoding, bytes] : cases) {
        SCOPED_TRACE(doc + " " + std::to_string(encoding));
        KeldSystem::SetCurCharset(current);
        QzMarkup markup(doc.c_str());
        markup.SetEncoding(encoding);
        EXPECT_TRUE(markup.Save(m_path.c_str())) << markup.GetError();
        EXPECT_EQ(ReadBytes(m_path), bytes);
        EXPECT_EQ(markup.GetError(), (std::to_string(bytes.size()) + " bytes").c_str());
    }
}

// Whatever a file holds, loading and saving loses nothing: it is the same text in the same charset, or the same bytes.
TEST_F(MarkupFile, GivesBackWhatItRead) {
    using Charset = KELDCharset;
    const std::string pieces[] = {
        "<a>",      "</a>",  "<b/>",     "<?pi?>",   "?>",    "<!-- -->",         "\xC3\xA9", "\xE9\x8E\x94",
        "\xE6\x67", "\xFF",  "\xB5\xD8", "\0"s,      "text ", "\x88\x61",         "\r\n",     "\x80\x5C",
        "\xD8\x3D", "a\xCC", "e",        "\xD9\x3E", "a",     "encoding=\"Big5\""};
    const std::string_view starts[] = {"", Utf8Mark, "\xFF\xFE", "\xFE\xFF", "\xFF\xFE\0\0"sv, "\0\0\xFE\xFF"sv};
    const char* const names[] = {"GB2312",   "Big5",   "UTF-8",  "ISO-8859-1", "UTF-16LE",
                                 "US-ASCII", "x-none", "UTF-16", "ISO-2022-JP"};
    const Charset::Charset currents[] = {Charset::UTF8, Charset::ISO8859_1, Charset::Johab, Charset::Vietnamese};
    const std::pair<Charset::Charset, std::string_view> written[] = {{Charset::UTF8, ""},
                                                                     {Charset::GB18030, ""},
                                                                     {Charset::Russian, ""},
                                                                     {Charset::UTF16LE, "\xFF\xFE"},
                                                                     {Charset::UCS4BE, starts[5]}};
    std::mt19937 random(12);
    const auto pick = [&](const auto& table) { return table[random() % std::size(table)]; };
    int unconverted = 0;
    int refused = 0;
    int recoded = 0;
    for (int step = 0; step < 800; ++step) {
        std::string bytes(pick(starts));
        if (random() % 2 != 0)
            bytes += "<?xml version=\"1.0\" encoding=\""s + pick(names) + "\"?>";
        for (auto count = random() % 6; count != 0; --count)
            bytes += pick(pieces);
        if (step % 16 == 0) { // converted in many parts
            const std::string some[] = {pick(pieces), pick(pieces)};
            while (bytes.size() < 200000)
                bytes += random() % 97 == 0 ? " " : some[random() % 2];
        }
        const Charset::Charset current = pick(currents);
        KeldSystem::SetCurCharset(current);
        WriteBytes(m_path, bytes);
        QzMarkup first;
        first.Load(m_path.c_str());
        QzMarkup markup(first); // which has all that saving needs
        const std::string before(markup.GetDoc().View());
        const auto [encoding, mark] = pick(written);
        const bool recodes = first.IsConverted() && random() % 2 != 0;
        if (recodes)
            markup.SetEncoding(encoding);
        if (!markup.Save(m_path.c_str())) { // the text has what the other charset has not
            ASSERT_TRUE(recodes && markup.GetError().View().find("Cannot convert") == 0) << markup.GetError();
            ASSERT_TRUE(ReadBytes(m_path) == bytes && markup.GetDoc().View() == before);
            ++refused;
            continue;
        }
        const std::string after(markup.GetDoc().View());
        if (!first.IsConverted()) {
            ASSERT_TRUE(ReadBytes(m_path) == bytes);
            ++unconverted;
            continue;
        }
        if (recodes && encoding != current && !(encoding == Charset::UTF8 && bytes.find(Utf8Mark) == 0)) {
            ASSERT_TRUE(ReadBytes(m_path) == std::string(mark) + Encoded(after, encoding, current))
                << testing::PrintToString(bytes);
            ++recoded;
        }
        QzMarkup loaded;
        loaded.Load(m_path.c_str());
        if (current != Charset::Vietnamese) { // some of its letters can be written in two ways
            ASSERT_TRUE(loaded.GetDoc().View() == after) << testing::PrintToString(bytes);
        }
        const auto withoutInstruction = [](std::string text) {
            const std::size_t start = text.find("<?");
            const std::size_t end = text.find("?>");
            if (start < end && end != std::string::npos)
                text.erase(start, end + 2 - start);
            return text.substr(std::min(text.size(), text.find_first_not_of("\r\n")));
        };
        ASSERT_TRUE(after == before || withoutInstruction(after) == withoutInstruction(before) ||
                    after.substr(after.size() - before.size()) == before)
            << bytes;
    }
    EXPECT_GT(std::min({unconverted, refused, recoded}), 10);

    // Whoever knows better says so: the file was UTF-8 all the time, or the text is another one.
    KeldSystem::SetCurCharset(KELDCharset::UTF8);
    const std::string doc = "<a>\xE9\x8E\x94.</a>";
    for (const bool isSet : {false, true}) {
        WriteBytes(m_path, "<?xml version=\"1.0\" encoding=\"GB2312\"?>" + doc);
        QzMarkup markup;
        EXPECT_TRUE(markup.Load(m_path.c_str()) && !markup.IsConverted());
        if (isSet)
            EXPECT_TRUE(markup.SetDoc(doc.c_str()));
        else
            markup.SetEncoding(KELDCharset::UTF8);
        EXPECT_TRUE(markup.IsConverted() && markup.Save(m_path.c_str()));
        EXPECT_EQ(ReadBytes(m_path), isSet ? "<?xml version=\"1.0\" encoding=\"GBK\"?>\r\n<a>\xE6\x67.</a>"
                                           : "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + doc);
    }
}

TEST_F(MarkupFile, TellsWhyItCannotSave) {
    QzMarkup markup("<a>\xC3\xA9</a>");
    const KeldMBString doc = markup.GetDoc();
    const auto refuses = [&](const std::string& path, const char* error) {
        EXPECT_FALSE(markup.Save(path.c_str())) << path;
        EXPECT_EQ(markup.GetError(), error) << path;
        EXPECT_EQ(markup.GetDoc(), doc);
    };
    const bool hasPipe = MakePipe(m_directory / "pipe"); // that nobody reads
    for (const char* const path : {"", "missing/file.xml", hasPipe ? "pipe" : "", "new/"})
        refuses(m_directory / path, "Cannot open file .\n");
    refuses("", "Cannot open file .\n");
    if (!FullDevice().empty())
        refuses(FullDevice(), "Cannot write file .\n");

    WriteBytes(m_path, "old");
    if (PosixFiles) { // a superuser's Wine minds no permissions
        Permit("file.xml", 0444);
        Permit("", 0777);
        const OrdinaryUser user;
        refuses(m_path, "Cannot open file .\n");
    }
    for (const auto& [encoding, name] : {std::pair(KELDCharset::Russian, "WINDOWS-1251"), // has no such letter
                                         std::pair(static_cast<KELDCharset::Charset>(9999), "")}) {
        markup.SetEncoding(encoding);
        refuses(m_path, ("Cannot convert to "s + name).c_str());
    }
    EXPECT_EQ(ReadBytes(m_path), "old");
    EXPECT_EQ(FilesIn(m_directory.Path()).size(), hasPipe ? 2U : 1U);
    EXPECT_TRUE(m_log.IsEmpty());
}

// ---- Laying out

TEST_F(MarkupFile, IndentsForPeople) {
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n";
    const std::pair<std::string, std::string> cases[] = {
        {"<a><b/><c x='1'>t</c><d> </d></a>", "<a>\r\n\t<b/>\r\n\t<c x='1'>t</c>\r\n\t<d> </d>\r\n</a>\r\n"},
        {"<a><b><c><d/>\n</c></b>  <b/></a>",
         "<a>\r\n\t<b>\r\n\t\t<c>\r\n\t\t\t<d/>\r\n\t\t</c>\r\n\t</b>\r\n\t<b/>\r\n</a>\r\n"},
        {"<a><![CDATA[]]><b><c/></b></a>", "<a><![CDATA[]]><b><c/></b></a>\r\n"},
        {"<a><b xml:space='preserve'><c/> </b> </a>", "<a>\r\n\t<b xml:space='preserve'><c/> </b>\r\n</a>\r\n"},
        {"<!DOCTYPE a [ <!ENTITY e '>'> ]><!-- x\n y --><a><!--1--><b/><?pi?></a> <!-- end -->\n\n",
         "<!DOCTYPE a [ <!ENTITY e '>'> ]>\r\n<!-- x\n y -->\r\n<a>\r\n\t<!--1-->\r\n\t<b/>\r\n\t<?pi?>\r\n</a>\r\n"
         "<!-- end -->\r\n"},
    };
    for (const auto& [doc, lines] : cases) {
        SCOPED_TRACE(doc);
        const bool hasHead = doc.find("?>") != std::string::npos;
        QzMarkup markup((hasHead ? head + doc : doc).c_str());
        EXPECT_TRUE(markup.SaveIndented(m_path.c_str())) << markup.GetError();
        EXPECT_EQ(ReadBytes(m_path), head + lines);
        EXPECT_EQ(markup.GetDoc(), (hasHead ? head + doc : doc).c_str());
        EXPECT_EQ(markup.GetError(), (std::to_string((head + lines).size()) + " bytes").c_str());
    }
    QzMarkup malformed("<a><b></a>");
    EXPECT_FALSE(malformed.SaveIndented(m_path.c_str()));
    EXPECT_EQ(malformed.GetError(), "End tag does not correspond to b");
}

TEST_F(MarkupFile, IndentingKeepsWhatADocumentHolds) {
    const char* const pieces[] = {
        "<a>",        "<b x='>'>", "</a>",          "</b>", "<c/>",           " ",      "\n", "text",
        "<!-- - -->", "<?p?>",     "<![CDATA[ ]]>", "&lt;", "<d y=\"/>\" />", "<e></e>"};
    std::mt19937 random(3);
    int indented = 0;
    for (int step = 0; step < 2000; ++step) {
        std::string doc = "<top>";
        for (auto count = random() % 12; count != 0; --count)
            doc += pieces[random() % std::size(pieces)];
        CheckedMarkup markup((doc + "</top>").c_str());
        if (!markup.IsWellFormed())
            continue;
        ASSERT_TRUE(markup.SaveIndented(m_path.c_str()));
        QzMarkup loaded;
        ASSERT_TRUE(loaded.Load(m_path.c_str())) << doc;
        ASSERT_EQ(Content(loaded.TopElement(), true), Content(markup.TopElement(), true)) << doc;
        const std::string lines = ReadBytes(m_path);
        ASSERT_TRUE(loaded.SaveIndented(m_path.c_str()));
        ASSERT_EQ(ReadBytes(m_path), lines) << "again";
        ++indented;
    }
    EXPECT_GT(indented, 80);
}

} // namespace
