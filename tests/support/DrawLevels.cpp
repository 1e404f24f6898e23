// draw_levels STORE FOLDER: pictures of the density of every level of a store, seen from above, for looking
// at how evenly levels are thinned: FOLDER/level-L.png of level L alone, FOLDER/to-level-L.png of all down to
// it. A pixel is a square of the level's sampling grid, or several where the picture would be larger than
// 2048 pixels; white is two points a grid square, grey one.

#include "tests/support/LevelDensity.h"

#include <cairo.h>

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

constexpr unsigned kLargestPicture = 2048;

void draw(const LevelDensity& density, unsigned first, unsigned last, const std::string& path)
{
    const unsigned grid = LevelDensity::gridDivisions(last);
    const unsigned size = std::min(grid, kLargestPicture);
    const double perSquare = static_cast<double>(size) / grid;
    const std::vector<uint32_t> counts = density.counts(first, last, size);
    cairo_surface_t* const picture =
        cairo_image_surface_create(CAIRO_FORMAT_A8, static_cast<int>(size), static_cast<int>(size));
    unsigned char* const pixels = cairo_image_surface_get_data(picture);
    const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(picture));
    for (size_t y = 0; y < size; ++y)
        for (size_t x = 0; x < size; ++x)
            pixels[(size - 1 - y) * stride + x] = static_cast<unsigned char>(
                std::min(255.0, 127.5 * counts[y * size + x] * perSquare * perSquare));
    cairo_surface_mark_dirty(picture);
    cairo_surface_t* const colored =
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(size), static_cast<int>(size));
    cairo_t* const cairo = cairo_create(colored);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_mask_surface(cairo, picture, 0, 0);
    if (cairo_surface_write_to_png(colored, path.c_str()) != CAIRO_STATUS_SUCCESS)
        std::fprintf(stderr, "draw_levels: %s: cannot be written\n", path.c_str());
    cairo_destroy(cairo);
    cairo_surface_destroy(colored);
    cairo_surface_destroy(picture);
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 3) {
        std::fprintf(stderr, "draw_levels: expected STORE FOLDER\n");
        return 2;
    }
    const LevelDensity density(argv[1]);
    for (unsigned level = 0; level < density.levelCount(); ++level) {
        const std::string name = "level-" + std::to_string(level) + ".png";
        draw(density, level, level, std::string(argv[2]) + "/" + name);
        draw(density, 0, level, std::string(argv[2]) + "/to-" + name);
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "draw_levels: %s\n", error.what());
    return 1;
}
