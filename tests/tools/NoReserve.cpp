// Preloaded into a program: a file system that cannot reserve space, so that a full disk shows while writing.

#include <cerrno>

#include <sys/types.h>

extern "C" int fallocate(int, int, off_t, off_t)
{
    errno = EOPNOTSUPP;
    return -1;
}
