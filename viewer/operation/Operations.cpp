#include "viewer/operation/Operations.h"

#include "viewer/operation/CameraOperations.h"
#include "viewer/operation/EditOperations.h"
#include "viewer/operation/LookOperations.h"
#include "viewer/operation/MeasureOperations.h"
#include "viewer/operation/ParameterKinds.h"
#include "viewer/operation/SectionOperations.h"

using namespace parameter;

namespace {

/// What only scripts do.
std::vector<Operation> scriptOperations()
{
    return {{"settle", "waits for all points of the picture", {}},
            {"render", "draws a picture", {text("file")}},
            {"report", "counts points", {}}};
}

} // namespace

const std::vector<Operation>& operations()
{
    static const std::vector<Operation> all = [] {
        std::vector<Operation> table = lookOperations();
        for (const std::vector<Operation>& more : {cameraOperations(), sectionOperations(), editOperations(),
                                                   measureOperations(), scriptOperations()})
            table.insert(table.end(), more.begin(), more.end());
        return table;
    }();
    return all;
}

const Operation* findOperation(const std::string& name)
{
    for (const Operation& operation : operations())
        if (operation.name == name) return &operation;
    return nullptr;
}

std::optional<PressedKey> findKey(int key, Key::When when)
{
    for (const Operation& operation : operations())
        for (const Key& known : operation.keys)
            if (known.key == key && known.when == when) return PressedKey{&operation, &known};
    return std::nullopt;
}

Request requestOf(const PressedKey& pressed, const Scene& scene)
{
    Request request(*pressed.operation);
    if (pressed.key->say) pressed.key->say(request, scene);
    return request;
}

std::string keyOf(const std::string& operation)
{
    return findOperation(operation)->keys.front().name();
}

std::vector<std::pair<std::string, std::string>> listKeys(Key::When when)
{
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Operation& operation : operations())
        for (const Key& key : operation.keys) {
            if (key.when != when) continue;
            if (key.words)
                lines.emplace_back(key.name(), key.words);
            else
                lines.back().first += " / " + key.name();
        }
    return lines;
}
