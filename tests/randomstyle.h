#pragma once

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
        Qzc::QzStyle style;
        style.SetIsFixedColor(Flag());
        style.SetFixedColor(Color());
        style.SetScaleBySymbol(Flag());
        style.SetMarkerStyle(AnyInt());
        style.SetMarkerAngle(Tenths());
        style.SetMarkerSize(Tenths());
        style.SetMarkerWidth(Tenths());
        style.SetMarkerHeight(Tenths());
        style.SetLineStyle(AnyInt());
        style.SetLineColor(Color());
        style.SetLineWidth(Tenths());
        style.SetFillStyle(AnyInt());
        style.SetFillBackColor(Color());
        style.SetFillForeColor(Color());
        style.SetFillBackOpaque(Flag());
        style.SetFillOpaqueRate(static_cast<unsigned char>(UpTo(255)));
        style.SetFillGradientType(static_cast<unsigned char>(UpTo(4)));
        style.SetFillAngle((UpTo(65535) - 32768) / 10.0);
        style.SetFillCenterOffsetX(static_cast<short>(UpTo(65535) - 32768));
        style.SetFillCenterOffsetY(static_cast<short>(UpTo(65535) - 32768));
        for (auto set : {&Qzc::QzStyle::SetMarkSymbolStyle, &Qzc::QzStyle::SetLineSymbolStyle,
                         static_cast<Setter>(&Qzc::QzStyle::SetFillSymbolStyle)}) {
            std::string bytes = Symbol();
            if (!bytes.empty())
                (style.*set)(reinterpret_cast<unsigned char*>(bytes.data()),
                             static_cast<unsigned int>(bytes.size()), static_cast<unsigned int>(AnyInt()), 1);
        }
        if (with3D)
            Add3D(style);
        return style;
    }

private:
    using Setter = unsigned char (Qzc::QzStyle::*)(unsigned char*, unsigned int, unsigned int, unsigned char);

    unsigned char Flag() { return Chance() ? 1 : 0; }
    double Tenths() { return AnyInt() / 10.0; }
    float Part() { return static_cast<float>(UpTo(4000) - 2000) / 64; }
    float Tenth() { return static_cast<float>((UpTo(4000) - 2000) / 10.0); }
    Qzc::QzColorValue3D Color3D() {
        return {UpTo(64) / 64.0, UpTo(64) / 64.0, UpTo(64) / 64.0, UpTo(64) / 64.0};
    }

    // The text of a symbol leaves out the last four bytes when the length is a multiple of 4: they are zeros.
    std::string Symbol() {
        std::string bytes(static_cast<std::size_t>(Chance() ? UpTo(40) : 0), '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = bytes.size() % 4 != 0 || i + 4 < bytes.size() ? static_cast<char>(UpTo(255)) : '\0';
        return bytes;
    }

    KELD::KeldMBString Name() {
        static const std::string Pieces[] = {"roof",         "<",         ">",  "&",   "&amp;",
                                             "\"",           "'",         " ",  "]]>", "\xC3\xA9",
                                             "\xE5\xB1\x8B", "C:\\tex\\", "\n", "<!--"};
        std::string name;
        for (int i = UpTo(6); i > 0; --i)
            name += Pieces[UpTo(static_cast<int>(std::size(Pieces)) - 1)];
        return KELD::KeldMBString(name);
    }

    void Add3D(Qzc::QzStyle& style) {
        style.SetFill3DMode(static_cast<Qzc::QzFill3DMode>(1 + UpTo(2)));
        style.SetAltitudeMode(static_cast<Qzc::AltitudeMode>(UpTo(3)));
        style.SetIconName(Name());
        style.SetIconScale(Tenth());
        style.SetPointSize(Tenth());
        style.SetPointColor(Color3D());
        style.SetLineColor3D(Color3D());
        style.SetFillColor(Color3D());
        style.SetExtendHeight(static_cast<float>(UpTo(1999)) / 8);
        style.SetBottomAltitude(static_cast<float>(-UpTo(1999)) / 8);
        style.SetSideTexture(Name());
        style.SetTopTexture(Name());
        style.SetTilingU(Part());
        style.SetTilingV(Part());
        style.SetTopTilingU(Part());
        style.SetTopTilingV(Part());
        style.SetTextureRepeatMode(static_cast<Qzc::QzTextureRepeatMode>(UpTo(1)));
        style.SetTopTextureRepeatMode(static_cast<Qzc::QzTextureRepeatMode>(UpTo(1)));
        style.SetIconAnchorPoint({(UpTo(99999) - 50000) / 1024.0, (UpTo(99999) - 50000) / 1024.0});
        style.SetFixedPixelSize(Flag());
        style.SetBillBoardMode(static_cast<Qzc::QzBillBoardMode>(UpTo(2)));
        style.SetPipeSides(static_cast<unsigned int>(AnyInt()));
        style.SetMarker3D(Flag());
        style.SetMarker3DScaleX(Part());
        style.SetMarker3DScaleY(Part());
        style.SetMarker3DScaleZ(Part());
        style.SetMarker3DRotateX(Part());
        style.SetMarker3DRotateY(Part());
        style.SetMarker3DRotateZ(Part());
        style.SetFiletEnable(Flag());
        style.SetTessellate(Flag());
        style.SetModifiedFlag(Flag());
        style.GetStyleEx()->SetLineWidth(1.0F / static_cast<float>(1 + UpTo(999)));
        style.GetStyleEx()->SetLineStyle(static_cast<Qzc::QzLineStyle3D>(UpTo(1)));
    }

    std::mt19937 m_random;
};
