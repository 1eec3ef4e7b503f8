#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "base/keldcolor.h"
#include "stream/qzbytearray.h"
#include "stream/qzfilestream.h"
#include "style/randomstyle.h"
#include "support.h"
#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

// The bytes that pairs of hexadecimal digits stand for; blanks are there for the reader.
std::string Hex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != ' ')
            bytes += static_cast<char>(std::stoi(text.substr(i++, 2), nullptr, 16));
    }
    return bytes;
}

std::string Saved(const QzStyle& style, int kind) {
    QzMemoryStream stream;
    style.Save(stream, kind);
    return Bytes(stream);
}

// Reads a record without its size word, as callers do. Whether all of it was there.
bool LoadRecord(QzStyle& style, const std::string& record, int kind) {
    QzMemoryStream stream(record.data(), static_cast<std::int64_t>(record.size()));
    const int size = style.Load(stream, kind);
    EXPECT_EQ(size, static_cast<int>(style.GetStyleSize(kind)) - 4);
    return stream.IsGood();
}

QzStyle Sample() {
    constexpr std::uint32_t Line = KELDRGB(0x11, 0x22, 0x33);
    constexpr std::uint32_t Back = KELDRGB(0x44, 0x55, 0x66);
    constexpr std::uint32_t Fore = KELDRGB(0x77, 0x88, 0x99);
    QzStyle style;
    // In the order of KeldStyle, tenths as integers: fixed colour; marker's style, angle, size, width and
    // height; line's style, colour and width; fill's style to centre offset; scaling.
    style.FromKeldStyle(
        {true, 1, 0x01020304, -3, 25, 10, 20, 5, Line, 3, 6, Back, Fore, false, 50, 2, 450, -2, 3, true});
    return style;
}

const std::string One = "000000000000F03F";
const std::string OneAndAHalf = "000000000000F83F";
const std::string Two = "0000000000000040";
const std::string MinusTwo = "00000000000000C0";
const std::string Stamp = "14051220";
const std::string Beginning = "02000000" + OneAndAHalf + Two;
const std::string Marker3D = OneAndAHalf + Two + "000000000000E03F 0000000000001040" + MinusTwo + One;

// The fields of the 3D block of each kind, as Set3D sets them.
const std::string Blocks3D[] = {
    "FF000033 00009040 02000000 61 62 0000C03F" + One + MinusTwo + "01 02000000 00" + Marker3D,
    "00FF00FF 0000FF00 01000000 73 00002040 0000003F 03000000 07000000 01 00",
    "00FF00FF 0000FF00 01000000 73 03000000 746F70 00002040 0000003F 000020C0 00004040 03000000",
    "02000000 6162 02000000 0000FF00 00" + Marker3D, ""};

const std::string FillFields = "32 02 C201 FEFF 0300";
const std::string MarkerRecord = "04030201 19000000 FDFFFFFF 11223300 0A000000 14000000";
const std::string LineRecord = "05000000 03000000 11223300";
const std::string RegionRecord = LineRecord + "06000000 77889900 445566FF" + FillFields;

} // namespace

TEST(Style, TenthsAreRoundedAwayFromZeroAndCutToTheField) {
    constexpr double Inf = std::numeric_limits<double>::infinity();
    QzStyle style;
    for (const auto& [set, expected] :
         {std::pair{0.25, 0.3}, {-0.25, -0.3}, {1e300, 214748364.7}, {-Inf, -214748364.8}, {std::nan(""), 0.0}}) {
        style.SetLineWidth(set);
        EXPECT_EQ(style.GetLineWidth(), expected) << set;
    }
    style.SetFillAngle(6553.7); // 65537 tenths: one more than 16 bits
    EXPECT_EQ(style.GetFillAngle(), 0.1);
}

TEST(Style, EqualityLeavesTheFixedColourAndTheScalingOut) {
    QzStyle before;
    before.SetFillBackOpaque(0);
    // The kinds of geometry that look another way when a field has changed; 3 stands for comparing all fields.
    const auto differs = [&](const std::string& expected, auto setter) {
        QzStyle changed = before;
        (changed.*setter)(1);
        EXPECT_EQ(QzStyle::IsSameDimensionStyle(before, changed, 3), before == changed);
        std::string kinds;
        for (int kind = 0; kind < 4; ++kind)
            kinds += QzStyle::IsSameDimensionStyle(before, changed, kind) ? "" : std::to_string(kind);
        EXPECT_EQ(kinds, expected);
    };
    const auto check = [&](const std::string& kinds, auto... setters) { (differs(kinds, setters), ...); };
    using S = QzStyle;
    check("", &S::SetIsFixedColor, &S::SetFixedColor, &S::SetScaleBySymbol);
    check("23", &S::SetFillBackColor, &S::SetFillForeColor, &S::SetFillStyle, &S::SetFillOpaqueRate,
          &S::SetFillGradientType, &S::SetFillAngle, &S::SetFillCenterOffsetX, &S::SetFillCenterOffsetY,
          &S::SetFillBackOpaque);
    check("03", &S::SetMarkerAngle, &S::SetMarkerSize, &S::SetMarkerStyle, &S::SetMarkerWidth, &S::SetMarkerHeight);
    check("123", static_cast<void (S::*)(int)>(&S::SetLineStyle), &S::SetLineWidth);
    check("0123", &S::SetLineColor, &S::SetTessellate);
}

