#include "zqcore/cversion.h"

int main()
{
    return GetLibraryVersion() - ZQCORE_VERSION;
}
