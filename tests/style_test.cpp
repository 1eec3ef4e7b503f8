#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "base/keldcolor.h"
#include "randomstyle.h"
#include "stream/qzbytearray.h"
#include "support.h"
#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

// The bytes that pairs of hexadecimal digits stand for; everything else is there for the reader.
std::string Hex(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)))
            digits += c;
    }
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string Bytes(const QzMemoryStream& stream) {
    return std::string(reinterpret_cast<const char*>(stream.GetData()),
                       static_cast<std::size_t>(stream.GetLength()));
}

std::string Saved(const QzStyle& style, int kind) {
    QzMemoryStream stream;
    style.Save(stream, kind);
    EXPECT_TRUE(stream.IsGood());
    return Bytes(stream);
}

// Reads a record without its size word, as callers do. Whether all of it was there.
bool LoadRecord(QzStyle& style, const std::string& record, int kind, int* result = nullptr) {
    QzMemoryStream stream(record.data(), static_cast<std::int64_t>(record.size()));
    const int size = style.Load(stream, kind);
    if (result != nullptr)
        *result = size;
    return stream.IsGood();
}

void SetSymbols(QzStyle& style) {
    unsigned char marker[] = {0xAA, 0xBB, 0xCC};
    unsigned char line[] = {0x01, 0x02};
    unsigned char fill[] = {0x0F};
    EXPECT_TRUE(style.SetMarkSymbolStyle(marker, 3, 7, 1));
    EXPECT_TRUE(style.SetLineSymbolStyle(line, 2, 8, 1));
    EXPECT_TRUE(style.SetFillSymbolStyle(fill, 1, 9, 1));
}

QzStyle Sample() {
    QzStyle style;
    style.SetMarkerStyle(0x01020304);
    style.SetMarkerSize(2.5);
    style.SetMarkerAngle(-0.25);
    style.SetMarkerWidth(1.0);
    style.SetMarkerHeight(2.0);
    style.SetLineStyle(5);
    style.SetLineColor(KELDRGB(0x11, 0x22, 0x33));
    style.SetLineWidth(0.25);
    style.SetFillStyle(6);
    style.SetFillForeColor(KELDRGB(0x77, 0x88, 0x99));
    style.SetFillBackColor(KELDRGB(0x44, 0x55, 0x66));
    style.SetFillBackOpaque(0);
    style.SetFillOpaqueRate(50);
    style.SetFillGradientType(2);
    style.SetFillAngle(45);
    style.SetFillCenterOffsetX(-2);
    style.SetFillCenterOffsetY(3);
    return style;
}

void Set3D(QzStyle& style) {
    style.SetAltitudeMode(Absolute);
    style.SetBottomAltitude(1.5F);
    style.SetExtendHeight(2);
    style.SetPointColor({1, 0, 0, 0.2});
    style.SetPointSize(2.5F);
    style.SetIconName("ab");
    style.SetIconScale(0.5F);
    style.SetIconAnchorPoint({1, -2});
    style.SetMarker3D(1);
    style.SetBillBoardMode(FIXED_ANGLE);
    style.SetFixedPixelSize(0);
    style.SetMarker3DScaleX(1.5);
    style.SetMarker3DScaleY(2);
    style.SetMarker3DRotateY(-2);
    style.SetMarker3DRotateZ(1);
    style.SetLineColor3D({0, 1, 0, 1});
    style.SetFillColor({0, 0, 1, 0});
    style.SetSideTexture("s");
    style.SetTopTexture("top");
    style.SetTilingU(2.5F);
    style.SetTilingV(0.5F);
    style.SetTopTilingU(-2.5F);
    style.SetFill3DMode(FILL_FACEANDLINE);
    style.SetPipeSides(6);
    style.SetFiletEnable(1);
    style.SetTessellate(1);
}

const std::string One = "000000000000F03F";
const std::string OneAndAHalf = "000000000000F83F";
const std::string Two = "0000000000000040";
const std::string MinusTwo = "00000000000000C0";
const std::string Zero = "0000000000000000";
const std::string Stamp = "14051220";
const std::string Beginning = "02000000" + OneAndAHalf + Two;
const std::string Marker3D = OneAndAHalf + Two + One + Zero + MinusTwo + One;

