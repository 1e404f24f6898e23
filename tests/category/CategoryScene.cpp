#include "tests/category/CategoryScene.h"

#include "loading/CellGeometry.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <osg/Geode>

#include <random>
#include <utility>

using namespace VelOsgDBBrx;

Classes storedClasses(const std::string& path)
{
    const LasRecords records(path);
    Classes classes(records.size());
    for (size_t i = 0; i < classes.size(); ++i)
        classes[i] = records.classOf(i);
    return classes;
}

Bytes withClasses(Bytes store, const Classes& classes)
{
    LasRecords records(std::move(store));
    for (size_t i = 0; i < classes.size(); ++i)
        records.classOf(i) = classes[i];
    return records.bytes();
}

std::string writeClassifiedStore(const TempFolder& folder, const std::string& name, unsigned seed, int count)
{
    const std::string path = writeMarkedStore(folder, count, seed, name);
    LasRecords records(path);
    std::mt19937 random(seed);
    for (size_t i = 0; i < records.size(); ++i)
        records.classOf(i) = random() % 50 == 0 ? 255 : static_cast<uint8_t>(1 + random() % 6);
    return folder.write(name, records.bytes());
}

osg::ref_ptr<PolygonCmd> polygonEdit(const Polygon& polygon, const Screen& screen, int toClass)
{
    osg::ref_ptr<PolygonCmd> record = new PolygonCmd;
    record->base.polygon = polygon;
    record->base.vpw = screen.vpw();
    record->base.width = screen.width;
    record->base.height = screen.height;
    record->base.toClass = toClass;
    return record;
}

osg::ref_ptr<CategoryReport> pushAndWait(const std::string& uid, osg::Referenced* record, bool dryRun)
{
    const osg::ref_ptr<Category> request = new Category(uid, record);
    request->report = new CategoryReport;
    request->dryRun = dryRun;
    CategoryCalcTool::getInstance()->push(request);
    request->report->wait();
    return request->report;
}

osg::ref_ptr<CategoryReport> pushAndWait(int kind)
{
    const osg::ref_ptr<Category> request = new Category;
    request->kind = kind;
    request->report = new CategoryReport;
    CategoryCalcTool::getInstance()->push(request);
    request->report->wait();
    return request->report;
}

Classes edited(Classes classes, const std::vector<bool>& under, int toClass,
               const std::function<bool(size_t point)>& mayChange)
{
    for (size_t i = 0; i < classes.size(); ++i)
        if (under[i] && mayChange(i)) classes[i] = static_cast<uint8_t>(toClass);
    return classes;
}

std::vector<std::pair<int64_t, uint8_t>> difference(const Classes& before, const Classes& after)
{
    std::vector<std::pair<int64_t, uint8_t>> changed;
    for (size_t i = 0; i < before.size(); ++i)
        if (before[i] != after[i]) changed.emplace_back(static_cast<int64_t>(i), after[i]);
    return changed;
}

void readLeaf(osg::Node* leaf, Classes& classes)
{
    auto& geometry = dynamic_cast<CellGeometry&>(*leaf->asGeode()->getDrawable(0));
    const auto& indices = dynamic_cast<const osg::Vec2iArray&>(*geometry.getUserData());
    geometry.editCategories([&](osg::IntArray& attribute) { // which other threads may edit meanwhile
        for (size_t i = 0; i < indices.size(); ++i)
            classes.at(static_cast<size_t>(indices[i].x())) = static_cast<uint8_t>(attribute[i] >> 24);
        return false;
    });
}

Classes shownClasses(const OctreeInfo& octree)
{
    Classes classes(storedClasses(octree.pointPath).size());
    std::vector<osg::ref_ptr<CellData>> cells{octree.root};
    for (size_t i = 0; i < cells.size(); ++i) {
        readLeaf(PCDataManager::getInstance()->acquireNodeOrCreate(cells[i]), classes);
        const std::vector<osg::ref_ptr<CellData>> children = cells[i]->children;
        cells.insert(cells.end(), children.begin(), children.end());
    }
    return classes;
}

std::vector<bool> ClassifiedScene::visibleUnder(const Polygon& polygon) const
{
    std::vector<bool> under = pointsUnder(records, polygon, screen);
    for (size_t i = 0; i < under.size(); ++i)
        under[i] = under[i] && !(records.flags(i) & kHiddenBits);
    return under;
}
