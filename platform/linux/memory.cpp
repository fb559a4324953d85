#include "platform/memory.h"

#include <algorithm>
#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        constexpr std::uintptr_t SIGNAL_SET = 8;   // bytes of the kernel's set of signals, which is read aligned

        // The system reads the new set of signals before it refuses the unknown way to apply it. Not for address 0.
        bool IsReadable(std::uintptr_t iAddress)
        {
            constexpr int NO_SUCH_WAY = -1;
            int const iErrorBefore = errno;
            errno = 0;
            ::syscall(SYS_rt_sigprocmask, NO_SUCH_WAY, iAddress & ~(SIGNAL_SET - 1), nullptr, SIGNAL_SET);
            bool const bReadable = errno != EFAULT;
            errno = iErrorBefore;
            return bReadable;
        }
    }

    bool MemoryIsReadable(void const * pMemory, std::size_t nBytes)
    {
        auto const iFirst = reinterpret_cast<std::uintptr_t>(pMemory);
        std::uintptr_t const iLast = iFirst + std::max<std::size_t>(nBytes, 1) - 1;
        if (iFirst < MEMORY_PAGE || iLast < iFirst)
        {
            return false;
        }
        std::uintptr_t const iLastPage = iLast & ~(MEMORY_PAGE - 1);
        for (std::uintptr_t iPage = iFirst & ~(MEMORY_PAGE - 1); iPage != iLastPage; iPage += MEMORY_PAGE)
        {
            if (!IsReadable(iPage))
            {
                return false;
            }
        }
        return IsReadable(iLast);
    }
}
