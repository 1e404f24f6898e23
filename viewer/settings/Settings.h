#pragma once

#include <VelBrx/Status.h>

#include <memory>
#include <optional>
#include <string>

/// What the program remembers from one window to the next: a JSON object in the user's configuration folder,
/// of keys such as "window.width".
///
/// It never fails the program: where there is no file, or none that can be read, nothing is remembered. A
/// broken file is left alone, and `problem` says so. What a newer version keeps there stays: keys that this
/// one does not know, and values of another type than it expects until it sets them.
///
/// Belongs to the viewer's thread.
class Settings
{
public:
    /// $XDG_CONFIG_HOME/brxview/settings.json, by default below ~/.config; empty where neither is known.
    static std::string defaultPath();

    /// Reads the file. An empty path remembers nothing.
    explicit Settings(const std::string& path = defaultPath());
    ~Settings();
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    /// Why nothing is remembered, a line for people that names the file; empty where all is well.
    const std::string& problem() const { return _problem; }

    /// Empty where the key is not there, or its value is not exactly a `T`. The types are those at the end of
    /// Settings.cpp: bool, int, double, std::string, and vectors and maps of them.
    template <class T>
    std::optional<T> get(const std::string& key) const;

    /// The file has it after the next `save`.
    template <class T>
    void set(const std::string& key, const T& value);

    /// Writes what was set since the last time, and nothing else: what another window wrote meanwhile stays.
    /// The file is replaced in one piece, so a disk without room costs only what was to be added. A failure
    /// names the file.
    VelBrx::Status save();

private:
    struct Values;

    const std::string _path;
    std::string _problem;
    const std::unique_ptr<Values> _values;
};
