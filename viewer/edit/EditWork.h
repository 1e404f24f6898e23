#pragma once

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Category.h>

#include <osg/ref_ptr>

#include <cstdint>
#include <future>
#include <vector>

/// What one operation has under way on the library's workers, and what came of it. Belongs to one thread.
/// Its destructor waits for a save to end, for nothing else.
class EditWork
{
public:
    /// Pushes a command made with a barrier count of 1: nobody waits at its barrier.
    void push(VelOsgDBBrx::BaseCmd* cmd);

    /// Pushes a request and gives it a report.
    void push(VelOsgDBBrx::Category* request);

    /// Writes the classes into the stores, on a thread of its own.
    void save();

    bool isFinished() const;

    /// \name Once it is finished
    /// @{
    /// What the commands did, summed; ABANDONED when one was.
    VelOsgDBBrx::CmdResult commands() const;

    /// What the requests did, summed.
    VelOsgDBBrx::CategoryCounts counts() const;

    /// The first failure of a request or of the save.
    VelBrx::Status status();
    /// @}

private:
    std::vector<osg::ref_ptr<VelOsgDBBrx::BaseCmd>> _commands;
    std::vector<osg::ref_ptr<VelOsgDBBrx::CategoryReport>> _reports;
    std::future<VelBrx::Status> _save;
};
