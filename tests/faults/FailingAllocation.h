#pragma once

#include <cstdint>

/// While it lives the allocation after `succeeding` others fails, whichever thread of the process wants it;
/// one at a time. `operator new` of a program that links this can fail, `malloc` cannot.
class FailingAllocation
{
public:
    explicit FailingAllocation(int64_t succeeding);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    bool hasFailed() const;
};
