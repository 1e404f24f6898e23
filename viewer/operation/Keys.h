#pragma once

#include <osgGA/GUIEventAdapter>

#include <string>

/// A key and what is held with it, as one number: what the key types, or its name of
/// `osgGA::GUIEventAdapter::KeySymbol`, and `kCtrl`, `kAlt`, `kShift`. Shift is told of keys that type
/// nothing and beside Ctrl and Alt alone; elsewhere it says what is typed.
constexpr int kCtrl = 1 << 28;
constexpr int kAlt = 1 << 29;
constexpr int kShift = 1 << 30;

/// The key of an event. Those of the number pad are the ones they stand for.
int keyPressed(const osgGA::GUIEventAdapter& event);

/// What is written on keys: "x", "Ctrl+O", "F1", "PageUp".
std::string keyName(int key);
