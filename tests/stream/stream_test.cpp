#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <random>
#include <tuple>

#include "stream/qzbytearray.h"
#include "stream/qzfile.h"
#include "stream/qzfilestream.h"
#include "stream/qzmemorystream.h"
#include "support.h"

using namespace Qzc;
using namespace std::string_literals;

TEST(Stream, ValuesAreLittleEndian) {
    QzMemoryStream stream;
    stream << std::int8_t{-2} << std::uint16_t{0x1234} << std::int32_t{-2} << std::uint64_t{0x0102030405060708} << -2.5F
           << 1.5 << KeldMBString("h\0i", 3);
    const std::string_view expected("\xFE\x34\x12\xFE\xFF\xFF\xFF\x08\x07\x06\x05\x04\x03\x02\x01"
                                    "\x00\x00\x20\xC0\x00\x00\x00\x00\x00\x00\xF8\x3F\x03\x00\x00\x00h\x00i",
                                    34);
    EXPECT_EQ(Bytes(stream), expected);

    QzMemoryStream view(expected.data(), 34);
    std::tuple<std::int8_t, std::uint16_t, std::int32_t, std::uint64_t, float, double, KeldMBString> values;
    std::get<KeldMBString>(values).SetCharset(KELDCharset::Big5);
    std::apply([&](auto&... value) { (view >> ... >> value); }, values);
    EXPECT_EQ(values, std::make_tuple(-2, 0x1234, -2, 0x0102030405060708U, -2.5F, 1.5, KeldMBString("h\0i", 3)));
    EXPECT_EQ(std::get<KeldMBString>(values).GetCharset(), KELDCharset::Big5);
    EXPECT_TRUE(view.IsGood());
}

TEST(Stream, AViewEndsAndIsReadOnly) {
    const char bytes[] = "\x01\x02\x03";
    QzMemoryStream view(bytes, 3);
    std::uint32_t value = 0xAAAAAAAA;
    view >> value;
    EXPECT_EQ(value, 0x030201U); // what is missing reads as zeros
    EXPECT_FALSE(view.IsGood());
    view.ClearFailure();
    EXPECT_FALSE(!view.Seek(3) || view.Seek(4) || view.Seek(-1) || view.Read(&value, -1) != 0 || !view.IsGood());
    view.Seek(0);
    view << std::int8_t{9};
    EXPECT_FALSE(view.IsGood());
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(QzMemoryStream(nullptr, 5).GetLength(), 0);
}

TEST(Stream, RefusesCountsThatTheBytesDoNotCover) {
    const ScratchDirectory scratch;
    for (const std::string& count : {"\xFF\xFF\xFF\xFF"s, "\xFF\xFF\xFF\x7F"s, "\4\0\0\0"s}) {
        const std::string bytes = count + "abc";
        WriteBytes(scratch / "file", bytes);
        QzMemoryStream memory(bytes.data(), 7);
        QzFileStream file(KeldMBString(scratch / "file"), QzFile::Access::Read, 5);
        for (QzStream* stream : {static_cast<QzStream*>(&memory), static_cast<QzStream*>(&file)}) {
            KeldMBString text("old");
            *stream >> text;
            EXPECT_EQ(text, "");
            EXPECT_FALSE(stream->IsGood());
            EXPECT_EQ(stream->GetPosition(), 4);
        }
        EXPECT_EQ(QzMemoryStream(bytes.data(), 7).ReadCount(4), 0);
    }
}

