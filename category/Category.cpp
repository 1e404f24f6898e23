#include <VelOsgDBBrx/Category.h>

namespace VelOsgDBBrx {

CategoryCounts& CategoryCounts::operator+=(const CategoryCounts& other)
{
    selected += other.selected;
    changed += other.changed;
    cellsUnreadable += other.cellsUnreadable;
    storesBusy += other.storesBusy;
    storesNotJournalled += other.storesNotJournalled;
    for (size_t c = 0; c < before.size(); ++c) {
        before[c] += other.before[c];
        after[c] += other.after[c];
    }
    return *this;
}

CategoryReport::State CategoryReport::wait() const
{
    const VelThreads::Lock lock(_mutex);
    while (_state == WAITING)
        _finished.wait(_mutex);
    return _state;
}

CategoryReport::State CategoryReport::state() const
{
    const VelThreads::Lock lock(_mutex);
    return _state;
}

VelBrx::Status CategoryReport::status() const
{
    const VelThreads::Lock lock(_mutex);
    return _status;
}

CategoryReport::Counts CategoryReport::counts() const
{
    const VelThreads::Lock lock(_mutex);
    return _counts;
}

void CategoryReport::set(State state, VelBrx::Status status, const Counts& counts)
{
    {
        const VelThreads::Lock lock(_mutex);
        _state = state;
        _status = std::move(status);
        _counts = counts;
    }
    _finished.notifyAll();
}

Category::Category(const std::string& cloudUid, osg::Referenced* editRecord)
    : uid(cloudUid), payload(editRecord)
{
    if (dynamic_cast<PixelBuffer*>(editRecord))
        kind = MASK;
    else if (dynamic_cast<CategoryBuffer*>(editRecord))
        kind = POINTS;
}

std::array<int32_t, 255> Base::allClasses()
{
    std::array<int32_t, 255> table;
    table.fill(1);
    return table;
}

void Base::setFromClasses(const std::vector<int>& classes)
{
    classTable.fill(0);
    for (const int c : classes)
        if (c >= 0 && c < static_cast<int>(classTable.size())) classTable[c] = 1;
}

} // namespace VelOsgDBBrx
