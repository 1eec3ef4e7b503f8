#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "support.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzlogfollower.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzlogquerydef.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzregistry.h"
#include "toolkit/qztextcodec.h"
#include "xml/markup_records.h"

using namespace Qzc;

namespace {

KeldMBString K(const std::string& text) {
    return KeldMBString(text);
}

// ---- QzTextCodec

// The longest front that Convert takes, but for characters that are cut in two.
TEST(TextCodec, TellsHowFarATextCanBeConverted) {
    std::mt19937 random(1);
    const std::string pieces[] = {"a", "\n", "ä", "图", "😀", "\xE5\x9B", "\xFF", std::string(3000, 'x')};
    for (const char* const to : {"GB2312", "ISO-8859-1", "UTF-16LE", "ISO-2022-CN"}) {
        QzTextCodec codec(to, "UTF-8");
        if (codec.IsOpen() == 0 && !PosixFiles)
            continue; // not every converter has ISO-2022
        for (int round = 0; round < 200; ++round) {
            std::string text;
            for (auto count = random() % 6; count > 0; --count)
                text += pieces[random() % std::size(pieces)];
            const auto converts = [&](int length) {
                KeldMBString ignored;
                return codec.Convert(ignored, text.c_str(), length) != 0;
            };
            const int size = static_cast<int>(text.size());
            const int length = codec.GetConvertibleLength(text.c_str(), size);
            EXPECT_TRUE(converts(length));
            for (int longer = length + 1; longer <= std::min(size, length + 8); ++longer)
                EXPECT_FALSE(converts(longer)) << to << ' ' << text;
        }
    }
}

// ---- QzMarkup

TEST(Markup, RemovesAttributes) {
    using Edit = std::pair<const char*, const char*>;
    const Edit edits[] = {{"<p b='2' a='1' >x</p>", "<p b='2' >x</p>"},
                          {"<p a='1'b='2'/>", "<p b='2'/>"},
                          {"<p a = 1 b='2'/>", "<p b='2'/>"}};
    for (const auto& [before, after] : edits) {
        CheckedMarkup markup(before);
        markup.FindElem();
        EXPECT_TRUE(markup.RemoveAttrib("a")) << before;
        EXPECT_EQ(markup.GetDoc(), after);
        EXPECT_TRUE(markup.RecordsMatchText());
        EXPECT_FALSE(markup.RemoveAttrib("a"));
    }
    // What is behind it has moved, and is found and edited all the same.
    CheckedMarkup markup("<p a='1'><c a='2'/><d a='3'>t</d></p>");
    std::mt19937 random(2);
    for (int round = 0; round < 300; ++round) {
        markup.ResetPos();
        markup.FindElem();
        if (random() % 3 != 0) {
            markup.IntoElem();
            markup.FindElem(random() % 2 != 0 ? "c" : "d");
        }
        const std::string name(1, static_cast<char>('a' + random() % 4));
        if (random() % 2 != 0) {
            EXPECT_TRUE(markup.SetAttrib(name.c_str(), static_cast<int>(random() % 1000)));
        } else {
            const bool has = !markup.GetAttrib(name.c_str()).IsEmpty();
            EXPECT_EQ(markup.RemoveAttrib(name.c_str()) != 0, has);
            EXPECT_TRUE(markup.GetAttrib(name.c_str()).IsEmpty());
        }
        ASSERT_TRUE(markup.RecordsMatchText()) << markup.GetDoc().Cstr();
    }
}

// ---- QzProcess

TEST(ProcessState, TellsWhoHasALockAndLeavesItAlone) {
    const KeldMBString name = K("state test " + std::to_string(ProcessId()));
    QzProcessState state;
    EXPECT_FALSE(QzProcess::GetState(name, state));
    QzProcess first;
    QzProcess second;
    ASSERT_EQ(first.ProcessLockInit(name), 1U); // looking makes nothing
    ASSERT_EQ(second.ProcessLockInit(name), 2U);
    const auto count = [&](bool QzProcessState::Opener::*which) {
        EXPECT_TRUE(QzProcess::GetState(name, state));
        EXPECT_EQ(state.m_openers.GetSize(), 2);
        return std::count_if(state.m_openers.begin(), state.m_openers.end(), [&](const auto& opener) {
            const bool isOwn = opener.m_nProcessID == ProcessId() || (opener.m_nProcessID == 0 && !PosixFiles);
            return isOwn && opener.*which;
        });
    };
    ASSERT_TRUE(first.TimedWriterLock(0));
    EXPECT_EQ(count(&QzProcessState::Opener::m_bWriting), 1);
    EXPECT_EQ(count(&QzProcessState::Opener::m_bReading), 0);
    first.WriterUnlock();
    ASSERT_TRUE(first.TimedReaderLock(0) && second.TimedReaderLock(0));
    EXPECT_EQ(count(&QzProcessState::Opener::m_bReading), 2);
    EXPECT_EQ(count(&QzProcessState::Opener::m_bWriting), 0);
    EXPECT_TRUE(state.m_nStamp == 1 && state.m_nOpenings == 2);
}

// ---- The log

void AddItem(const std::string& path, const std::string& message) {
    QzLogFile& log = QzLogFile::GetInstance(false);
    if (log.GetFileName() != path.c_str())
        log.Open(K(path));
    log.RecordLog(QzLogFile::info, 1, K(message), "test.cpp", 7);
}

std::string NextMessages(QzLogFollower& follower, const std::string& until) {
    std::string messages;
    for (int i = 0; i < 2000 && messages.find(until) == std::string::npos; ++i) {
        KeldArray<QzLogItem> items;
        EXPECT_TRUE(follower.Next(QzLogQueryDef(), items));
        for (const QzLogItem& item : items)
            messages += std::string(item.m_strDescription.View()) + ";";
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return messages;
}

TEST(LogFile, ShowsItemsOneByOne) {
    const ScratchDirectory scratch;
    QzLogFile& log = QzLogFile::GetInstance(false);
    log.SetFilterRepeat(0);
    for (int i = 0; i < 50; ++i)
        AddItem(scratch / "a.log", "item " + std::to_string(i));
    log.Close();
    log.SetQueryMaxNum(10); // is for what is kept
    std::string seen;
    const auto note = [](void* all, const QzLogItem& item) -> unsigned char {
        *static_cast<std::string*>(all) += item.m_strDescription.View();
        return item.m_strDescription != "item 45" ? 1 : 0;
    };
    EXPECT_TRUE(QzLogFile::VisitFile(K(scratch / "a.log"), QzLogQueryDef(), note, &seen));
    EXPECT_EQ(seen, "item 49item 48item 47item 46item 45");
    log.SetQueryMaxNum(1000);
}

TEST(LogFollower, GoesOnWhereTheLogDoes) {
    for (const auto mode : {QzLogFile::Text, QzLogFile::XML}) {
        const ScratchDirectory scratch;
        const std::string path = scratch / "a.log";
        QzLogFile& log = QzLogFile::GetInstance(false);
        log.SetFilterRepeat(0);
        ASSERT_TRUE(log.Open(K(path), 1, mode));
        QzLogFollower follower(K(path));
        AddItem(path, "1");
        EXPECT_EQ(NextMessages(follower, "1"), "1;");
        AddItem(path, "2");
        AddItem(path, "3");
        EXPECT_EQ(NextMessages(follower, "3"), "2;3;");
        log.SetFileSizeLimit(1, QzLogFile::NewFile);
        AddItem(path, "4"); // to a(1).log, as that is how it goes on
        EXPECT_EQ(NextMessages(follower, "4"), "4;");
        EXPECT_EQ(follower.GetFileName(), (scratch / "a(1).log").c_str());
        log.SetFileSizeLimit(-1);
        log.Close();
    }
}

// ---- QzRegistry

TEST(Registry, FindsExternalFilesInAnotherDirectory) {
    class File : public QzRegistry {
    public:
        File(const KeldMBString& path, const KeldMBString& directory) : QzRegistry(path, directory) {}
    };
    const ScratchDirectory scratch;
    WriteBytes(scratch / "a.xml", "<Z><s type='subreg'><b type='external'>b.xml</b></s></Z>");
    WriteBytes(scratch / "b.xml", "<Z><v>1</v><c type='external'>c.xml</c></Z>");
    WriteBytes(scratch / "c.xml", "<Z><v>2</v></Z>");
    File file(K(scratch / "a.xml"), K(scratch / ""));
    ASSERT_TRUE(file.Reload() && file.Save());
    EXPECT_EQ(QzRegistry(file).SubReg("s").SubFile("b").SubFile("c")["v"], "2");
    EXPECT_NE(ReadBytes(scratch / "a.xml").find(">b.xml<"), std::string::npos);
}

} // namespace
