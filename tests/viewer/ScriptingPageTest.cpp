#include "tests/support/DocsPage.h"
#include "tests/support/JsonLines.h"
#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "viewer/operation/Operations.h"

#include <VelBrx/SampleSurvey.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

using nlohmann::json;

namespace {

const std::string kPage = VELBRX_SOURCE_DIR "/docs/scripting.md";

std::set<std::string> membersOf(const json& object)
{
    std::set<std::string> names;
    for (const auto& [name, value] : object.items())
        names.insert(name);
    return names;
}

} // namespace

TEST(ScriptingPage, ShowsScriptsThatRunAndTheLinesThatTheyPrint)
{
    const TempFolder folder;
    VelBrx::SampleOptions sample;
    sample.output = folder.file("survey.las");
    sample.points = 100000;
    ASSERT_TRUE(VelBrx::writeSampleSurvey(sample));

    std::set<std::string> shown;
    std::vector<json> printed;
    const std::vector<std::string> examples = codeBlocks(kPage, "json");
    for (size_t i = 0; i < examples.size(); ++i) {
        const std::vector<uint8_t> text(examples[i].begin(), examples[i].end());
        folder.write("edit.json", text);
        const ProgramResult result = runProgram(
            {"env", "-C", folder.path(), BRXVIEW, "--force", "--script", "edit.json", "survey.las"},
            {"DISPLAY"});
        ASSERT_EQ(result.exitStatus, 0) << examples[i] << result.out << result.err;
        const std::vector<json> lines = jsonLines(result.out);
        const json steps = json::parse(examples[i]);
        ASSERT_EQ(lines.size(), steps.size() + 1) << result.out;
        for (size_t step = 0; step < steps.size(); ++step) {
            EXPECT_EQ(lines[step]["operation"], step + 1);
            EXPECT_EQ(lines[step]["op"], steps[step]["op"]);
            shown.insert(steps[step]["op"]);
            const bool draws = steps[step].contains("file");
            EXPECT_TRUE(!draws || std::filesystem::exists(folder.file(steps[step]["file"]))) << examples[i];
        }
        printed.insert(printed.end(), lines.begin(), lines.end());
    }
    std::set<std::string> known;
    for (const Operation& operation : operations())
        if (!operation.windowOnly) known.insert(operation.name);
    EXPECT_EQ(shown, known);

    for (const std::string& block : codeBlocks(kPage, "jsonl")) {
        for (const json& line : jsonLines(block)) {
            const bool found = std::any_of(printed.begin(), printed.end(), [&](const json& other) {
                return membersOf(other) == membersOf(line) && other.value("op", "") == line.value("op", "");
            });
            EXPECT_TRUE(found) << line;
        }
    }
}

TEST(ScriptingPage, ShowsAMessageAsItIs)
{
    const TempFolder folder;
    const std::string text = R"([{"op": "settle"}, {"op": "settle"}, {"op": "cull", "polygon": []}])";
    folder.write("edit.json", std::vector<uint8_t>(text.begin(), text.end()));
    const ProgramResult result =
        runProgram({"env", "-C", folder.path(), BRXVIEW, "--script", "edit.json", "survey.brx"}, {"DISPLAY"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.out, "");
    const std::vector<uint8_t> page = readFile(kPage);
    const std::string told = "\n" + result.err;
    EXPECT_NE(std::search(page.begin(), page.end(), told.begin(), told.end()), page.end()) << result.err;
}
