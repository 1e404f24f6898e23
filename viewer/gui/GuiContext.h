#pragma once

#include <VelThreads/Mutex.h>

struct ImGuiContext;

/// A context of Dear ImGui with our fonts and style.
///
/// Threads: any that holds `mutex`. Which context is the current one is told once a process, so that the lock
/// is for all of them.
class GuiContext
{
public:
    /// `unit`: the pixels that a pixel of plain text is drawn with.
    explicit GuiContext(float unit);
    ~GuiContext();
    GuiContext(const GuiContext&) = delete;
    GuiContext& operator=(const GuiContext&) = delete;

    static VelThreads::Mutex mutex;

    /// Every call of Dear ImGui is for this context from now on.
    void makeCurrent() const VEL_REQUIRES(mutex);

private:
    ImGuiContext* const _context;
};
