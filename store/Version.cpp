#include <VelBrx/Version.h>

const char* VelBrx::version()
{
    return VEL_BRX_VERSION;
}
