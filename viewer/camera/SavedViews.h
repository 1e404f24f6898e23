#pragma once

#include "viewer/camera/Pose.h"
#include "viewer/settings/Settings.h"

#include <functional>
#include <string>
#include <vector>

/// The views of a survey that a user keeps by name, from one window to the next. They are in the settings,
/// under the path of the store that is on show.
///
/// Belongs to the viewer's thread.
class SavedViews
{
public:
    struct View
    {
        std::string name;
        Pose pose;
    };

    /// The settings outlive it. `store`: the path of the one that is on show, empty where there is none.
    SavedViews(Settings& settings, std::function<std::string()> store);

    /// Of the store that is on show, by name.
    const std::vector<View>& all();

    /// A view of the same name is replaced.
    void save(const std::string& name, const Pose& pose);

    /// \name By number, from 0 on
    /// @{
    /// False, and nothing happens, where another view has the name.
    bool rename(size_t view, const std::string& name);
    void remove(size_t view);
    /// @}

private:
    void write() const;

    Settings& _settings;
    const std::function<std::string()> _store;
    std::string _read; ///< the store whose views these are
    std::vector<View> _views;
};
