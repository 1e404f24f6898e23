#pragma once

struct ImFontAtlas;
struct ImGuiStyle;

/// Letters of Latin, Greek and Cyrillic scripts, `unit` times their plain size; those that Dear ImGui has
/// built in, Latin alone, where the font is not installed. Ready to be used.
void addFonts(ImFontAtlas& fonts, float unit);

/// Dark and quiet, beside the background of the scene.
void applyStyle(ImGuiStyle& style, float unit);
