#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "toolkit/qzstyle.h"

/// Styles with every field set at random, the same ones in every run. Decimals are multiples of what every
/// form of text can hold, so that a round trip gives back the very same value.
class RandomStyle {
public:
    explicit RandomStyle(unsigned int seed) : m_random(seed) {}

    int UpTo(int limit) { return static_cast<int>(m_random() % (static_cast<unsigned int>(limit) + 1)); }
    bool Chance() { return UpTo(1) == 1; }
    int AnyInt() { return static_cast<int>(m_random()); }
    unsigned int Color() { return KELD::KELDRGB(UpTo(255), UpTo(255), UpTo(255)); }

    Qzc::QzStyle Make(bool with3D) {
        S style;
        Set(style, &R::AnyInt, &S::SetMarkerStyle, static_cast<void (S::*)(int)>(&S::SetLineStyle), &S::SetFillStyle);
        Set(style, &R::Tenths, &S::SetMarkerAngle, &S::SetMarkerSize, &S::SetMarkerWidth, &S::SetMarkerHeight,
            &S::SetLineWidth);
        Set(style, &R::Color, &S::SetFixedColor, &S::SetLineColor, &S::SetFillBackColor, &S::SetFillForeColor);
        Set(style, &R::Flag, &S::SetIsFixedColor, &S::SetScaleBySymbol, &S::SetFillBackOpaque);
        Set(style, &R::Short, &S::SetFillCenterOffsetX, &S::SetFillCenterOffsetY);
        style.SetFillOpaqueRate(static_cast<unsigned char>(UpTo(255)));
        style.SetFillGradientType(static_cast<unsigned char>(UpTo(4)));
        style.SetFillAngle(Short() / 10.0);
        using Setter = unsigned char (S::*)(unsigned char*, unsigned int, unsigned int, unsigned char);
        for (const Setter set :
             {&S::SetMarkSymbolStyle, &S::SetLineSymbolStyle, static_cast<Setter>(&S::SetFillSymbolStyle)}) {
            std::string bytes = Symbol();
            (style.*set)(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned int>(bytes.size()),
                         static_cast<unsigned int>(AnyInt()), 1);
        }
        if (with3D)
            Add3D(style);
        return style;
    }

private:
    using R = RandomStyle;
    using S = Qzc::QzStyle;

    // Every setter gets a value of its own.
    template <class Value, class... Setters>
    void Set(S& style, Value (R::*make)(), Setters... setters) {
        ((style.*setters)((this->*make)()), ...);
    }

    unsigned char Flag() { return Chance() ? 1 : 0; }
    short Short() { return static_cast<short>(UpTo(65535) - 32768); }
    double Tenths() { return AnyInt() / 10.0; }
    float Tenth() { return static_cast<float>((UpTo(4000) - 2000) / 10.0); }
    float Part() { return static_cast<float>(UpTo(4000) - 2000) / 64; }
    float Altitude() { return static_cast<float>(UpTo(3998) - 1999) / 8; }
    Qzc::QzTextureRepeatMode RepeatMode() { return static_cast<Qzc::QzTextureRepeatMode>(UpTo(1)); }
    Qzc::QzColorValue3D Color3D() { return {UpTo(64) / 64.0, UpTo(64) / 64.0, UpTo(64) / 64.0, UpTo(64) / 64.0}; }

