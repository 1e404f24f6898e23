#pragma once

#include "viewer/edit/ClassChoice.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/operation/Operation.h"
#include "viewer/scene/Scene.h"
#include "viewer/window/ToolUse.h"
#include "viewer/window/Views.h"

#include <string>

/// Completes requests of keys and buttons: the place of an operation is what is drawn, pointed at or selected
/// in the window, its classes are the user's choice. Edits mean the picture that it was drawn on from then
/// on.
///
/// Belongs to the viewer's thread.
class RequestPlace
{
public:
    /// All of it outlives this object.
    RequestPlace(SceneEditing& session, const Scene& scene, const Views& views, ToolUse& tools,
                 const ClassChoice& classes)
        : _session(session), _scene(scene), _views(views), _tools(tools), _classes(classes)
    {
    }

    /// Whether the operation needs a place and the request says none.
    static bool isNeeded(const Request& request);

    /// \name Each returns why there is no place, for people; empty where there is one
    /// @{
    /// Of what the tool in hand has drawn, which is closed, or points at; without a tool what is selected.
    std::string add(Request& request) const;

    /// Of what the brush has covered, as it is seen now; the brush forgets it. `canWait`: the request means
    /// the same points when it is carried out later.
    std::string addStroke(Request& request, bool& canWait) const;
    /// @}

    /// The classes of the panel go to the parameters that can hold them.
    void addClasses(Request& request) const;

private:
    SceneEditing& _session;
    const Scene& _scene;
    const Views& _views;
    ToolUse& _tools;
    const ClassChoice& _classes;
};
