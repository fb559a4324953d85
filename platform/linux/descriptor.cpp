#include "platform/linux/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace plat
{
    FileIdentity_t IdentityOf(int iDescriptor)
    {
        int const iError = errno;
        struct stat Stat;
        bool const bOpen = fstat(iDescriptor, &Stat) == 0;
        errno = iError;
        return bOpen ? FileIdentity_t{ Stat.st_dev, Stat.st_ino } : FileIdentity_t{};
    }

    int MoveAboveStandard(int iDescriptor)
    {
        if (iDescriptor < 0 || iDescriptor > STDERR_FILENO)
        {
            return iDescriptor;
        }
        Descriptor_c const Low(iDescriptor);
        return fcntl(iDescriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    }

    void KeptDescriptor_c::Reset(int iDescriptor)
    {
        Descriptor_c const Previous(Get());
        m_iDescriptor = iDescriptor;
        m_Identity = iDescriptor >= 0 ? IdentityOf(iDescriptor) : FileIdentity_t{};
    }

    bool KeptDescriptor_c::Replace(int iDescriptor)
    {
        int const iHeld = Get();
        if (iHeld < 0 || dup3(iDescriptor, iHeld, O_CLOEXEC) < 0)
        {
            return false;
        }
        m_Identity = IdentityOf(iHeld);
        return true;
    }
}