// The fields of the 3D block of each kind, as Set3D sets them.
const std::string Blocks3D[] = {
    "FF000033 00002040 02000000 61 62 0000003F" + One + MinusTwo + "01 02000000 00" + Marker3D,
    "00FF00FF 0000FF00 01000000 73 00002040 0000003F 03000000 06000000 01 01",
    "00FF00FF 0000FF00 01000000 73 03000000 746F70 00002040 0000003F 000020C0 0000803F 03000000",
    "02000000 6162 02000000 0000FF00 00" + Marker3D, ""};

} // namespace

TEST(Color, PartsLieRedFirst) {
    EXPECT_EQ(KELDRGB(1, 2, 3), 0x030201U);
    EXPECT_EQ(KELDRGB(256, -1, 0x1FF), 0xFFFF00U);
    EXPECT_EQ(KELDREDVAL(0xFF030201), 1);
    EXPECT_EQ(KELDGREENVAL(0xFF030201), 2);
    EXPECT_EQ(KELDBLUEVAL(0xFF030201), 3);
    EXPECT_EQ(QzColorValue3D::Yellow.GetValue(), 0xFF00FFFFU);
    EXPECT_EQ(QzColorValue3D(-1, 2, std::nan(""), 0.5).GetValue(), 0x8000FF00U);
    for (std::uint32_t part = 0; part < 256; ++part) {
        const std::uint32_t value = part | (255 - part) << 8 | (part ^ 0x55) << 16 | part << 24;
        EXPECT_EQ(QzColorValue3D(value).GetValue(), value);
    }
}

TEST(Style, TenthsAreRoundedAwayFromZeroAndCutToTheField) {
    constexpr double Inf = std::numeric_limits<double>::infinity();
    const std::pair<double, double> rows[] = {
        {0.25, 0.3},          {-0.25, -0.3},      {0.0, 0.0},           {0.04, 0.0},
        {-0.04, 0.0},         {12.34, 12.3},      {1e300, 214748364.7}, {214748364.7, 214748364.7},
        {-Inf, -214748364.8}, {std::nan(""), 0.0}};
    for (const auto& [set, expected] : rows) {
        QzStyle style;
        style.SetLineWidth(set);
        style.SetMarkerAngle(set);
        style.SetMarkerSize(set);
        style.SetMarkerWidth(set);
        style.SetMarkerHeight(set);
        for (const double got : {style.GetLineWidth(), style.GetMarkerAngle(), style.GetMarkerSize(),
                                 style.GetMarkerWidth(), style.GetMarkerHeight()})
            EXPECT_EQ(got, expected) << set;
    }
    QzStyle style;
    style.SetFillAngle(6553.7); // 65537 tenths: one more than 16 bits
    EXPECT_EQ(style.GetFillAngle(), 0.1);
}

TEST(Style, EqualityLeavesTheFixedColourAndTheScalingOut) {
    const QzStyle style;
    QzStyle other;
    other.SetIsFixedColor(1);
    other.SetFixedColor(1);
    other.SetScaleBySymbol(1);
    EXPECT_TRUE(style == other);
    EXPECT_EQ(style.GetHashCode(), other.GetHashCode());

    // Every other field counts; `sameKinds` are the kinds that still look the same when it has changed.
    const auto check = [&](const char* sameKinds, auto... setters) {
        const auto checkOne = [&](auto set) {
            QzStyle changed;
            (changed.*set)(1);
            EXPECT_TRUE(style != changed) << sameKinds;
            std::string same;
            for (int kind = 0; kind < 3; ++kind)
                same += QzStyle::IsSameDimensionStyle(style, changed, kind) ? std::to_string(kind) : "";
            EXPECT_EQ(same, sameKinds);
            (other.*set)(1);
        };
        (checkOne(setters), ...);
    };
    using S = QzStyle;
    check("01", &S::SetFillBackColor, &S::SetFillForeColor, &S::SetFillStyle, &S::SetFillOpaqueRate,
          &S::SetFillGradientType, &S::SetFillAngle, &S::SetFillCenterOffsetX, &S::SetFillCenterOffsetY);
    check("12", &S::SetMarkerAngle, &S::SetMarkerSize, &S::SetMarkerStyle, &S::SetMarkerWidth,
          &S::SetMarkerHeight);
    check("0", static_cast<void (S::*)(int)>(&S::SetLineStyle), &S::SetLineWidth);
    check("", &S::SetLineColor, &S::SetTessellate);
    QzStyle transparent;
    transparent.SetFillBackOpaque(0);
    EXPECT_FALSE(QzStyle::IsSameFillStyle(style, transparent));
    EXPECT_FALSE(transparent == style);
    EXPECT_FALSE(QzStyle::IsSameDimensionStyle(style, other, 3));

    QzStyle turned;
    turned.SetMarkerAngle(90);
    EXPECT_NE(turned.GetHashCode(), style.GetHashCode());
    EXPECT_EQ(turned.GetHashCodeWithoutAngle(), style.GetHashCodeWithoutAngle());
}

