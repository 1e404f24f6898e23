#include "headless/EglDisplays.h"

#include <EGL/eglext.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

/// A display that could be opened, before it is.
struct Candidate
{
    EGLenum platform; ///< 0: the default display
    void* native;
    std::string name;
    std::string key; ///< value of VELBRX_EGL_DEVICE that picks it
    bool software = false;
};

bool lists(const char* extensions, const char* extension)
{
    return extensions && std::strstr(extensions, extension);
}

template <class Function>
Function entryPoint(const char* name)
{
    return reinterpret_cast<Function>(eglGetProcAddress(name));
}

void addDevices(std::vector<Candidate>& candidates)
{
    const char* extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    const auto queryDevices = entryPoint<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
    const auto queryString = entryPoint<PFNEGLQUERYDEVICESTRINGEXTPROC>("eglQueryDeviceStringEXT");
    EGLint count = 0;
    if (!lists(extensions, "EGL_EXT_platform_device") || !queryDevices || !queryString ||
        !queryDevices(0, nullptr, &count) || count <= 0) {
        return;
    }
    std::vector<EGLDeviceEXT> devices(static_cast<size_t>(count));
    if (!queryDevices(count, devices.data(), &count)) return;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        const std::string number = std::to_string(i);
        candidates.push_back({EGL_PLATFORM_DEVICE_EXT, devices[i], "EGL device " + number, number,
                              lists(queryString(devices[i], EGL_EXTENSIONS), "EGL_MESA_device_software")});
    }
    std::stable_partition(candidates.begin(), candidates.end(),
                          [](const Candidate& candidate) { return !candidate.software; });
}

std::vector<Candidate> listCandidates()
{
    std::vector<Candidate> candidates;
    addDevices(candidates);
    if (lists(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_MESA_platform_surfaceless")) {
        candidates.push_back({EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY,
                              "the surfaceless EGL platform", "surfaceless"});
    }
    candidates.push_back({0, EGL_DEFAULT_DISPLAY, "the default EGL display", "default"});
    return candidates;
}

void keepChosen(std::vector<Candidate>& candidates, const std::string& choice)
{
    const auto chosen = std::find_if(candidates.begin(), candidates.end(), [&](const Candidate& candidate) {
        return candidate.key == choice || (choice == "software" && candidate.software);
    });
    candidates = chosen == candidates.end() ? std::vector<Candidate>() : std::vector<Candidate>{*chosen};
}

EGLDisplay open(const Candidate& candidate)
{
    const auto getPlatformDisplay = entryPoint<PFNEGLGETPLATFORMDISPLAYEXTPROC>("eglGetPlatformDisplayEXT");
    EGLDisplay display = EGL_NO_DISPLAY;
    if (candidate.platform == 0) {
        display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    } else if (getPlatformDisplay) {
        display = getPlatformDisplay(candidate.platform, candidate.native, nullptr);
    }
    const bool usable = display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr) &&
                        lists(eglQueryString(display, EGL_CLIENT_APIS), "OpenGL");
    return usable ? display : EGL_NO_DISPLAY;
}

struct Displays
{
    Displays()
    {
        std::vector<Candidate> candidates = listCandidates();
        const char* choice = std::getenv("VELBRX_EGL_DEVICE");
        if (choice && *choice) keepChosen(candidates, choice);
        for (const Candidate& candidate : candidates) {
            const EGLDisplay display = open(candidate);
            if (display != EGL_NO_DISPLAY) usable.push_back({display, candidate.name});
        }
        if (!usable.empty()) return;
        reason =
            choice && *choice
                ? "the EGL display that VELBRX_EGL_DEVICE=" + std::string(choice) + " names is not usable"
                : "no EGL display draws OpenGL; install a driver, such as the package libegl-mesa0";
    }

    std::vector<EglDisplay> usable;
    std::string reason;
};

} // namespace

const std::vector<EglDisplay>& eglDisplays(std::string& reason)
{
    static const Displays displays;
    reason = displays.reason;
    return displays.usable;
}