TEST(Style, SymbolsAreOwnedAndCompared) {
    unsigned char bytes[] = {1, 2, 3, 4};
    QzStyle a;
    SetSymbols(a);
    QzStyle b = a;
    EXPECT_NE(b.GetMarkSymbolStyle(), a.GetMarkSymbolStyle());
    EXPECT_TRUE(a == b);
    b.SetMarkSymbolStyle(bytes, 4, 0xFFFFFFFF, 1); // a shorter one
    EXPECT_FALSE(QzStyle::IsSameDimensionStyle(a, b, 0));
    b.SetLineSymbolStyle(const_cast<unsigned char*>(b.GetLineSymbolStyle()), 8, 9, 1); // another version
    EXPECT_FALSE(QzStyle::IsSameDimensionStyle(a, b, 1));
    b = a;
    EXPECT_TRUE(a == b);
    b.ClearFillSymbolStyle();
    EXPECT_FALSE(QzStyle::IsSameDimensionStyle(a, b, 2)); // one has none
    a.ClearFillSymbolStyle();
    EXPECT_TRUE(a == b); // both have none

    auto* const taken = new unsigned char[2]{5, 6};
    EXPECT_TRUE(a.SetFillSymbolStyle(taken, 2, 1, 0));
    EXPECT_TRUE(a.SetFillSymbolStyle(taken, 1, 7, 0)); // its own: nothing is freed
    EXPECT_EQ(a.GetFillSymbolStyle(), taken);
    EXPECT_EQ(taken[0], 5);

    const QzStyle moved = std::move(a);
    EXPECT_EQ(moved.GetMarkerSymbolLength(), 5U);
    EXPECT_EQ(a.GetMarkerSymbolLength(), 0U); // NOLINT: a moved-from style is an empty one
    b = moved;
    b.SetIconName("icon");
    const QzStyle copy = b;
    EXPECT_TRUE(copy == b);
    b.SetIconName("other"); // which the copy has no part in
    EXPECT_EQ(copy.GetIconName(), "icon");
}

TEST(Style, ColoursFollowBetween2DAnd3D) {
    QzStyle style;
    style.SetLineColor(KELDRGB(255, 0, 51));
    style.Convert2DTo3DStyle(); // opaque
    EXPECT_EQ(style.GetLineColor3D(), QzColorValue3D(1, 0, 0.2, 1));
    EXPECT_EQ(style.GetPointColor(), QzColorValue3D(1, 0, 0.2, 1));
    EXPECT_EQ(style.GetFillColor().GetValue(), 0xFF000000 | KELDRGB(189, 235, 255));

    style.SetLineColor3D({0, 0, 1, 0.25});
    style.SetFillColor({1, 0, 0, 0.75});
    style.Convert3DTo2DStyle();
    EXPECT_EQ(style.GetLineColor(), KELDRGB(0, 0, 255));
    EXPECT_EQ(style.GetFillForeColor(), KELDRGB(255, 0, 0));
    style.SetLineColor(KELDRGB(255, 0, 51));
    style.SetFillForeColor(KELDRGB(0, 255, 0));
    EXPECT_EQ(style.GetLineColor3D(), QzColorValue3D(1, 0, 0.2, 0.25));
    EXPECT_EQ(style.GetFillColor(), QzColorValue3D(0, 1, 0, 0.75));
}

