#pragma once

#include <sys/types.h>

/// How often the threads that a process has now have gone to sleep by themselves, such as for a time or to
/// wait for one another.
long sleepsOfThreads(pid_t process);