namespace {

// Random reads, writes and seeks, with a plain string as the model of what the stream must hold.
template <class Stream, class Other>
void BehaveAsBytes(Stream& stream, std::string& model, Other other) {
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t limit) { return static_cast<std::size_t>(random() % (limit + 1)); };
    std::size_t position = 0;
    for (int step = 0; step < 3000; ++step) {
        ASSERT_EQ(stream.GetPosition(), position);
        ASSERT_EQ(stream.GetLength(), model.size());
        const std::size_t count = upTo(40);
        const auto wanted = static_cast<std::int64_t>(count);
        std::string bytes(count, static_cast<char>('a' + upTo(25)));
        switch (upTo(4)) {
        case 0: {
            const std::string expected = model.substr(position, count);
            ASSERT_EQ(stream.Read(bytes.data(), wanted), expected.size());
            ASSERT_EQ(bytes, expected + std::string(count - expected.size(), '\0'));
            position += expected.size();
            break;
        }
        case 1:
            ASSERT_EQ(stream.Write(bytes.data(), wanted), wanted);
            model.replace(position, count, bytes);
            position += count;
            break;
        case 2:
            position = upTo(model.size());
            ASSERT_TRUE(stream.Seek(static_cast<std::int64_t>(position)));
            break;
        case 3: other(stream, model, position, upTo(model.size())); break;
        default: ASSERT_FALSE(stream.Seek(static_cast<std::int64_t>(model.size()) + 1));
        }
    }
}

} // namespace

TEST(FileStream, BehavesAsItsBytesAtEveryBufferSize) {
    const ScratchDirectory scratch;
    for (const int bufferSize : {0, 2, 7, 64}) {
        const std::string path = scratch / std::to_string(bufferSize);
        std::string model = "0123456789";
        WriteBytes(path, model);
        QzFileStream stream(KeldMBString(path), QzFile::Access::ReadWrite, bufferSize);
        ASSERT_NO_FATAL_FAILURE(BehaveAsBytes(stream, model, [](auto&, auto&, auto&, std::size_t) {}));
        EXPECT_TRUE(stream.Close());
        EXPECT_EQ(ReadBytes(path), model);
    }
}

// Its own bytes are written to it, from anywhere; room is made now and then, which moves neither bytes nor position.
TEST(ByteArray, BehavesAsItsBytes) {
    std::string model;
    QzByteArray array;
    ASSERT_NO_FATAL_FAILURE(
        BehaveAsBytes(array, model, [](QzByteArray& bytes, std::string& held, std::size_t& position, std::size_t from) {
            if (held.size() > 5000) {
                bytes.Reserve(bytes.GetLength() + 1000);
                return;
            }
            const std::string own = held.substr(from);
            const auto count = static_cast<std::int64_t>(own.size());
            ASSERT_EQ(bytes.Write(bytes.GetData() + from, count), count);
            held.replace(position, own.size(), own);
            position += own.size();
        }));
    EXPECT_EQ(Bytes(array), model);
    EXPECT_GT(model.size(), 1000U);
    EXPECT_EQ(array.Write(array.GetData(), std::numeric_limits<std::int64_t>::max()), 0);
    EXPECT_EQ(Bytes(array), model);
}

TEST(FileStream, SaysThatBytesWereLost) {
    if (FullDevice().empty())
        GTEST_SKIP() << "no device here that takes nothing";
    QzFileStream stream(KeldMBString(FullDevice()), QzFile::Access::Write);
    EXPECT_EQ(stream.Write("abc", 3), 3); // in the buffer
    EXPECT_FALSE(!stream.IsGood() || stream.Close() || stream.IsGood());
}

TEST(File, RefusesWhatIsNoFile) {
    const ScratchDirectory scratch;
    const std::string pipe = MakePipe(scratch / "pipe") ? scratch / "pipe" : scratch.Path();
    ASSERT_EQ(pipe != scratch.Path(), PosixFiles);
    WriteBytes(scratch / "file", "kept");
    using Access = QzFile::Access;
    const std::pair<std::string, Access> cases[] = {
        {scratch.Path(), Access::Read}, {scratch / "missing", Access::Read},        {pipe, Access::Read},
        {pipe, Access::Write},          {scratch / "file" + "\0x"s, Access::Write}, {"", Access::Read}};
    for (const auto& [path, access] : cases) {
        QzFile file;
        EXPECT_FALSE(file.Open(KeldMBString(path), access) || QzFile::IsExist(KeldMBString(path))) << path;
        EXPECT_FALSE(QzFileStream(KeldMBString(path), access).IsOpen());
    }
    const KeldMBString cut(scratch / "file" + "\0x"s); // the file before the zero byte is another one
    QzFile::Remove(cut);
    KeldMBString error;
    EXPECT_FALSE(QzFile::ReplaceAll(cut, "x", error));
    EXPECT_EQ(ReadBytes(scratch / "file"), "kept");
}

