#pragma once

#include <osgGA/GUIEventAdapter>

/// The letter that a key types, as Unicode has it; 0 for a key that types none. Keys of keyboards that are
/// not Latin come as symbols of X.
unsigned letterOf(int key);

/// What the key of an event types on an American keyboard, where it types no Latin letter itself: keys for
/// commands are where they are on the keyboard, whatever script people write. The event's own key for every
/// other one.
int latinTwin(const osgGA::GUIEventAdapter& event);
