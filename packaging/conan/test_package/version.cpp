#include "zqcore/cversion.h"

int main()
{
    return GetLibraryVersion() == ZQCORE_VERSION ? 0 : 1;
}