TEST(Style, SymbolsAreOwnedAndCompared) {
    unsigned char bytes[] = {1, 2, 3};
    QzStyle a;
    {
        const AssertionLog log;
        EXPECT_FALSE(a.SetMarkSymbolStyle(nullptr, 3, 1, 1));
        EXPECT_FALSE(a.SetLineSymbolStyle(nullptr, 3, 1, 0));
        EXPECT_FALSE(a.SetFillSymbolStyle(nullptr, 1));
        EXPECT_EQ(AssertionLog::Texts(), (std::vector<std::string>{"pMarkerSymbolBuffer", "pLineSymbolBuffer",
                                                                   "pFillSymbolStream"}));
    }
    SetSymbols(a);
    EXPECT_FALSE(a.SetMarkSymbolStyle(bytes, 0, 1, 1));
    EXPECT_EQ(a.GetMarkerSymbolVersion(), 7U);

    QzStyle b = a;
    EXPECT_NE(b.GetMarkSymbolStyle(), a.GetMarkSymbolStyle());
    EXPECT_TRUE(a == b);
    b.SetMarkSymbolStyle(bytes, 3, 7, 1); // other bytes
    EXPECT_FALSE(QzStyle::IsSameMarkerSymbolStyle(a, b));
    b = a;
    b.SetLineSymbolStyle(const_cast<unsigned char*>(b.GetLineSymbolStyle()), 2, 9, 1); // another version
    EXPECT_FALSE(QzStyle::IsSameLineSymbolStyle(a, b));
    b = a;
    b.ClearFillSymbolStyle();
    EXPECT_EQ(b.GetFillSymbolLength(), 0U);
    EXPECT_FALSE(QzStyle::IsSameFillSymbolStyle(a, b)); // one has none
    a.ClearFillSymbolStyle();
    EXPECT_TRUE(a == b); // both have none

    auto* const taken = new unsigned char[2]{5, 6};
    EXPECT_TRUE(a.SetFillSymbolStyle(taken, 2, 1, 0));
    EXPECT_EQ(a.GetFillSymbolStyle(), taken);
    QzMemoryStream stream;
    stream << std::int32_t{0x01020304};
    EXPECT_TRUE(a.SetMarkSymbolStyle(&stream, 4));
    EXPECT_EQ(a.GetMarkSymbolStyle()[3], 1);
    EXPECT_FALSE(a.SetMarkSymbolStyle(std::make_unique<QzMemoryStream>().get(), 4));

    a = *&a;
    const QzStyle moved = std::move(a);
    EXPECT_EQ(moved.GetMarkerSymbolLength(), 4U);
    EXPECT_EQ(a.GetMarkerSymbolLength(), 0U); // NOLINT: a moved-from style is an empty one
    b = moved;
    b.ClearSymbolStyle();
    EXPECT_EQ(b.GetMarkSymbolStyle(), nullptr);
    EXPECT_TRUE(b != moved);
}

TEST(Style, TheExtendedPartIsMadeByItsSettersAndCopiedDeeply) {
    QzStyle plain;
    EXPECT_EQ(plain.GetIconScale(), 1.0F);
    EXPECT_EQ(plain.GetPointSize(), 4.0F);
    EXPECT_EQ(plain.GetMarker3DScaleZ(), 1.0);
    EXPECT_EQ(plain.GetMarker3DRotateX(), 0.0);
    EXPECT_EQ(plain.GetFill3DMode(), FILL_FACE);
    EXPECT_EQ(plain.GetPipeSides(), 20U);
    EXPECT_EQ(plain.GetFixedPixelSize(), 1);
    EXPECT_EQ(plain.GetStyleEx(), nullptr);

    QzStyle style;
    style.SetIconName("icon");
    QzStyle copy = style;
    EXPECT_TRUE(copy == style);
    copy.SetIconName("other");
    EXPECT_EQ(style.GetIconName(), "icon");
    EXPECT_FALSE(copy == style);
    EXPECT_FALSE(QzStyle::IsSame3DSymbolStyle(style, plain));
    copy = plain;
    EXPECT_EQ(copy.GetStyleEx(), nullptr);
    EXPECT_TRUE(QzStyle::IsSame3DSymbolStyle(copy, plain));
    copy = style;
    EXPECT_EQ(copy.GetIconName(), "icon");
}

