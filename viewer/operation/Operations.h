#pragma once

#include "viewer/operation/Operation.h"

/// The table of everything that users can do, each declared once: scripts, keys, help and pages follow from
/// it.
const std::vector<Operation>& operations();

/// Null where there is none of this name.
const Operation* findOperation(const std::string& name);

/// An operation and the key of it that was pressed.
struct PressedKey
{
    const Operation* operation;
    const Key* key;
};

std::optional<PressedKey> findKey(int key, Key::When when);

/// What a key asks for as the scene stands, but for the shape that is drawn and the classes of the panel.
Request requestOf(const PressedKey& pressed, const Scene& scene);

/// The first key of an operation that has one.
std::string keyOf(const std::string& operation);

/// The keys of one kind for the list of keys: what to press, "x / X", and what it does.
std::vector<std::pair<std::string, std::string>> listKeys(Key::When when);
