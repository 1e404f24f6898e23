#include "viewer/operation/Operations.h"

#include "viewer/operation/CameraOperations.h"
#include "viewer/operation/EditOperations.h"
#include "viewer/operation/FileOperations.h"
#include "viewer/operation/LookOperations.h"
#include "viewer/operation/MeasureOperations.h"
#include "viewer/operation/ParameterKinds.h"
#include "viewer/operation/SectionOperations.h"

#include <algorithm>

using namespace parameter;

namespace {

using Keys = std::vector<Key>::const_iterator;

/// Of keys that stand in one line: "x / X", or "Ctrl+1 ... Ctrl+9" where many follow each other.
std::string namesOf(Keys begin, Keys end)
{
    constexpr int kMany = 4;
    const auto last = end - 1;
    const bool isRow =
        std::adjacent_find(begin, end, [](const Key& a, const Key& b) { return b.key != a.key + 1; }) == end;
    if (isRow && end - begin >= kMany) return begin->name() + " ... " + last->name();
    std::string names = begin->name();
    for (auto key = begin + 1; key != end; ++key)
        names += " / " + key->name();
    return names;
}

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
                                                   measureOperations(), fileOperations(), scriptOperations()})
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
        for (auto key = operation.keys.begin(); key != operation.keys.end();) {
            const auto next =
                std::find_if(key + 1, operation.keys.end(), [](const Key& k) { return k.words; });
            if (key->when == when) lines.emplace_back(namesOf(key, next), key->words);
            key = next;
        }
    return lines;
}
