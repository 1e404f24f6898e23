#pragma once

#include "viewer/display/Legend.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/IPointCloud.h>

#include <optional>
#include <string>
#include <vector>

/// What the colour mode "changed" tells of the points that edits touched.
enum class ChangedBy
{
    ENTRY, ///< which edit
    AUTHOR,
    AGE,
    BUILT ///< how they differ from what they were when the store was built
};

/// In the order in which the key goes through them.
const std::vector<std::string>& changedByNames();

std::optional<ChangedBy> namedChangedBy(const std::string& name);
std::string nameOf(ChangedBy by);

/// The colours of the points that edits touched, and their legend, over all stores on show. Edits of several
/// stores by one operation have one colour. What was not touched is grey.
///
/// Belongs to the viewer's thread.
class ChangedColors
{
public:
    /// Puts the colours on the clouds, with the edits as they are now. Waits for the journals to be read.
    VelBrx::Status apply(const std::vector<VelOsgDBBrx::IPointCloud*>& clouds, ChangedBy by);

    /// Cells that are read from now on are not marked.
    void end(const std::vector<VelOsgDBBrx::IPointCloud*>& clouds);

    const Legend& legend() const { return _legend; }

private:
    Legend _legend;
};
