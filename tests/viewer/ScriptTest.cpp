#include "viewer/script/Script.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <fstream>

using VelBrx::Status;

namespace {

/// A script read from a file of its own.
struct ReadScript
{
    explicit ReadScript(const std::string& text, const HeadlessRequest& request = {})
    {
        std::ofstream(folder.file("edit.json")) << text;
        options.headless = request;
        options.headless->script = folder.file("edit.json");
        status = script::read(options, script);
    }

    const TempFolder folder;
    Options options;
    script::Script script;
    Status status;
};

struct BadScript
{
    std::string text;
    std::string said; ///< what the message must contain after the file's name
};

const std::string kTriangle = R"("polygon": [[1, 2], [30, 4], [5, 60]])";

std::string cull(const std::string& members)
{
    return R"([{"op": "cull", )" + members + "}]";
}

std::string classify(const std::string& members)
{
    return R"([{"op": "classify", )" + kTriangle + ", " + members + "}]";
}

const BadScript kBadScripts[] = {
    {"", ": is no JSON: parse error at line 1"},
    {"[{]", ": is no JSON: parse error at line 1, column 3"},
    {"[\"\xff\xfe\"]", ": is no JSON: "},
    {cull("\"points\": " + std::string(500000, '[') + std::string(500000, ']')),
     ": is nested more than 64 deep"},
    {R"([{"op": "pointSize", "pixels": 1e999}])", ": is no JSON: number overflow"},
    {R"([{"op": "undo", "op": "reset"}])", ": \"op\" stands twice in one object"},
    {R"({"op": "undo"})", ": expected a list of operations"},
    {"[7]", ": operation 1: expected an object"},
    {R"([{"op": "settle"}, {}])", ": operation 2: \"op\" is missing"},
    {R"([{"op": "remove"}])", ": operation 1: \"op\": \"remove\" is no operation"},
    {R"([{"op": "a\nb"}])", R"("a\nb" is no operation)"},
    {R"([{"op": "undo", "times": 3}])", ": operation 1 (undo): \"times\" is no member of it"},
    {R"([{"op": "mode"}])", ": operation 1 (mode): \"mode\" is missing"},
    {R"([{"op": "mode", "mode": "sepia"}])", R"("mode": expected one of "rgb", "single")"},
    {R"([{"op": "edl", "on": 1}])", "\"on\": expected true or false"},
    {R"([{"op": "edl", "on": true, "radius": 33}])", "\"radius\": expected a number above 0, up to 32"},
    {R"([{"op": "edl", "on": true, "strength": 0}])", "\"strength\": expected a number above 0"},
    {R"([{"op": "light"}])", "\"from\" is missing"},
    {R"([{"op": "light", "from": "eye", "height": 30}])", "\"height\" is no member of it"},
    {R"([{"op": "light", "from": "sun", "height": 91}])", "\"height\": expected a number above 0"},
    {R"([{"op": "pointSize", "pixels": 65}])", "\"pixels\": expected a whole number from 1 to 64"},
    {R"([{"op": "pointSize", "pixels": 2.5}])", "expected a whole number"},
    {R"([{"op": "showClasses", "classes": [2, 256]}])",
     "\"classes\": expected a list of classes from 0 to 255"},
    {R"([{"op": "clip", "planes": [[1, 2, 3]]}])", "\"planes\": expected 4 numbers"},
    {R"([{"op": "clip", "planes": [[0, 0, 0, 1]]}])", "\"planes\": a plane needs a normal"},
    {R"([{"op": "segment", "hide": "all"}])", R"("hide": expected one of "selected", "others")"},
    {R"([{"op": "render", "file": ""}])", "\"file\": expected a text"},
    {R"([{"op": "camera"}])", "\"eye\" is missing"},
    {R"([{"op": "camera", "view": "up"}])", R"("view": expected one of "top", "bottom", "north")"},
    {R"([{"op": "camera", "view": "top", "up": [0, 0, 1]}])", "\"up\" is no member of it"},
    {R"([{"op": "camera", "eye": [0, 0, 9], "center": [0, 0, 0], "up": [0, 0, 1]}])",
     "\"up\": expected a direction"},
    {R"([{"op": "camera", "view": "top", "projection": "fisheye"}])", "\"projection\": expected"},
    {R"([{"op": "camera", "view": "top", "projection": "orthographic", "height": 0}])",
     "\"height\": expected a number above 0"},
    {R"([{"op": "settle"}, {"op": "window", "width": 9, "height": 9}])",
     ": operation 2 (window): the window's size can only be set by the first operation"},
    {R"([{"op": "cull"}])", ": operation 1 (cull): expected one of \"polygon\""},
    {cull(kTriangle + R"(, "selected": true)"), "expected one of \"polygon\""},
    {cull(R"("selected": true, "side": "outside")"), "\"side\": only of a polygon"},
    {cull(R"("points": {"sphere": {"center": [1, 2, 3], "radius": -1}})"), "\"points\": "},
    {cull(R"("polygon": [[1, 2], [3, 4]])"), "\"polygon\": expected a list of at least 3 vertices"},
    {cull(R"("polygon": [[1, 2], [3, 4], [5]])"), "expected 2 numbers, none beyond 1e12 as item 3"},
    {cull(R"("polygon": [[1, 2], [3, null], [5, 6]])"), "as item 2"},
    {cull(R"("worldPolygon": [[1, 2], [3, 4], [5, 6]])"), "\"worldPolygon\": expected 3 numbers"},
    {cull(R"("worldPolygon": [[1, 2, 3], [3, 4, 5]])"), "\"worldPolygon\": expected a list of at least 3"},
    {cull(kTriangle + R"(, "worldPolygon": [[1, 2, 3], [3, 4, 5], [5, 6, 7]])"),
     "\"polygon\" and \"worldPolygon\" exclude each other"},
    {cull(kTriangle + R"(, "side": "left")"), R"("side": expected one of "inside", "outside")"},
    {R"([{"op": "line", "line": [[1, 2]]}])", "\"line\": expected a list of at least 2 vertices"},
    {R"([{"op": "line", "line": [[1, 2], [3, 4]], "width": 0}])", "\"width\": expected a number above 0"},
    {classify(R"("from": [2])"), "\"to\" is missing"},
    {classify(R"("to": 18446744073709551615)"), "\"to\": expected a whole number from 0 to 255"},
    {classify(R"("to": "2")"), "\"to\": expected a whole number from 0 to 255"},
    {classify(R"("to": 2, "from": [256])"), "\"from\": expected a list of classes from 0 to 255"},
    {classify(R"("to": 2, "from": 1)"), "\"from\": expected a list of classes"},
    {classify(R"("to": 2, "dryRun": "yes")"), "\"dryRun\": expected true or false"}};

} // namespace

