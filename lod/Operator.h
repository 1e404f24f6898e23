#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Referenced>
#include <osg/Vec4d>
#include <osg/observer_ptr>

#include <cstdint>
#include <vector>

class PointLoadManager;

/// A request to a load manager, run on the manager's thread in the order of the requests.
class Operator : public osg::Referenced
{
public:
    virtual void operator()() = 0;

protected:
    ~Operator() override = default;
};

class RegisterOp : public Operator
{
public:
    RegisterOp(OctreeInfo* octree, PointLoadManager* manager);
    void operator()() override;

private:
    osg::observer_ptr<OctreeInfo> _octree;
    osg::observer_ptr<PointLoadManager> _manager;
};

class UnRegisterOp : public Operator
{
public:
    UnRegisterOp(OctreeInfo* octree, PointLoadManager* manager);
    void operator()() override;

private:
    osg::observer_ptr<OctreeInfo> _octree;
    osg::observer_ptr<PointLoadManager> _manager;
};

class OctreeVisiableOp : public Operator
{
public:
    OctreeVisiableOp(OctreeInfo* octree, bool visible);
    void operator()() override;

private:
    osg::observer_ptr<OctreeInfo> _octree;
    bool _visible;
};

class MaxNumPointOp : public Operator
{
public:
    MaxNumPointOp(uint64_t maximum, PointLoadManager* manager);
    void operator()() override;

private:
    uint64_t _maximum;
    osg::observer_ptr<PointLoadManager> _manager;
};

class FilterPlaneOp : public Operator
{
public:
    FilterPlaneOp(std::vector<osg::Vec4d> planes, int planesPerGroup, PointLoadManager* manager);
    void operator()() override;

private:
    std::vector<osg::Vec4d> _planes;
    int _planesPerGroup;
    osg::observer_ptr<PointLoadManager> _manager;
};

/// Does nothing: that it was queued forces a pass.
class FlushOp : public Operator
{
public:
    void operator()() override {}
};

/// Queued when the level-of-detail operation is replaced, to force a pass.
class LodOperation : public Operator
{
public:
    void operator()() override {}
};
