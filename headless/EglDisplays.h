#pragma once

#include <EGL/egl.h>

#include <string>
#include <vector>

/// An initialised EGL display that draws without a window system.
struct EglDisplay
{
    EGLDisplay handle = EGL_NO_DISPLAY;
    std::string name; ///< for messages
};

/// The displays of this process in the order of preference: hardware devices, software devices, the
/// surfaceless platform, the default display. They are opened at the first call and stay open until the
/// process ends, because contexts of other windows live on them.
///
/// The environment variable VELBRX_EGL_DEVICE, read at the first call, picks one: the number of a device as
/// EGL counts them (0 is the first), "software" for the first software device, "surfaceless" or "default".
///
/// Empty when there is none; `reason` then says why. Any thread may call it.
const std::vector<EglDisplay>& eglDisplays(std::string& reason);