TEST(File, IsReadToItsEnd) {
    const ScratchDirectory scratch;
    std::string bytes;
    while (bytes.size() < 100000)
        bytes += std::to_string(bytes.size());
    WriteBytes(scratch / "file", bytes);
    QzFile file;
    KeldMBString text;
    ASSERT_TRUE(file.Open(KeldMBString(scratch / "file"), QzFile::Access::Read));
    EXPECT_TRUE(file.Seek(50) && file.ReadAll(text)); // from the start, wherever it is
    EXPECT_EQ(text.View(), bytes);
    std::filesystem::resize_file(scratch / "file", 0);
    EXPECT_TRUE(file.ReadAll(text));
    EXPECT_EQ(text, "");
    // The system tells 0 for the length of this one.
    ASSERT_TRUE(file.Open("/proc/self/status", QzFile::Access::Read) && file.ReadAll(text));
    EXPECT_GE(text.Find("VmPeak"), 0);
}

TEST(File, IsReplacedWholeOrNotAtAll) {
    const ScratchDirectory scratch;
    const auto replace = [&](const std::string& path, const KeldMBString& text) {
        KeldMBString error;
        const bool replaced = QzFile::ReplaceAll(KeldMBString(scratch / path), text, error);
        EXPECT_EQ(replaced, error.IsEmpty());
        return replaced;
    };
    using std::filesystem::perms;
    ASSERT_TRUE(replace("file", "one"));
    EXPECT_TRUE(replace("file", KeldMBString("t\0wo", 4)));
    EXPECT_EQ(ReadBytes(scratch / "file"), "t\0wo"s);
    std::filesystem::create_directory(scratch / "elsewhere");
    EXPECT_FALSE(replace("elsewhere", "x") || replace("missing/file", "x"));
    EXPECT_EQ(FilesIn(scratch.Path()).size(), 2U); // nothing temporary is left behind
    if (!PosixFiles)
        return;
    std::filesystem::permissions(scratch / "file", perms{0606});
    std::filesystem::create_symlink(scratch / "file", scratch / "elsewhere/link");
    EXPECT_TRUE(replace("elsewhere\\link", "three"));
    EXPECT_EQ(ReadBytes(scratch / "file"), "three");
    EXPECT_EQ(std::filesystem::status(scratch / "file").permissions(), perms{0606});
    EXPECT_TRUE(std::filesystem::is_symlink(scratch / "elsewhere/link"));
    ASSERT_TRUE(MakePipe(scratch / "pipe"));
    EXPECT_FALSE(replace("pipe", "x"));
    EXPECT_EQ(FilesIn(scratch.Path()).size(), 3U);
}

TEST(File, PathsTakeBothSeparators) {
    EXPECT_EQ(QzFile::GetAbsolutePath("/a\\b/", "..\\c/.\\d.xml"), Native("/a/c/d.xml").c_str());
    KeldMBString parts[] = {"a.b\\c.d", "", ""};
    QzFile::SplitPath(parts[0], parts[0], parts[1], parts[2]);
    EXPECT_TRUE(parts[0] == Native("a.b/").c_str() && parts[1] == "c" && parts[2] == ".d");
    KeldMBString text("a\\\x81\\b"); // the second byte of a character is no separator
    text.SetCharset(KELDCharset::GB2312);
    EXPECT_EQ(QzFile::ToNativePath(text), PosixFiles ? "a/\x81\\b" : "a\\\x81\\b");
    const KeldMBString directory = QzFile::GetModulePath("MoBase");
    EXPECT_TRUE(QzFile::IsExist(directory + (PosixFiles ? "libMoBase.so" : "MoBase.dll")));
}
