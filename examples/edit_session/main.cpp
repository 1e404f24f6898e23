// Edits two stores as one without a window: gives the points of a parcel another class, takes that back, does
// it again, and saves.
#include <VelOsgDBBrx/EditSession.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/OpenCloud.h>

#include <iostream>

using namespace VelOsgDBBrx;

namespace {

/// The middle third of a cloud, seen from above, as a polygon of the map.
std::vector<osg::Vec2d> middleOf(const OctreeInfo& octree)
{
    const osg::Vec3d size = octree.max - octree.min;
    const osg::Vec3d low = octree.offset + octree.min + size / 3;
    const osg::Vec3d high = octree.offset + octree.max - size / 3;
    return {{low.x(), low.y()}, {high.x(), low.y()}, {high.x(), high.y()}, {low.x(), high.y()}};
}

/// Tells what an operation did; false where it failed.
bool tell(const EditOutcome& outcome)
{
    std::cout << outcome.operation << ": ";
    if (outcome.ok) std::cout << outcome.points << " points\n";
    if (!outcome.message.empty()) std::cout << outcome.message << "\n";
    return outcome.ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: edit_session STORE.brx STORE.brx\n";
        return 1;
    }
    OpenedCloud clouds[2]; // in file coordinates, where the polygon is too
    EditSession session("example");
    for (int i = 0; i < 2; ++i) {
        std::string note;
        VelBrx::Status status = openCloud(argv[i + 1], OpenOptions(), clouds[i]);
        if (status) status = session.addCloud(*clouds[i].cloud->getOctree(), note);
        if (!status) {
            std::cerr << "edit_session: " << status.message() << "\n";
            return 1;
        }
        if (!note.empty()) std::cout << note << "\n"; // what a killed program had left was finished
    }

    PointSelection parcel;
    parcel.place = MapPlace{middleOf(*clouds[0].cloud->getOctree()), {}};
    parcel.attributes.classes.reset().set(2).set(5); // ground and high vegetation
    Classification toBuilding;
    toBuilding.toClass = 6;

    session.count(parcel); // changes nothing
    if (!tell(session.wait())) return 1;
    session.classify(parcel, toBuilding);
    if (!tell(session.wait())) return 1;
    session.undo();
    if (!tell(session.wait())) return 1;
    session.redo();
    if (!tell(session.wait())) return 1;
    session.save();
    if (!tell(session.wait())) return 1;
    for (const EditStep& step : session.steps())
        std::cout << step.author << " " << step.points << " points " << step.operation << "\n";
    return 0;
}
