#include "session/OperationText.h"

#include <nlohmann/json.hpp>

#include <map>

using nlohmann::json;

std::string OperationText::of(const std::string& op, const VelOsgDBBrx::PointSelection& selection)
{
    return R"({"op":")" + op + R"(","points":)" + VelOsgDBBrx::selectionText(selection) + "}";
}

std::string OperationText::classify(const VelOsgDBBrx::PointSelection& selection,
                                    const VelOsgDBBrx::Classification& change)
{
    std::string text = of("classify", selection);
    text.back() = ',';
    text += R"("to":)" + std::to_string(change.toClass);
    if (!change.fromClasses.empty()) text += R"(,"from":)" + json(change.fromClasses).dump();
    return text + "}";
}

std::string OperationText::reset()
{
    return R"({"op":"reset"})";
}

std::string OperationText::dropUnsaved()
{
    return R"({"op":"dropUnsaved"})";
}

std::string OperationText::nameOf(const std::string& operation)
{
    static const std::map<std::string, std::string> kNames = {
        {"cull", "hide"}, {"uncull", "show"}, {"dropUnsaved", "drop unsaved classes"}};
    const json parsed = json::parse(operation, nullptr, false);
    if (!parsed.is_object()) return "edit";
    const auto op = parsed.find("op");
    if (op == parsed.end() || !op->is_string()) return "edit";
    const auto named = kNames.find(op->get<std::string>());
    return named == kNames.end() ? op->get<std::string>() : named->second;
}
