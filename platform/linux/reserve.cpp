#include "platform/linux/reserve.h"

#include "platform/linux/descriptor.h"

#include <atomic>
#include <fcntl.h>

namespace plat
{
    namespace
    {
        // Descriptors that a crash has open at once: the report, its details, the helper's process, its two sockets and
        // its list of mappings. Two more are for files that are read meanwhile.
        constexpr int RESERVE = 8;
        constexpr int LOWEST = 20;   // lower numbers are left to the host while a higher one is free

        // Copies of ends of pipes, because no other file has their identity.
        KeptDescriptor_c g_dReserve[RESERVE];
        std::atomic<bool> g_bAllowed{ false };   // whether the reserve may be used

        // Copies a descriptor, to a number from LOWEST on if one is free. Returns the copy, or -1 on failure.
        int CopyHigh(int iDescriptor)
        {
            int const iHigh = fcntl(iDescriptor, F_DUPFD_CLOEXEC, LOWEST);
            return iHigh >= 0 ? iHigh : fcntl(iDescriptor, F_DUPFD_CLOEXEC, 0);
        }
    }

    void ReserveFill()
    {
        int const iError = errno;
        Descriptor_c Source;
        for (KeptDescriptor_c & Kept : g_dReserve)
        {
            if (Kept.Get() >= 0)
            {
                continue;
            }
            int dEnds[2];
            if (!Source.IsOpen() && pipe2(dEnds, O_CLOEXEC) == 0)
            {
                close(dEnds[1]);
                Source.Reset(dEnds[0]);
            }
            Kept.Reset(Source.IsOpen() ? CopyHigh(Source.Get()) : -1);
        }
        errno = iError;
    }

    void ReserveDrop()
    {
        for (KeptDescriptor_c & Kept : g_dReserve)
        {
            Kept.Reset(-1);
        }
    }

    void ReserveAllow(bool bAllowed)
    {
        g_bAllowed = bAllowed;
    }

    bool ReserveFree()
    {
        for (KeptDescriptor_c & Kept : g_dReserve)
        {
            if (g_bAllowed && Kept.Get() >= 0)
            {
                Kept.Reset(-1);
                return true;
            }
        }
        return false;
    }
}
