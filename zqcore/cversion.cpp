#include "zqcore/cversion.h"

int GetLibraryVersion()
{
    return ZQCORE_VERSION;
}
