#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <sys/stat.h>

#include "stream/qzbytearray.h"
#include "stream/qzfile.h"
#include "stream/qzfilestream.h"
#include "stream/qzmemorystream.h"
#include "stream/qzsprintf.h"
#include "stream/qztrace.h"
#include "support.h"

using namespace Qzc;

namespace {

std::string Bytes(const QzMemoryStream& stream) {
    return std::string(reinterpret_cast<const char*>(stream.GetData()),
                       static_cast<std::size_t>(stream.GetLength()));
}

KeldMBString Path(const std::string& path) {
    return KeldMBString(path);
}

} // namespace

TEST(Stream, ValuesAreLittleEndian) {
    QzMemoryStream stream;
    stream << std::int8_t{-2} << std::uint16_t{0x1234} << std::int32_t{-2}
           << std::uint64_t{0x0102030405060708} << -2.5F << 1.5 << KeldMBString("h\0i", 3);
    const std::string expected("\xFE"
                               "\x34\x12"
                               "\xFE\xFF\xFF\xFF"
                               "\x08\x07\x06\x05\x04\x03\x02\x01"
                               "\x00\x00\x20\xC0"
                               "\x00\x00\x00\x00\x00\x00\xF8\x3F"
                               "\x03\x00\x00\x00h\x00i",
                               34);
    EXPECT_EQ(Bytes(stream), expected);

    QzMemoryStream view(expected.data(), static_cast<std::int64_t>(expected.size()));
    std::int8_t i8 = 0;
    std::uint16_t u16 = 0;
    std::int32_t i32 = 0;
    std::uint64_t u64 = 0;
    float f = 0;
    double d = 0;
    KeldMBString text;
    text.SetCharset(KELDCharset::Big5);
    view >> i8 >> u16 >> i32 >> u64 >> f >> d >> text;
    EXPECT_EQ(i8, -2);
    EXPECT_EQ(u16, 0x1234);
    EXPECT_EQ(i32, -2);
    EXPECT_EQ(u64, 0x0102030405060708U);
    EXPECT_EQ(f, -2.5F);
    EXPECT_EQ(d, 1.5);
    EXPECT_EQ(text, KeldMBString("h\0i", 3));
    EXPECT_EQ(text.GetCharset(), KELDCharset::Big5);
    EXPECT_TRUE(view.IsGood());
}

TEST(Stream, AShortReadLeavesZerosAndIsRemembered) {
    QzMemoryStream view("\x01\x02\x03", 3);
    std::uint32_t value = 0xAAAAAAAA;
    view >> value;
    EXPECT_EQ(value, 0x030201U);
    EXPECT_FALSE(view.IsGood());
    view.ClearFailure();
    EXPECT_TRUE(view.Seek(3));
    EXPECT_FALSE(view.Seek(4));
    EXPECT_FALSE(view.Seek(-1));
    EXPECT_EQ(view.GetPosition(), 3);
    char nothing = 'n';
    EXPECT_EQ(view.Read(&nothing, -1), 0);
    EXPECT_TRUE(view.IsGood());
    EXPECT_EQ(QzByteArray("ab", 2)[1], 'b');
    EXPECT_EQ(QzByteArray("ab", 2)[2], 0);
    EXPECT_EQ(QzMemoryStream(nullptr, 5).GetLength(), 0);
}

TEST(Stream, AViewIsReadOnly) {
    const char bytes[] = "abc";
    QzMemoryStream view(bytes, 3);
    view << std::int8_t{1};
    EXPECT_FALSE(view.IsGood());
    view.Seek(2);
    EXPECT_EQ(view.Write("xy", 2), 0);
    EXPECT_STREQ(bytes, "abc");
}

TEST(Stream, RefusesCountsThatTheBytesDoNotCover) {
    const ScratchDirectory scratch;
    for (const std::string count : {"\xFF\xFF\xFF\xFF", "\xFF\xFF\xFF\x7F", "\x04\x00\x00\x00"}) {
        const std::string bytes = std::string(count.data(), 4).append(4 - count.size(), '\0') + "abc";
        WriteBytes(scratch / "file", bytes);
        QzMemoryStream memory(bytes.data(), 7);
        QzFileStream file(Path(scratch / "file"), QzFile::Access::Read, 5);
        for (QzStream* stream : {static_cast<QzStream*>(&memory), static_cast<QzStream*>(&file)}) {
            KeldMBString text("old");
            *stream >> text;
            EXPECT_EQ(text, "");
            EXPECT_FALSE(stream->IsGood());
            EXPECT_EQ(stream->GetPosition(), 4);
        }
    }
}