TEST(Style, ColoursFollowBetween2DAnd3D) {
    QzStyle style;
    style.SetLineColor3D({1, 1, 1, 0.25});
    style.SetFillColor({1, 1, 1, 0.75});
    style.SetLineColor(KELDRGB(255, 0, 51));
    style.SetFillForeColor(KELDRGB(0, 255, 0));
    EXPECT_EQ(style.GetLineColor3D(), QzColorValue3D(1, 0, 0.2, 0.25));
    EXPECT_EQ(style.GetFillColor(), QzColorValue3D(0, 1, 0, 0.75));

    style.SetLineColor3D(QzColorValue3D::Blue);
    style.SetFillColor(QzColorValue3D::Red);
    style.Convert3DTo2DStyle();
    EXPECT_EQ(style.GetLineColor(), KELDRGB(0, 0, 255));
    EXPECT_EQ(style.GetFillForeColor(), KELDRGB(255, 0, 0));

    QzStyle flat;
    flat.Convert3DTo2DStyle();
    EXPECT_EQ(flat.GetStyleEx(), nullptr);
    flat.Convert2DTo3DStyle();
    EXPECT_EQ(flat.GetLineColor3D(), QzColorValue3D(0, 0, 0, 0));
    EXPECT_EQ(flat.GetPointColor(), QzColorValue3D(0, 0, 0, 0));
    EXPECT_EQ(flat.GetFillColor().GetValue(), KELDRGB(189, 235, 255));
}

TEST(StyleEx, OnlyRealChangesRaiseTheModifiedFlag) {
    int n = 0;
    const auto check = [&](bool raises, auto value, auto... setters) {
        const auto checkOne = [&](auto set) {
            QzStyleEx style;
            (style.*set)(value);
            EXPECT_EQ(style.IsModified(), raises) << n;
            EXPECT_FALSE(style == QzStyleEx()) << n;
            style.SetModifiedFlag(0);
            const QzStyleEx copy = style;
            (style.*set)(value);
            EXPECT_FALSE(style.IsModified()) << n;
            style.SetModifiedFlag();
            EXPECT_TRUE(style == copy) << n; // the flag takes no part
            ++n;
        };
        (checkOne(setters), ...);
    };
    using S = QzStyleEx;
    check(true, 0.1F, &S::SetIconScale, &S::SetPointSize, &S::SetLineWidth, &S::SetBottomAltitude,
          &S::SetExtendHeight, &S::SetTilingU, &S::SetTilingV, &S::SetTopTilingU, &S::SetTopTilingV);
    check(true, KeldMBString("a"), &S::SetIconName, &S::SetSideTexture, &S::SetTopTexture);
    check(true, QzColorValue3D(1, 1, 1, 0.5), &S::SetPointColor, &S::SetLineColor, &S::SetFillColor);
    check(true, RealSize, &S::SetTextureRepeatMode, &S::SetTopTextureRepeatMode);
    check(true, FILL_LINE, &S::SetFill3DMode);
    check(true, Absolute, &S::SetAltitudeMode);
    check(true, FIXED_ANGLE, &S::SetBillBoardMode);
    check(true, LINE_PIPELINE, &S::SetLineStyle);
    check(true, KeldPoint2D{0, 1}, &S::SetIconAnchorPoint);
    check(true, static_cast<unsigned char>(0), &S::SetFixedPixelSize);
    check(true, 3U, &S::SetPipeSides);
    check(true, 3, &S::SetMarkerStyle);
    check(false, static_cast<unsigned char>(1), &S::SetMarker3D, &S::SetFiletEnable, &S::SetTessellate);
    check(false, 2.0, &S::SetMarker3DScaleX, &S::SetMarker3DScaleY, &S::SetMarker3DScaleZ,
          &S::SetMarker3DRotateX, &S::SetMarker3DRotateY, &S::SetMarker3DRotateZ);
    EXPECT_EQ(n, 34);
}