TEST(StyleRecord, HasTheBytesOfItsLayout) {
    const std::string markerSymbol = "05000000 0102030405 FFFFFFFF";
    const std::string lineSymbol = "08000000 0102030405060708 02000000";
    const std::string fillSymbol = "01000000 01 03000000";
    QzStyle style = Sample();
    EXPECT_EQ(Saved(style, 2), Hex("2C000000" + RegionRecord + "00000000 00000000"));
    EXPECT_EQ(Saved(style, 3), Hex("04000000"));
    EXPECT_EQ(Saved(style, 5), Hex("00000000"));
    SetSymbols(style);
    EXPECT_EQ(Saved(style, 0), Hex("35000000" + MarkerRecord + markerSymbol + FillFields + "44556600"));
    EXPECT_EQ(Saved(style, 1), Hex("20000000" + LineRecord + lineSymbol));
    EXPECT_EQ(Saved(style, 2), Hex("3D000000" + RegionRecord + lineSymbol + fillSymbol));

    QzStyle loaded;
    EXPECT_TRUE(LoadRecord(loaded, Saved(style, 2).substr(4), 2));
    EXPECT_EQ(loaded.GetFillBackOpaque(), 0);
    EXPECT_EQ(loaded.GetFillBackColor(), 0xFF665544U); // the whole word
    style.SetFillBackOpaque(1);
    EXPECT_TRUE(LoadRecord(loaded, Saved(style, 2).substr(4), 2));
    EXPECT_TRUE(QzStyle::IsSameDimensionStyle(loaded, style, 2));
    EXPECT_EQ(loaded.GetMarkerSize(), 2.4); // no field of this record
}

TEST(StyleRecord, OfAllFieldsHasTheBytesOfItsLayout) {
    QzStyle style = Sample();
    const std::string begin = "04030201 19000000 FDFFFFFF" + LineRecord + "06000000 77889900";
    for (const bool opaque : {false, true}) {
        style.SetFillBackOpaque(opaque);
        QzMemoryStream stream;
        style.SaveAll(stream);
        EXPECT_EQ(Bytes(stream), Hex(begin + (opaque ? "44556600" : "FFFFFFFF") + FillFields));
        EXPECT_EQ(stream.GetLength(), QzStyle::GetStoreSize());
        for (const int size : {35, 36, 43, 44}) {
            QzStyle loaded;
            stream.Seek(0);
            EXPECT_EQ(loaded.LoadAll(stream, size), size >= 36);
            EXPECT_EQ(stream.GetPosition(), size < 36 ? 0 : size < 44 ? 36 : 44);
            EXPECT_EQ(loaded.GetLineWidth(), size < 36 ? 0.1 : 0.3);
            EXPECT_EQ(loaded.GetFillOpaqueRate(), size < 44 ? 100 : 50);
            EXPECT_EQ(QzStyle::IsSameFillStyle(loaded, style), opaque && size == 44);
            EXPECT_EQ(loaded.GetFillBackOpaque(), opaque || size < 36);
        }
    }
}

TEST(StyleRecord, The3DBlockHasTheBytesOfItsLayout) {
    QzStyle style;
    Set3D(style);
    for (int kind = 0; kind <= 6; ++kind) {
        const std::string expected = Hex(Stamp + Beginning + (kind < 5 ? Blocks3D[kind] : "00000000"));
        EXPECT_EQ(style.GetStyleEx()->GetStyleSize(kind), expected.size()) << kind;
        const std::string record = Saved(style, kind); // the style's own in front; its size word counts both
        EXPECT_EQ(record.substr(Saved(QzStyle(), kind).size()), expected) << kind;
        EXPECT_EQ(static_cast<unsigned char>(record[0]), kind < 5 ? record.size() : 0) << kind;
        QzStyle loaded;
        EXPECT_TRUE(LoadRecord(loaded, record.substr(4), kind));
        EXPECT_EQ(Saved(loaded, kind), record) << kind;
        EXPECT_FALSE(loaded.IsModified()) << kind;
    }
}

TEST(StyleRecord, The3DBlockWithoutAStampIsReadAsFarAsItGoes) {
    std::int64_t left = 0;
    const auto load = [&left](const std::string& bytes, int kind, QzStyleEx& style) {
        QzMemoryStream stream(bytes.data(), static_cast<std::int64_t>(bytes.size()));
        style.Load(stream, kind);
        left = stream.GetRemaining();
        return stream.IsGood();
    };
    for (int kind = 0; kind <= 4; ++kind) {
        const std::string old = Hex(Beginning + Blocks3D[kind]);
        QzStyleEx today;
        QzStyleEx style;
        EXPECT_TRUE(load(Hex(Stamp) + old, kind, today) && load(old, kind, style));
        EXPECT_TRUE(style == today) << kind;
        for (std::size_t length = 0; length < old.size(); ++length) {
            QzStyleEx part;
            const bool good = load(old.substr(0, length), kind, part);
            // What all kinds share must be there; a text that is cut cannot be told from a wrong length.
            EXPECT_TRUE(!good || (length >= 20 && left < 8)) << kind << ' ' << length;
            EXPECT_EQ(part == QzStyleEx(), !good) << kind << ' ' << length;
            QzStyleEx stamped;
            EXPECT_FALSE(load(Hex(Stamp) + old.substr(0, length), kind, stamped)) << kind << ' ' << length;
            EXPECT_TRUE(stamped == QzStyleEx()) << kind << ' ' << length;
        }
    }
    QzStyleEx style;
    EXPECT_TRUE(load(Hex(Beginning + "00FF00FF 0000FF00 01000000 73 00002040 0000"), 1, style));
    EXPECT_EQ(style.GetSideTexture(), "s");
    EXPECT_EQ(style.GetTilingU(), 2.5F);
}

