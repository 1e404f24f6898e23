#include "viewer/camera/SavedViews.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

namespace {

/// Eye, centre, up, and the height of an orthographic picture; 0 in perspective.
using Numbers = std::vector<double>;
constexpr size_t kNumbers = 10;

Numbers numbersOf(const Pose& pose)
{
    const Look look = pose.look();
    Numbers numbers;
    for (const osg::Vec3d& vector : {look.eye, look.center, look.up})
        numbers.insert(numbers.end(), vector.ptr(), vector.ptr() + 3);
    numbers.push_back(pose.orthographic() ? pose.height() : 0);
    return numbers;
}

Pose poseOf(const Numbers& n)
{
    const Look look = {{n[0], n[1], n[2]}, {n[3], n[4], n[5]}, {n[6], n[7], n[8]}};
    return Pose(look, {n[9] > 0, n[9]});
}

/// What a hand wrote into the file may be no view.
bool isView(const Numbers& n)
{
    if (n.size() != kNumbers) return false;
    const osg::Vec3d ahead(n[3] - n[0], n[4] - n[1], n[5] - n[2]);
    return (ahead ^ osg::Vec3d(n[6], n[7], n[8])).length2() > 0;
}

std::string keyOf(const std::string& store)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(store, error);
    return "views:" + (error ? store : path.lexically_normal().string());
}

} // namespace

SavedViews::SavedViews(Settings& settings, std::function<std::string()> store)
    : _settings(settings), _store(std::move(store))
{
}

const std::vector<SavedViews::View>& SavedViews::all()
{
    const std::string store = _store();
    if (store == _read) return _views;
    _read = store;
    _views.clear();
    const auto known = _settings.get<std::map<std::string, Numbers>>(keyOf(store));
    if (!known) return _views;
    for (const auto& [name, numbers] : *known)
        if (isView(numbers)) _views.push_back({name, poseOf(numbers)});
    return _views;
}

void SavedViews::save(const std::string& name, const Pose& pose)
{
    if (all(); _read.empty()) return; // nothing is on show
    const auto place =
        std::lower_bound(_views.begin(), _views.end(), name,
                         [](const View& view, const std::string& text) { return view.name < text; });
    if (place != _views.end() && place->name == name)
        place->pose = pose;
    else
        _views.insert(place, {name, pose});
    write();
}

bool SavedViews::rename(size_t view, const std::string& name)
{
    for (size_t other = 0; other < _views.size(); ++other)
        if (other != view && _views[other].name == name) return false;
    const Pose pose = _views.at(view).pose;
    _views.erase(_views.begin() + static_cast<ptrdiff_t>(view));
    save(name, pose);
    return true;
}

void SavedViews::remove(size_t view)
{
    _views.erase(_views.begin() + static_cast<ptrdiff_t>(view));
    write();
}

void SavedViews::write() const
{
    std::map<std::string, Numbers> kept;
    for (const View& view : _views)
        kept[view.name] = numbersOf(view.pose);
    _settings.set(keyOf(_read), kept);
}