    // The text of a symbol leaves out the last four bytes when the length is a multiple of 4: they are zeros.
    std::string Symbol() {
        std::string bytes(static_cast<std::size_t>(Chance() ? UpTo(40) : 0), '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = bytes.size() % 4 != 0 || i + 4 < bytes.size() ? static_cast<char>(UpTo(255)) : '\0';
        return bytes;
    }

    KELD::KeldMBString Name() {
        const char* const pieces[] = {"roof", "<",   ">",  "&",    "&amp;",     "\"",       "'",
                                      " ",    "]]>", "\n", "<!--", "C:\\tex\\", "\xC3\xA9", "\xE5\xB1\x8B"};
        std::string name;
        for (int i = UpTo(6); i > 0; --i)
            name += pieces[UpTo(static_cast<int>(std::size(pieces)) - 1)];
        return KELD::KeldMBString(name);
    }

    void Add3D(S& style) {
        Set(style, &R::Name, &S::SetIconName, &S::SetSideTexture, &S::SetTopTexture);
        Set(style, &R::Color3D, &S::SetPointColor, &S::SetLineColor3D, &S::SetFillColor);
        Set(style, &R::Tenth, &S::SetIconScale, &S::SetPointSize);
        Set(style, &R::Part, &S::SetTilingU, &S::SetTilingV, &S::SetTopTilingU, &S::SetTopTilingV,
            &S::SetMarker3DScaleX, &S::SetMarker3DScaleY, &S::SetMarker3DScaleZ, &S::SetMarker3DRotateX,
            &S::SetMarker3DRotateY, &S::SetMarker3DRotateZ);
        Set(style, &R::Altitude, &S::SetExtendHeight, &S::SetBottomAltitude);
        Set(style, &R::Flag, &S::SetFixedPixelSize, &S::SetMarker3D, &S::SetFiletEnable, &S::SetTessellate,
            &S::SetModifiedFlag);
        Set(style, &R::RepeatMode, &S::SetTextureRepeatMode, &S::SetTopTextureRepeatMode);
        style.SetFill3DMode(static_cast<Qzc::QzFill3DMode>(1 + UpTo(2)));
        style.SetAltitudeMode(static_cast<Qzc::AltitudeMode>(UpTo(3)));
        style.SetIconAnchorPoint({(UpTo(99999) - 50000) / 1024.0, (UpTo(99999) - 50000) / 1024.0});
        style.SetBillBoardMode(static_cast<Qzc::QzBillBoardMode>(UpTo(2)));
        style.SetPipeSides(static_cast<unsigned int>(AnyInt()));
        style.GetStyleEx()->SetLineWidth(1.0F / static_cast<float>(1 + UpTo(999)));
        style.GetStyleEx()->SetLineStyle(static_cast<Qzc::QzLineStyle3D>(UpTo(1)));
    }

    std::mt19937 m_random;
};

/// Sets every attribute of the extended style to a value that its neighbours and a new style do not have.
inline void Set3D(Qzc::QzStyle& style) {
    style.SetAltitudeMode(Qzc::Absolute);
    style.SetBottomAltitude(1.5F);
    style.SetExtendHeight(2);
    style.SetPointColor({1, 0, 0, 0.2});
    style.SetPointSize(4.5F);
    style.SetIconName("ab");
    style.SetIconScale(1.5F);
    style.SetIconAnchorPoint({1, -2});
    style.SetMarker3D(1);
    style.SetBillBoardMode(Qzc::FIXED_ANGLE);
    style.SetFixedPixelSize(0);
    style.SetMarker3DScaleX(1.5);
    style.SetMarker3DScaleY(2);
    style.SetMarker3DScaleZ(0.5);
    style.SetMarker3DRotateX(4);
    style.SetMarker3DRotateY(-2);
    style.SetMarker3DRotateZ(1);
    style.SetLineColor3D({0, 1, 0, 1});
    style.SetFillColor({0, 0, 1, 0});
    style.SetSideTexture("s");
    style.SetTopTexture("top");
    style.SetTextureRepeatMode(Qzc::RealSize);
    style.SetTilingU(2.5F);
    style.SetTilingV(0.5F);
    style.SetTopTilingU(-2.5F);
    style.SetTopTilingV(3);
    style.SetFill3DMode(Qzc::FILL_FACEANDLINE);
    style.SetPipeSides(7);
    style.SetFiletEnable(1);
    style.GetStyleEx()->SetLineWidth(0.25F);
    style.GetStyleEx()->SetLineStyle(Qzc::LINE_PIPELINE);
}

/// Sets a symbol of five bytes, one of eight and one of a single byte.
inline void SetSymbols(Qzc::QzStyle& style) {
    unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_TRUE(style.SetMarkSymbolStyle(bytes, 5, 0xFFFFFFFF, 1));
    EXPECT_TRUE(style.SetLineSymbolStyle(bytes, 8, 2, 1));
    EXPECT_TRUE(style.SetFillSymbolStyle(bytes, 1, 3, 1));
}