TEST(StyleRecord, HasTheBytesOfItsLayout) {
    const std::string fill = "32 02 C201 FEFF 0300";
    const std::string marker = "04030201 19000000 FDFFFFFF 11223300 0A000000 14000000";
    const std::string region = "05000000 03000000 11223300 06000000 77889900 445566FF" + fill;
    QzStyle style = Sample();
    EXPECT_EQ(Saved(style, 0), Hex("2C000000" + marker + "00000000" + fill + "44556600"));
    EXPECT_EQ(Saved(style, 1), Hex("14000000 05000000 03000000 11223300 00000000"));
    EXPECT_EQ(Saved(style, 2), Hex("2C000000" + region + "00000000 00000000"));
    EXPECT_EQ(Saved(style, 3), Hex("04000000"));
    EXPECT_EQ(Saved(style, 4), Hex("04000000"));
    EXPECT_EQ(Saved(style, 5), Hex("00000000"));
    EXPECT_EQ(Saved(style, -1), Hex("00000000"));

    SetSymbols(style);
    EXPECT_EQ(Saved(style, 0), Hex("33000000" + marker + "03000000 AABBCC 07000000" + fill + "44556600"));
    EXPECT_EQ(Saved(style, 1), Hex("1A000000 05000000 03000000 11223300 02000000 0102 08000000"));
    EXPECT_EQ(Saved(style, 2), Hex("37000000" + region + "02000000 0102 08000000 01000000 0F 09000000"));
    style.ClearLineSymbolStyle();
    style.SetFillBackOpaque(1);
    const std::string opaque = Hex("31000000 05000000 03000000 11223300 06000000 77889900 44556600" + fill +
                                   "00000000 01000000 0F 09000000");
    EXPECT_EQ(Saved(style, 2), opaque);

    QzStyle loaded;
    loaded.SetFillBackOpaque(0);
    int result = 0;
    EXPECT_TRUE(LoadRecord(loaded, opaque.substr(4), 2, &result));
    EXPECT_EQ(result, 0x31 - 4);
    EXPECT_TRUE(QzStyle::IsSameDimensionStyle(loaded, style, 2));
    EXPECT_TRUE(QzStyle::IsSameMarkerStyle(loaded, [] {
        QzStyle unread;
        unread.SetLineColor(KELDRGB(0x11, 0x22, 0x33));
        return unread;
    }()));
    style.SetFillBackOpaque(0); // the whole word becomes the colour
    EXPECT_TRUE(LoadRecord(loaded, Saved(style, 2).substr(4), 2));
    EXPECT_EQ(loaded.GetFillBackOpaque(), 0);
    EXPECT_EQ(loaded.GetFillBackColor(), 0xFF665544U);
}

TEST(StyleRecord, OfAllFieldsHasTheBytesOfItsLayout) {
    QzStyle style = Sample();
    SetSymbols(style);
    const std::string begin = "04030201 19000000 FDFFFFFF 05000000 03000000 11223300 06000000 77889900";
    const auto saved = [](const QzStyle& saving) {
        QzMemoryStream stream;
        saving.SaveAll(stream);
        return Bytes(stream);
    };
    EXPECT_EQ(saved(style), Hex(begin + "FFFFFFFF 32 02 C201 FEFF 0300"));
    style.SetFillBackOpaque(1);
    const std::string opaque = saved(style);
    EXPECT_EQ(opaque, Hex(begin + "44556600 32 02 C201 FEFF 0300"));
    EXPECT_EQ(opaque.size(), QzStyle::GetStoreSize());

    for (const int size : {35, 36, 43, 44}) {
        QzStyle loaded;
        QzMemoryStream stream(opaque.data(), 44);
        EXPECT_EQ(loaded.LoadAll(stream, size), size >= 36);
        EXPECT_EQ(stream.GetPosition(), size < 36 ? 0 : size < 44 ? 36 : 44);
        EXPECT_EQ(loaded == QzStyle(), size < 36);
        EXPECT_EQ(loaded.GetFillOpaqueRate(), size < 44 ? 100 : 50);
        EXPECT_EQ(QzStyle::IsSameFillStyle(loaded, style), size == 44);
    }
    QzStyle loaded;
    const std::string transparent = Hex(begin + "FFFFFFFF 00 00 0000 0000 0000");
    QzMemoryStream stream(transparent.data(), 44);
    loaded.LoadAll(stream, 44);
    EXPECT_EQ(loaded.GetFillBackOpaque(), 0);
    EXPECT_EQ(loaded.GetFillBackColor(), 0xFFFFFFFFU);
    QzMemoryStream again(opaque.data(), 44);
    loaded.LoadAll(again, 44);
    EXPECT_EQ(loaded.GetFillBackOpaque(), 0); // never set
}

