#pragma once

#include "terminal/ClassList.h"
#include "viewer/camera/SavedViews.h"
#include "viewer/camera/SectionStage.h"
#include "viewer/camera/SurveyManipulator.h"
#include "viewer/display/ColorMode.h"
#include "viewer/edit/Outline.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/measure/Measuring.h"
#include "viewer/operation/Keys.h"
#include "viewer/scene/CameraView.h"
#include "viewer/scene/Scene.h"

#include <VelBrx/Status.h>
#include <osg/Vec3d>
#include <osg/Vec4d>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// What a parameter can hold; `Parameter::Type` says which of them it does.
using Value =
    std::variant<bool, int, double, std::string, osg::Vec2d, osg::Vec3d, std::vector<osg::Vec3d>, ClassSet,
                 Outline, std::vector<osg::Vec4d>, VelOsgDBBrx::PointSelection, VelOsgDBBrx::ValueRange>;

/// One thing that an operation must know.
struct Parameter
{
    enum Type
    {
        FLAG,      ///< bool
        WHOLE,     ///< int from `low` to `high`
        NUMBER,    ///< double above `low`, up to `high`
        TEXT,      ///< std::string, not empty
        CHOICE,    ///< std::string, one of `choices`
        PLACE,     ///< osg::Vec2d, likewise
        POSITION,  ///< osg::Vec3d, no number beyond `high`
        POSITIONS, ///< std::vector<osg::Vec3d>, at least `low`, no number beyond `high`
        CLASSES,   ///< ClassSet, at least one or `canBeEmpty`, of `low` to `high`
        POLYGON,   ///< Outline of `low` vertices or more, no number beyond `high`
        LINE,      ///< likewise, open
        PLANES,    ///< std::vector<osg::Vec4d>, at least one, no number beyond `high`
        POINTS,    ///< VelOsgDBBrx::PointSelection
        RANGE      ///< VelOsgDBBrx::ValueRange, the smaller number first
    };

    std::string name;
    Type type;
    double low = 0;
    double high = 0;
    const char* unit = ""; ///< such as "pixels"; empty where there is none
    std::vector<std::string> choices = {};

    bool required = true;
    std::optional<Value> otherwise = std::nullopt; ///< what holds without it
    const char* without = "";                      ///< what holds without it, where that is no value

    /// Belongs to the operation only where the parameter of this name, which stands before it, has this
    /// value, or, with no value, is not given.
    struct Condition
    {
        std::string parameter;
        std::optional<std::string> value;
    };
    std::optional<Condition> condition = std::nullopt;

    bool canBeEmpty = false; ///< of CLASSES: no class at all is a value, too

    bool isOutline() const { return type == POLYGON || type == LINE; }

    /// Of an outline: its name where the vertices are in world coordinates.
    std::string worldName() const;

    /// So many numbers, for messages.
    static std::string vectorText(int count, double largest);

    /// What it takes: "a whole number from 0 to 255".
    std::string expectation() const;

    /// Whether a value of its type is one that it takes.
    bool takes(const Value& value) const;
};

struct Operation;

/// An operation with what it is to work with: what a script says, or a key, or a dialog.
class Request
{
public:
    /// `wanted` outlives the request, as those of the table do.
    explicit Request(const Operation& wanted) : _operation(&wanted) {}

    const Operation& operation() const { return *_operation; }

    void set(const std::string& name, Value value) { _values[name] = std::move(value); }

    /// Whether a parameter was given or has a value without that.
    bool has(const std::string& name) const { return find(name) != nullptr; }

    /// The value of a parameter that `has` one, in the type that it has.
    template <class T>
    const T& get(const std::string& name) const
    {
        return std::get<T>(*find(name));
    }

    /// Whether a parameter belongs to the operation beside those that are given.
    bool wants(const Parameter& parameter) const;

    /// Why the operation cannot be tried: what is missing or out of range.
    VelBrx::Status check() const;

private:
    const Value* find(const std::string& name) const;

    const Operation* _operation;
    std::map<std::string, Value> _values;
};

