#include "viewer/gui/GuiStyle.h"

#include <imgui.h>

#include <cmath>
#include <filesystem>

namespace {

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr float kFontSize = 14.0f;
constexpr float kBuiltInFontSize = 13.0f;

/// First and last letters of each block, ended by 0.
constexpr ImWchar kLetters[] = {0x0020, 0x024f, 0x0370, 0x03ff, 0x0400, 0x052f, 0x2010, 0x2044, 0x20ac,
                                0x20ac, 0x2190, 0x2193, 0x2212, 0x2213, 0x2260, 0x2265, 0};

ImVec4 grey(float level, float alpha = 1.0f)
{
    return ImVec4(level, level * 1.04f, level * 1.1f, alpha);
}

ImVec4 accent(float alpha)
{
    return ImVec4(0.30f, 0.52f, 0.80f, alpha);
}

} // namespace

void addFonts(ImFontAtlas& fonts, float unit)
{
    std::error_code error;
    ImFontConfig config;
    config.OversampleH = 2;
    const bool isThere = std::filesystem::exists(kFont, error);
    if (!isThere || !fonts.AddFontFromFileTTF(kFont, std::round(kFontSize * unit), &config, kLetters)) {
        config.SizePixels = std::round(kBuiltInFontSize * unit);
        fonts.AddFontDefault(&config);
    }
    fonts.Build();
}

void applyStyle(ImGuiStyle& style, float unit)
{
    style.WindowRounding = 4.0f;
    style.FrameRounding = 0.0f; // round corners cost as much to fill as all the letters
    style.PopupRounding = 4.0f;
    style.WindowBorderSize = 0.0f;
    style.ScrollbarSize = 10.0f;
    style.ItemSpacing = ImVec2(6, 5);
    style.FramePadding = ImVec2(6, 3);
    style.WindowPadding = ImVec2(8, 8);
    style.ScaleAllSizes(unit);
    ImVec4* const colors = style.Colors;
    colors[ImGuiCol_Text] = grey(0.88f);
    colors[ImGuiCol_TextDisabled] = grey(0.55f);
    colors[ImGuiCol_WindowBg] = grey(0.13f);
    colors[ImGuiCol_ChildBg] = grey(0.0f, 0.0f);
    colors[ImGuiCol_PopupBg] = grey(0.16f, 0.98f);
    colors[ImGuiCol_ModalWindowDimBg] = ImVec4(0, 0, 0, 0.4f);
    colors[ImGuiCol_PlotHistogram] = accent(0.9f);
    colors[ImGuiCol_Border] = grey(0.32f, 0.6f);
    colors[ImGuiCol_FrameBg] = grey(0.21f);
    colors[ImGuiCol_FrameBgHovered] = grey(0.26f);
    colors[ImGuiCol_FrameBgActive] = grey(0.30f);
    colors[ImGuiCol_ScrollbarBg] = grey(0.0f, 0.0f);
    colors[ImGuiCol_ScrollbarGrab] = grey(0.30f);
    colors[ImGuiCol_ScrollbarGrabHovered] = grey(0.38f);
    colors[ImGuiCol_ScrollbarGrabActive] = grey(0.45f);
    colors[ImGuiCol_CheckMark] = accent(1.0f);
    colors[ImGuiCol_SliderGrab] = accent(0.9f);
    colors[ImGuiCol_SliderGrabActive] = accent(1.0f);
    colors[ImGuiCol_Button] = grey(0.24f);
    colors[ImGuiCol_ButtonHovered] = grey(0.31f);
    colors[ImGuiCol_ButtonActive] = accent(0.7f);
    colors[ImGuiCol_Header] = grey(0.19f);
    colors[ImGuiCol_HeaderHovered] = grey(0.25f);
    colors[ImGuiCol_HeaderActive] = grey(0.29f);
    colors[ImGuiCol_Separator] = grey(0.28f);
    colors[ImGuiCol_TextSelectedBg] = accent(0.45f);
}