TEST(Script, ThatIsWrongIsToldInOneLineThatNamesFileAndOperation)
{
    for (const auto& [text, said] : kBadScripts) {
        SCOPED_TRACE(text);
        const ReadScript read(text);
        EXPECT_FALSE(read.status);
        const std::string& message = read.status.message();
        EXPECT_EQ(message.rfind(read.folder.file("edit.json") + ": ", 0), 0u) << message;
        EXPECT_NE(message.find(said), std::string::npos) << message;
        EXPECT_EQ(message.find('\n'), std::string::npos) << message;
    }
}

TEST(Script, RefusesPicturesThatCannotBeWritten)
{
    const TempFolder folder;
    std::ofstream(folder.file("there.png")) << "mine";
    const auto render = [&](const std::string& name) {
        return R"({"op": "render", "file": ")" + folder.file(name) + "\"}";
    };
    const auto message = [&](const std::string& steps) {
        return ReadScript("[" + steps + "]").status.message();
    };
    EXPECT_NE(message(render("there.png")).find("(render): " + folder.file("there.png") + ": exists"),
              std::string::npos);
    EXPECT_NE(message(render("new.xyz")).find("no picture format"), std::string::npos);
    EXPECT_NE(message(render("none/new.png")).find("its folder does not exist"), std::string::npos);
    EXPECT_NE(message(render("new.png") + "," + render("./new.png")).find("operation 2 (render): "),
              std::string::npos);
    EXPECT_EQ(message(render("new.png") + "," + render("newer.png")), "");
}

TEST(Script, SetsNoSizeWhereTheCommandLineDoes)
{
    const std::string text = R"([{"op": "window", "width": 300, "height": 200}])";
    HeadlessRequest sized;
    sized.sized = true;
    EXPECT_NE(ReadScript(text, sized).status.message().find("given by --size already"), std::string::npos);
}