TEST(StyleRecord, RandomOnesLoadInARow) {
    const ScratchDirectory scratch;
    RandomStyle random(1);
    std::vector<std::pair<int, std::string>> records;
    std::string all;
    for (int i = 0; i < 4000; ++i) {
        const QzStyle style = random.Make(random.Chance());
        const int kind = random.UpTo(4);
        records.emplace_back(kind, Saved(style, kind));
        EXPECT_EQ(style.GetStyleSize(kind), records.back().second.size());
        all += records.back().second;
        KeldStyle plain;
        style.ToKeldStyle(plain);
        QzStyle copy = style;
        copy.ClearSymbolStyle();
        QzStyle made;
        made.FromKeldStyle(plain);
        EXPECT_TRUE(made == copy);
        EXPECT_EQ(made.GetHashCode(), style.GetHashCode());
    }
    WriteBytes(scratch / "records", all);
    QzFileStream file;
    ASSERT_TRUE(file.Open((scratch / "records").c_str(), QzFileStream::Direction::Read));
    QzStyle style;
    for (const auto& [kind, record] : records) {
        const std::int64_t next = file.GetPosition() + static_cast<std::int64_t>(record.size());
        const bool skips = random.UpTo(9) == 0;
        style = QzStyle();
        EXPECT_TRUE(skips ? QzStyle::SkipNext(file) : QzStyle::LoadNext(file, kind, style));
        EXPECT_EQ(file.GetPosition(), next);
        EXPECT_TRUE(skips || Saved(style, kind) == record);
    }
    EXPECT_FALSE(QzStyle::LoadNext(file, 0, style) || QzStyle::SkipNext(file));
    EXPECT_TRUE(file.IsGood()); // the end is no failure
}

// Cut anywhere, behind a size word that tells so: the style is left alone, and the next record found all the same.
TEST(StyleRecord, WhatIsNotWholeChangesNothing) {
    RandomStyle random(2);
    for (int kind = 0; kind <= 4; ++kind) {
        const std::string record = Saved(random.Make(true), kind);
        const QzStyle before = random.Make(random.Chance());
        const std::size_t withoutBlock = Saved(QzStyle(), kind).size();
        for (std::size_t length = 4; length < record.size(); ++length) {
            std::string row = record.substr(0, length) + record;
            row[0] = static_cast<char>(length & 0xFF);
            row[1] = static_cast<char>(length >> 8);
            QzMemoryStream stream(row.data(), static_cast<std::int64_t>(row.size()));
            QzStyle style = before;
            const bool good = QzStyle::LoadNext(stream, kind, style);
            EXPECT_EQ(stream.IsGood(), good);
            EXPECT_TRUE(!good || length >= withoutBlock); // it may be cut where the 3D block begins
            EXPECT_EQ(style == before, !good || length == 4) << kind << ' ' << length;
            EXPECT_TRUE(QzStyle::LoadNext(stream, kind, style));
            EXPECT_EQ(Saved(style, kind), record);
            style = before;
            EXPECT_EQ(LoadRecord(style, record.substr(4, length - 4), kind), good); // without a size word, too
        }
        // A size word that cannot be: too small, beyond the end, not whole.
        for (const std::string size : {"00000000", "01000000", "03000000", "00000080", "FFFFFFFF", "0000"}) {
            const std::string bytes = Hex("FF" + size) + (size.size() == 8 ? record : "");
            for (const bool skips : {true, false}) {
                QzMemoryStream stream(bytes.data(), static_cast<std::int64_t>(bytes.size()));
                stream.Seek(1);
                QzStyle style = before;
                EXPECT_FALSE(skips ? QzStyle::SkipNext(stream) : QzStyle::LoadNext(stream, kind, style));
                EXPECT_TRUE(!stream.IsGood() && stream.GetPosition() == 1 && style == before);
            }
        }
    }
}

TEST(StyleRecord, LyingLengthsAreFailedReads) {
    QzStyle style;
    SetSymbols(style);
    style.SetIconName("old");
    const QzStyle before = style;
    for (const std::string length : {"FFFFFFFF", "FFFFFF7F", "00000080", "06000000"}) {
        const std::string records[] = {MarkerRecord, LineRecord, RegionRecord + "00000000", Stamp + Beginning};
        for (int kind = 0; kind < 4; ++kind)
            EXPECT_FALSE(LoadRecord(style, Hex(records[kind] + length) + "12345", kind));
        EXPECT_TRUE(style == before);
    }
}
