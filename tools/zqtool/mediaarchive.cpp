// Archives, in a build that has the component zqcore::zip.
#include "tools/zqtool/mediascan.h"
#include "zqcore/czip.h"

std::string MountArchive(std::string const & sPath, bool bRelative)
{
    return FileZipMount(sPath.c_str(), ZipOrder_e::Over, bRelative) ? "" : FileZipGetWhyNot().CStr();
}