/// Where files are opened, closed and written. A window does it while it goes on, and tells then what came of
/// it.
class FileStage
{
public:
    struct How
    {
        std::string place;    ///< of the store of a LAS or LAZ file; empty: where it usually is
        bool rebuild = false; ///< a store that is older than its file
        bool inView = false;  ///< of a folder with an index file no more than pictures show
    };

    /// Shows a store, the stores of a folder, or a LAS or LAZ file. `told` gets what is to know.
    virtual VelBrx::Status open(const std::string& file, const How& how, std::string& told) = 0;

    /// Opens the stores that wait until a picture shows them.
    virtual VelBrx::Status openAll(std::string& told) = 0;

    /// Takes a cloud out; its journal keeps what is not saved.
    virtual VelBrx::Status close(const Scene::Cloud& cloud) = 0;

    /// Writes a cloud as its store has it, as LAS, LAZ or COPC by the name's ending. A file that exists stays
    /// unless it is to be replaced.
    virtual VelBrx::Status exportCloud(const Scene::Cloud& cloud, const std::string& file, bool replace,
                                       std::string& told) = 0;

protected:
    ~FileStage() = default;
};

/// What operations act on.
struct Stage
{
    Scene& scene;
    SceneEditing& editing;

    /// Turns the camera. An orthographic lens of height 0 shows all that there is; without a lens the
    /// projection stays.
    std::function<void(const CameraView& view, const std::optional<Lens>& lens)> look;

    /// What moves the camera of a window; null in scripts and pictures, where operations that are
    /// `windowOnly` are not done.
    SurveyManipulator* camera = nullptr;

    /// Where sections are shown.
    SectionStage* section = nullptr;

    /// What the user keeps of the survey on show; null in scripts and pictures.
    SavedViews* views = nullptr;

    /// Does what a person asked for with a widget, after the question that it may take, and tells them what
    /// comes of it. Null in scripts and pictures, where nobody clicks.
    std::function<void(const Request&)> act = nullptr;

    /// Null in pictures that no script draws.
    FileStage* files = nullptr;

    /// What is measured; null in pictures that no script draws.
    Measuring* measuring = nullptr;
};

/// What came of beginning an operation.
struct Begun
{
    enum State
    {
        DONE,
        RUNNING, ///< `editing` tells what comes of it
        BUSY,    ///< not begun: another one is running
        REFUSED  ///< nothing is done
    };
    State state = DONE;
    std::string message; ///< something to know, of one that is done; why, of one that is refused
};

/// A key that does an operation.
struct Key
{
    enum When
    {
        ALWAYS,
        EDITING ///< in edit mode
    };

    int key;           ///< as of `keyPressed`
    const char* words; ///< for the list of keys; null where it stands in a line with the key before
    When when = ALWAYS;

    /// What the key says of the parameters, as the scene stands; null where it says nothing. The shape that
    /// is drawn and the classes of the panel are added to it.
    std::function<void(Request&, const Scene&)> say = nullptr;

    const char* hint = ""; ///< what it does to a shape, "hides inside"; what is typed, "classes to show"
    const char* typed = nullptr; ///< the parameter of classes that is typed after the key

    std::string name() const { return keyName(key); }
};

/// What a user can do: by a script, by a key, by a dialog.
struct Operation
{
    const char* name;  ///< in scripts
    const char* words; ///< what it does
    std::vector<Parameter> parameters = {};
    std::vector<Key> keys = {};

    /// Does it, or begins to. Null where scripts alone can: what is done then is a matter of how they run.
    Begun (*carryOut)(const Request&, const Stage&) = nullptr;

    /// What no parameter can tell alone; null where there is nothing.
    VelBrx::Status (*check)(const Request&) = nullptr;

    const char* question = nullptr; ///< to ask people before it is done by hand
    const char* answer = "";        ///< what yes means

    bool windowOnly = false; ///< scripts do not have it

    /// The polygon or the line that it works with; null where there is none.
    const Parameter* outline() const;
    const Parameter* find(const std::string& parameter) const;
};

/// Does an operation that is none of scripts alone, or begins to. The only way, whoever asks. A request that
/// fails its check is refused.
Begun carryOut(const Request& request, const Stage& stage);
