// Texts as an enemy would write them, in the files of JSON that programs read but scripts, and as options of
// the plugin: polygons, selections, class tables, settings. The first byte says which.

#include "plugin/PluginOptions.h"
#include "terminal/ClassesFile.h"
#include "tests/fuzz/FuzzFile.h"
#include "tools/Command.h"
#include "tools/GeoJson.h"
#include "viewer/camera/SavedViews.h"
#include "viewer/settings/Settings.h"

#include <VelOsgDBBrx/PointSelection.h>

namespace {

void readAsPolygons(const std::string& path)
{
    try {
        expect(!readPolygons(path).empty(), "no polygon and no failure");
    } catch (const CommandError&) {
    }
}

/// A selection that is read can be written and is then the same.
void readAsSelection(const std::string& text)
{
    VelOsgDBBrx::PointSelection selection;
    if (!reported(VelOsgDBBrx::readSelection(text, selection))) return;
    const std::string written = selectionText(selection);
    VelOsgDBBrx::PointSelection again;
    expect(reported(VelOsgDBBrx::readSelection(written, again)), "a selection that was written is refused");
    expect(selectionText(again) == written, "a selection differs when read again");
}

void readAsClasses(const std::string& path)
{
    VelBrx::ClassTable table;
    if (!reported(readClasses(path, table))) return;
    static const TempFolder folder;
    const std::string written = folder.file("classes.json");
    expect(reported(writeClasses(written, table)), "classes cannot be written");
    VelBrx::ClassTable again;
    expect(reported(readClasses(written, again)), "classes that were written are refused");
    for (unsigned code = 0; code < 256; ++code)
        expect(again.name(code) == table.name(code) && again.color(code) == table.color(code),
               "classes differ when read again");
}

void readAsSettings(const std::string& path)
{
    Settings settings(path);
    (void)settings.get<int>("window.width");
    (void)settings.get<bool>("window.maximized");
    (void)settings.get<std::vector<std::string>>("files.recent");
    SavedViews views(settings, [] { return std::string("/a.brx"); });
    views.save("a", Pose());
    expect(!views.all().empty(), "a view is lost");
}

void readAsPluginOptions(const std::string& text)
{
    PluginOptions options;
    if (!reported(readPluginOptions(text, options))) return;
    expect(options.pointSize >= 0 && options.pointSize <= 64, "points of another size");
    expect(!options.normals || !options.normals->empty(), "a file of normals without a name");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    static const FuzzFile file("text.json");
    const std::string& path = file.put(data + 1, size - 1);
    switch (data[0] % 5) {
    case 0:
        readAsPolygons(path);
        break;
    case 1:
        readAsSelection(std::string(data + 1, data + size));
        break;
    case 2:
        readAsClasses(path);
        break;
    case 3:
        readAsSettings(path);
        break;
    default:
        readAsPluginOptions(std::string(data + 1, data + size));
        break;
    }
    return 0;
}