TEST(StyleRecord, The3DBlockHasTheBytesOfItsLayout) {
    QzStyle style;
    Set3D(style);
    for (int kind = 0; kind <= 6; ++kind) {
        const std::string block = kind < 5 ? Blocks3D[kind] : "00000000";
        const std::string expected = Hex(Stamp + Beginning + block);
        QzMemoryStream stream;
        style.GetStyleEx()->Save(stream, kind);
        EXPECT_EQ(Bytes(stream), expected) << kind;
        EXPECT_EQ(style.GetStyleEx()->GetStyleSize(kind), expected.size()) << kind;

        // With the style's own record in front, whose size word counts both.
        const std::string record = Saved(style, kind);
        EXPECT_EQ(record.substr(record.size() - expected.size()), expected) << kind;
        EXPECT_EQ(static_cast<unsigned char>(record[0]), kind < 5 ? record.size() : 0) << kind;
        QzStyle loaded;
        int result = 0;
        EXPECT_TRUE(LoadRecord(loaded, record.substr(4), kind, &result));
        EXPECT_EQ(result, static_cast<int>(record.size()) - 4) << kind;
        EXPECT_EQ(Saved(loaded, kind), record) << kind;
        EXPECT_FALSE(loaded.IsModified()) << kind;
    }
    QzStyle kept = style;
    EXPECT_TRUE(LoadRecord(kept, Saved(QzStyle(), 1).substr(4), 1)); // no block: the part stays
    EXPECT_TRUE(QzStyle::IsSame3DSymbolStyle(kept, style));
}

TEST(StyleRecord, The3DBlockWithoutAStampIsReadAsFarAsItGoes) {
    // The bytes lie in memory of their own, so that the sanitizer sees a read past their end.
    const auto load = [](const std::string& bytes, int kind, QzStyleEx& style, std::int64_t& left) {
        QzMemoryStream stream(bytes.data(), static_cast<std::int64_t>(bytes.size()));
        style.Load(stream, kind);
        left = stream.GetRemaining();
        return stream.IsGood();
    };
    std::int64_t left = 0;
    for (int kind = 0; kind <= 4; ++kind) {
        const std::string old = Hex(Beginning + Blocks3D[kind]);
        QzStyleEx today;
        QzStyleEx style;
        EXPECT_TRUE(load(Hex(Stamp) + old, kind, today, left));
        EXPECT_TRUE(load(old, kind, style, left));
        EXPECT_TRUE(style == today) << kind;
        for (std::size_t length = 0; length < old.size(); ++length) {
            QzStyleEx part;
            const bool good = load(old.substr(0, length), kind, part, left);
            EXPECT_TRUE(length >= 20 || !good) << kind << ' ' << length; // what all kinds share must be there
            // A text that is cut cannot be told from a wrong length; anything else ends the block.
            EXPECT_TRUE(!good || left < 8) << kind << ' ' << length;
            EXPECT_EQ(part.GetExtendHeight(), length < 20 ? 0 : 2) << kind << ' ' << length;
            EXPECT_FALSE(load(Hex(Stamp) + old.substr(0, length), kind, part, left)) << kind << ' ' << length;
        }
    }
    QzStyleEx style;
    EXPECT_TRUE(load(Hex(Beginning + "00FF00FF 0000FF00 01000000 73 00002040 0000"), 1, style, left));
    EXPECT_EQ(style.GetLineColor(), QzColorValue3D::Green);
    EXPECT_EQ(style.GetSideTexture(), "s");
    EXPECT_EQ(style.GetTilingU(), 2.5F);
    EXPECT_EQ(style.GetTilingV(), 1);
    EXPECT_EQ(style.GetPipeSides(), 20U);
    EXPECT_TRUE(load(Hex(Beginning + "00000000"), 5, style, left));
    EXPECT_EQ(left, 4);
}

