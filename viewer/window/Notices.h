#pragma once

#include <osg/Notify>

#include <cstdio>

/// Sends OpenSceneGraph's notices to stderr; by default some go to stdout, which is for data here.
class StderrNotices : public osg::NotifyHandler
{
public:
    void notify(osg::NotifySeverity, const char* message) override { std::fputs(message, stderr); }
};

/// Silences OpenSceneGraph while this object lives, where a failure is told in a line of our own.
class QuietNotices
{
public:
    QuietNotices() : _level(osg::getNotifyLevel()) { osg::setNotifyLevel(osg::ALWAYS); }
    ~QuietNotices() { osg::setNotifyLevel(_level); }
    QuietNotices(const QuietNotices&) = delete;
    QuietNotices& operator=(const QuietNotices&) = delete;

private:
    const osg::NotifySeverity _level;
};
