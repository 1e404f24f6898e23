#include "viewer/operation/Operations.h"

#include "terminal/Text.h"
#include "tests/support/ReadFile.h"

#include <gtest/gtest.h>

namespace {

std::string code(const std::string& text)
{
    return "`" + text + "`";
}

std::string membersOf(const Parameter& parameter)
{
    return code(parameter.name) + (parameter.isOutline() ? " or " + code(parameter.worldName()) : "");
}

std::string takenBy(const Parameter& parameter)
{
    std::string text = parameter.expectation();
    if (*parameter.unit) text += std::string(", ") + parameter.unit;
    if (!parameter.condition) return text;
    const auto& [other, value] = *parameter.condition;
    return text + (value ? "; with " + code(other) + " \"" + *value + "\""
                         : "; where " + code(other) + " is missing");
}

std::string otherwise(const Parameter& parameter)
{
    if (parameter.required) return "must be given";
    if (!parameter.otherwise) return parameter.without;
    const Value& value = *parameter.otherwise;
    if (const auto* text = std::get_if<std::string>(&value)) return "\"" + *text + "\"";
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
    return shortest(std::get<double>(value));
}

/// The table of scripting.md.
std::string tableOfOperations()
{
    std::string table = "| operation, its keys | member | takes | without it |\n|---|---|---|---|\n";
    for (const Operation& operation : operations()) {
        if (operation.windowOnly) continue;
        table += "| " + code(operation.name) + " " + operation.words;
        for (const Key& key : operation.keys)
            table += (&key == &operation.keys.front() ? ": " : " ") + code(key.name());
        table += " | | | |\n";
        for (const Parameter& parameter : operation.parameters)
            table += "| | " + membersOf(parameter) + " | " + takenBy(parameter) + " | " +
                     otherwise(parameter) + " |\n";
    }
    return table;
}

} // namespace

TEST(Operations, StandOnThePageOfScriptsAsInTheTable)
{
    const std::vector<uint8_t> page = readFile(VELBRX_SOURCE_DIR "/docs/scripting.md");
    const std::string table = tableOfOperations();
    EXPECT_NE(std::string(page.begin(), page.end()).find("\n" + table + "\n"), std::string::npos)
        << "docs/scripting.md is to say:\n"
        << table;
}

TEST(Operations, AreAskedByTheirKeysForWhatTheyTakeHoweverTheSceneStands)
{
    Scene scene;
    for (const double part : {0.001, 0.5, 1.0}) {
        scene.setPointSize(static_cast<int>(part * kLargestPointSize));
        scene.setShading({part * kStrongestEdl, part * kWidestEdl});
        scene.setLight({part == 0.5 ? NormalLight::EYE : NormalLight::NONE});
        for (const Operation& operation : operations()) {
            for (const Key& key : operation.keys) {
                SCOPED_TRACE(std::string(operation.name) + " " + key.name());
                Request request = requestOf({&operation, &key}, scene);
                if (const Parameter* outline = operation.outline())
                    request.set(outline->name, Outline(std::vector<osg::Vec2d>(3)));
                if (operation.find("to")) request.set("to", 255);
                EXPECT_EQ(request.check().message(), "");
                ASSERT_TRUE(operation.carryOut);
            }
        }
    }
}