TEST(StyleRecord, WhatIsSavedLoads) {
    RandomStyle random(1);
    for (int i = 0; i < 2000; ++i) {
        const QzStyle style = random.Make(random.Chance());
        for (int kind = 0; kind <= 4; ++kind) {
            const std::string record = Saved(style, kind);
            EXPECT_EQ(style.GetStyleSize(kind), record.size());
            QzStyle loaded = random.Make(random.Chance() && style.GetStyleEx() != nullptr);
            EXPECT_TRUE(LoadRecord(loaded, record.substr(4), kind));
            EXPECT_EQ(Saved(loaded, kind), record);
        }
        KeldStyle plain;
        style.ToKeldStyle(plain);
        QzStyle copy = style;
        copy = QzStyle();
        copy.FromKeldStyle(plain);
        EXPECT_TRUE(QzStyle::IsSameFillStyle(copy, style) && QzStyle::IsSameLineStyle(copy, style) &&
                    QzStyle::IsSameMarkerStyle(copy, style));
        EXPECT_EQ(copy.GetHashCode(), style.GetHashCode());
        EXPECT_EQ(copy.GetFixedColor(), style.GetFixedColor());
        EXPECT_EQ(copy.IsFixedColor() + 2 * copy.IsScaleBySymbol(),
                  style.IsFixedColor() + 2 * style.IsScaleBySymbol());
    }
}

TEST(StyleRecord, LyingLengthsAndMissingBytesAreFailedReads) {
    const std::string fixed0 = Hex("04030201 19000000 FDFFFFFF 11223300 0A000000 14000000");
    const std::string fixed1 = Hex("05000000 03000000 11223300");
    const std::string fixed2 =
        Hex("05000000 03000000 11223300 06000000 77889900 445566FF 32 02 C201 FEFF 0300");
    for (const std::string length : {"FFFFFFFF", "FFFFFF7F", "00000080", "06000000"}) {
        const std::string bytes = Hex(length) + "12345";
        QzStyle style;
        SetSymbols(style);
        EXPECT_FALSE(LoadRecord(style, fixed0 + bytes, 0));
        EXPECT_EQ(style.GetMarkSymbolStyle(), nullptr);
        EXPECT_EQ(style.GetMarkerSymbolLength(), 0U);
        EXPECT_FALSE(LoadRecord(style, fixed1 + bytes, 1));
        EXPECT_EQ(style.GetLineSymbolStyle(), nullptr);
        EXPECT_FALSE(LoadRecord(style, fixed2 + Hex("00000000") + bytes, 2));
        EXPECT_EQ(style.GetFillSymbolStyle(), nullptr);
        EXPECT_EQ(style.GetStyleEx(), nullptr);
        EXPECT_TRUE(QzStyle(style) == style);

        style.SetIconName("old");
        EXPECT_FALSE(LoadRecord(style, Hex(Stamp + Beginning) + bytes, 3));
        EXPECT_EQ(style.GetIconName(), "old");
    }
    RandomStyle random(2);
    for (int kind = 0; kind <= 4; ++kind) {
        const QzStyle style = random.Make(kind % 2 == 0);
        const std::string record = Saved(style, kind).substr(4);
        for (std::size_t length = 0; length < record.size(); ++length) {
            const std::string cut = record.substr(0, length);
            QzStyle loaded = style;
            LoadRecord(loaded, cut, kind);
            const QzStyle copy = loaded;
            EXPECT_TRUE(copy == loaded);
            Saved(loaded, kind);
        }
    }
}

TEST(StyleRecord, SymbolBytesAsText) {
    const struct {
        std::string bytes;
        const char* text;
    } rows[] = {{"", ""},
                {"01", "01000000"},
                {"0102 03", "01020300"},
                {"0102 0304", ""},
                {"0102 0304 05", "0102030405000000"},
                {"0102 0304 FFFE 0708", "01020304"},
                {"0102 0304 FFFE 0708 09", "01020304FFFE070809000000"}};
    for (const auto& row : rows) {
        const std::string bytes = Hex(row.bytes);
        KeldMBString text(">");
        EXPECT_TRUE(QzStyle::ByteConver2String(reinterpret_cast<const unsigned char*>(bytes.data()),
                                               static_cast<int>(bytes.size()), text));
        EXPECT_EQ(text, KeldMBString(">") + row.text);
    }
    unsigned char buffer[] = "????????";
    unsigned char* bytes = buffer;
    EXPECT_TRUE(QzStyle::StringConver2Byte(bytes, 7, "aBg11 +1-"));
    EXPECT_EQ(Hex("AB 00 01 00 00 00 00") + "?", std::string(reinterpret_cast<char*>(buffer), 8));
}