// Random reads, writes and seeks, with a plain string as the model of what the file must hold.
TEST(FileStream, BehavesAsItsBytesAtEveryBufferSize) {
    const ScratchDirectory scratch;
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t limit) { return static_cast<int>(random() % (limit + 1)); };
    for (const int bufferSize : {0, 1, 2, 7, 16, 64}) {
        const std::string path = scratch / std::to_string(bufferSize);
        std::string model = "0123456789";
        WriteBytes(path, model);
        QzFileStream stream(Path(path), QzFile::Access::ReadWrite, bufferSize);
        std::size_t position = 0;
        for (int step = 0; step < 3000; ++step) {
            ASSERT_EQ(stream.GetPosition(), static_cast<std::int64_t>(position));
            ASSERT_EQ(stream.GetLength(), static_cast<std::int64_t>(model.size()));
            const auto count = static_cast<std::size_t>(upTo(40));
            switch (upTo(3)) {
            case 0: {
                std::string bytes(count, '?');
                const std::string expected = model.substr(position, count);
                ASSERT_EQ(stream.Read(bytes.data(), static_cast<std::int64_t>(count)),
                          static_cast<std::int64_t>(expected.size()));
                ASSERT_EQ(bytes, expected + std::string(count - expected.size(), '\0'));
                position += expected.size();
                break;
            }
            case 1: {
                const std::string bytes(count, static_cast<char>('a' + upTo(25)));
                ASSERT_EQ(stream.Write(bytes.data(), static_cast<std::int64_t>(count)),
                          static_cast<std::int64_t>(count));
                model.replace(position, count, bytes);
                position += count;
                break;
            }
            case 2:
                position = static_cast<std::size_t>(upTo(model.size()));
                ASSERT_TRUE(stream.Seek(static_cast<std::int64_t>(position)));
                break;
            default: ASSERT_FALSE(stream.Seek(static_cast<std::int64_t>(model.size()) + 1));
            }
        }
        EXPECT_TRUE(stream.Close());
        EXPECT_EQ(ReadBytes(path), model);
        EXPECT_FALSE(stream.Seek(0));
        EXPECT_EQ(stream.Read(&position, 1), 0);
    }
}

TEST(FileStream, SaysThatBytesWereLost) {
    QzFileStream stream("/dev/full", QzFile::Access::Write);
    ASSERT_TRUE(stream.IsOpen());
    EXPECT_EQ(stream.Write("abc", 3), 3); // in the buffer
    EXPECT_TRUE(stream.IsGood());
    EXPECT_FALSE(stream.Close());
    EXPECT_FALSE(stream.IsGood());
    EXPECT_NE(stream.GetError(), "");
}

TEST(File, RefusesWhatIsNoFile) {
    const ScratchDirectory scratch;
    ASSERT_EQ(mkfifo((scratch / "pipe").c_str(), 0600), 0);
    for (const std::string& path : {scratch.Path(), scratch / "missing", scratch / "pipe", std::string()}) {
        QzFile file;
        EXPECT_FALSE(file.Open(Path(path), QzFile::Access::Read)) << path;
        EXPECT_NE(file.GetError(), "");
        EXPECT_FALSE(QzFileStream(Path(path), QzFile::Access::Read).IsOpen());
    }
    QzFile file;
    EXPECT_FALSE(file.Open(Path(scratch / "pipe"), QzFile::Access::Write));
    EXPECT_FALSE(file.Open(Path(scratch.Path()), QzFile::Access::ReadWrite));
    EXPECT_FALSE(QzFile::IsExist(Path(scratch.Path())));
}

TEST(File, IsReplacedWholeOrNotAtAll) {
    const ScratchDirectory scratch;
    KeldMBString error;
    const std::string path = scratch / "file";
    ASSERT_TRUE(QzFile::ReplaceAll(Path(path), "one", error));
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    std::filesystem::create_directory(scratch / "elsewhere");
    std::filesystem::create_symlink(path, scratch / "elsewhere/link");
    EXPECT_TRUE(QzFile::ReplaceAll(Path(scratch / "elsewhere\\link"), KeldMBString("t\0wo", 4), error));
    EXPECT_EQ(ReadBytes(path), std::string("t\0wo", 4));
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0604U);
    EXPECT_TRUE(std::filesystem::is_symlink(scratch / "elsewhere/link"));

    EXPECT_FALSE(QzFile::ReplaceAll(Path(scratch / "elsewhere"), "x", error));
    EXPECT_FALSE(QzFile::ReplaceAll(Path(scratch / "missing/file"), "x", error));
    EXPECT_NE(error, "");
    ASSERT_EQ(mkfifo((scratch / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(QzFile::ReplaceAll(Path(scratch / "pipe"), "x", error));
    EXPECT_TRUE(std::filesystem::is_fifo(scratch / "pipe"));
    // The file, the directory and the pipe: nothing temporary is left behind.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scratch.Path()), {}), 3);
}

TEST(File, PathsTakeBothSeparators) {
    EXPECT_EQ(QzFile::GetAbsolutePath("/a\\b/", "..\\c/.\\d.xml"), "/a/c/d.xml");
    EXPECT_EQ(QzFile::GetAbsolutePath("/a", "/x\\y"), "/x/y");
    KeldMBString text("a\\\x81\\b"); // the second byte of a character is no separator
    text.SetCharset(KELDCharset::GB2312);
    EXPECT_EQ(QzFile::ToNativePath(text), "a/\x81\\b");
    EXPECT_TRUE(QzFile::IsExist(QzFile::GetModulePath("MoBase") + "libMoBase.so"));
    EXPECT_EQ(QzFile::GetModulePath("Base"), "");
}

TEST(Text, SprintfCutsAndTraceReachesItsHandler) {
    char buffer[4] = "???";
    EXPECT_EQ(Qzsprintf(buffer, sizeof(buffer), "%d", 12345), 3);
    EXPECT_STREQ(buffer, "123");
    EXPECT_EQ(Qzsprintf(buffer, 0, "x"), 0);

    static std::string s_traced;
    const QzTraceHandler previous = SetTraceHandler([](const char* text) { s_traced += text; });
    qztrace("%s %d", "line", 1);
    SetTraceHandler(previous);
    EXPECT_EQ(s_traced, "line 1");
}
