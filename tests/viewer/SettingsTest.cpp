#include "viewer/settings/Settings.h"
#include "viewer/window/KeptLook.h"

#include "tests/support/NoRoom.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

using Names = std::vector<std::string>;

} // namespace

TEST(Settings, TwoWindowsAndANewerVersionShareOneFile)
{
    const TempFolder folder;
    const std::string path = folder.file("not/there/settings.json");
    Settings first(path);
    Settings second(path);
    EXPECT_FALSE(first.get<int>("window.width")) << "nothing is remembered yet";
    first.set("window.width", 1400);
    first.set("files.recent", Names{"/a/ä.laz", "/b/\xff.las"});
    EXPECT_EQ(first.get<int>("window.width"), 1400);
    EXPECT_FALSE(fs::exists(path)) << "set alone writes nothing";
    EXPECT_TRUE(first.save());
    second.set("look.pointSize", 2.5);
    EXPECT_TRUE(second.save());

    Settings third(path);
    EXPECT_EQ(third.problem(), "");
    EXPECT_EQ(third.get<int>("window.width"), 1400) << "the second window has never read it";
    EXPECT_EQ(third.get<double>("window.width"), 1400.0);
    EXPECT_EQ(third.get<Names>("files.recent")->front(), "/a/ä.laz");
    EXPECT_EQ(third.get<double>("look.pointSize"), 2.5);
    EXPECT_FALSE(third.get<int>("look.pointSize")) << "is not whole";
    EXPECT_FALSE(third.get<std::string>("look.pointSize"));

    folder.write("newer.json", bytesOf(R"({"views": {"saved": [1, 2]}, "window.width": "wide"})"));
    fs::create_symlink(folder.file("newer.json"), folder.file("link.json"));
    Settings older(folder.file("link.json"));
    EXPECT_FALSE(older.get<int>("window.width"));
    older.set("panel.open", true);
    EXPECT_TRUE(older.save());
    const std::vector<uint8_t> bytes = readFile(folder.file("newer.json"));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), R"({
  "panel.open": true,
  "views": {
    "saved": [
      1,
      2
    ]
  },
  "window.width": "wide"
}
)");
    EXPECT_TRUE(fs::is_symlink(folder.file("link.json")));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 3) << "no temporary file is left";
}

TEST(Settings, AFileThatCannotBeReadOrWrittenIsToldOfAndLeftAlone)
{
    const TempFolder folder;
    for (const std::string text : {"{\"window.width\": 14", "[1, 2]", ""}) {
        const std::string path = folder.write("settings.json", bytesOf(text));
        Settings settings(path);
        EXPECT_EQ(settings.problem().find(path + ": cannot be read as settings"), 0u) << settings.problem();
        settings.set("window.width", 3);
        EXPECT_EQ(settings.get<int>("window.width"), 3) << "holds as long as the window";
        EXPECT_TRUE(settings.save());
        EXPECT_EQ(readFile(path), bytesOf(text));
    }
    const std::string old = folder.write("settings.json", bytesOf("{\"a\": 1}"));
    Settings full(old);
    full.set("files.recent", Names(100, "/some/path.laz"));
    {
        const NoRoom noRoom(64);
        EXPECT_NE(full.save().message().find(old + ": cannot be written: "), std::string::npos);
    }
    EXPECT_EQ(readFile(old), bytesOf("{\"a\": 1}"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1) << "no temporary file is left";
    EXPECT_TRUE(full.save()) << "what was not written is written later";
    EXPECT_EQ(Settings(old).get<Names>("files.recent")->size(), 100u);

    folder.write("file", {});
    Settings nowhere(folder.file("file/settings.json"));
    nowhere.set("window.width", 3);
    const VelBrx::Status status = nowhere.save();
    EXPECT_NE(status.message().find(folder.file("file/settings.json")), std::string::npos)
        << status.message();
}

TEST(Settings, KeepHowPointsLookAndLeaveOutWhatNoOptionTakes)
{
    const TempFolder folder;
    const std::string path = folder.file("settings.json");
    Settings first(path);
    Options asked;
    asked.pointSize = 5;
    asked.pointSizing = {true, 2.5};
    asked.edl = true;
    asked.shading = {3, 4};
    asked.light = {NormalLight::SUN, 100, 20};
    asked.memory = 3000000000;
    Scene scene;
    scene.setLook(asked);
    scene.setPalette("viridis");
    Scene::Drawing drawing = scene.drawing();
    drawing.background.set(1, 0.4f, 0, 1);
    drawing.framesPerSecond = 60;
    scene.setDrawing(drawing);
    keepLook(scene, first);
    ASSERT_TRUE(first.save());

    const Settings second(path);
    Options options;
    recallLook(second, options);
    Scene later;
    later.setLook(options);
    recallLook(second, later);
    EXPECT_EQ(later.pointSize(), 5);
    EXPECT_TRUE(later.pointSizing().bySpacing);
    EXPECT_EQ(later.pointSizing().factor, 2.5);
    EXPECT_TRUE(later.eyeDomeLighting());
    EXPECT_EQ(later.shading().strength, 3);
    EXPECT_EQ(later.shading().radius, 4);
    EXPECT_EQ(later.light().source, NormalLight::SUN);
    EXPECT_EQ(later.light().azimuth, 100);
    EXPECT_EQ(later.light().height, 20);
    EXPECT_EQ(later.drawing().memory, 3000000000u);
    EXPECT_FALSE(later.drawing().budget);
    EXPECT_EQ(later.largestPoints(), 3000000000u / 44);
    EXPECT_EQ(later.gradients().palette, "viridis");
    EXPECT_EQ(later.drawing().background, osg::Vec4f(1, 0.4f, 0, 1));
    EXPECT_EQ(later.drawing().framesPerSecond, 60);

    folder.write("settings.json",
                 bytesOf(R"({"look.pointSize": 900, "look.palette": "mud", "look.light": [7, 0, 0],
        "look.background": "red", "look.memory": -4, "look.budget": 1e300, "look.edlStrength": 0})"));
    const Settings broken(path);
    Options plain;
    recallLook(broken, plain);
    Scene usual;
    recallLook(broken, usual);
    EXPECT_EQ(plain.pointSize, 0);
    EXPECT_EQ(plain.light.source, NormalLight::EYE);
    EXPECT_EQ(plain.shading.strength, EyeDomeShading().strength);
    EXPECT_FALSE(plain.memory || plain.budget);
    EXPECT_EQ(usual.gradients().palette, Scene().gradients().palette);
    EXPECT_EQ(usual.drawing().background, Scene::Drawing().background);
}
