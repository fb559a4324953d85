#include "platform/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        constexpr std::uintptr_t SIGNAL_SET = 8;   // bytes of the kernel's set of signals, which is read aligned

        // Returns whether the aligned 8 bytes around an address can be read. The system reads the set of signals there,
        // then refuses the operation NO_SUCH_WAY, so it never applies the set. Requires that the bytes are not at
        // address 0.
        bool IsReadable(std::uintptr_t nAddress)
        {
            constexpr int NO_SUCH_WAY = -1;
            int const iErrorBefore = errno;
            errno = 0;
            ::syscall(SYS_rt_sigprocmask, NO_SUCH_WAY, nAddress & ~(SIGNAL_SET - 1), nullptr, SIGNAL_SET);
            bool const bReadable = errno != EFAULT;
            errno = iErrorBefore;
            return bReadable;
        }

        // Tests and copies page by page, for systems that refuse process_vm_readv. Returns the number of bytes before
        // the first that can't be read.
        std::size_t ReadByPages(std::uintptr_t Address, char * pBuffer, std::size_t nBytes)
        {
            std::size_t nRead = 0;
            while (nRead != nBytes)
            {
                std::uintptr_t const From = Address + nRead;
                std::size_t const nHere = std::min<std::size_t>(nBytes - nRead, MEMORY_PAGE - From % MEMORY_PAGE);
                if (!MemoryIsReadable(reinterpret_cast<void const *>(From), nHere))
                {
                    break;
                }
                std::memcpy(pBuffer + nRead, reinterpret_cast<void const *>(From), nHere);
                nRead += nHere;
            }
            return nRead;
        }
    }

    bool MemoryIsReadable(void const * pMemory, std::size_t nBytes)
    {
        auto const nFirst = reinterpret_cast<std::uintptr_t>(pMemory);
        std::uintptr_t const nLast = nFirst + std::max<std::size_t>(nBytes, 1) - 1;
        if (nFirst < MEMORY_PAGE || nLast < nFirst)
        {
            return false;
        }
        std::uintptr_t const nLastPage = nLast & ~(MEMORY_PAGE - 1);
        for (std::uintptr_t nPage = nFirst & ~(MEMORY_PAGE - 1); nPage != nLastPage; nPage += MEMORY_PAGE)
        {
            if (!IsReadable(nPage))
            {
                return false;
            }
        }
        return IsReadable(nLast);
    }

    std::size_t MemoryRead(std::uintptr_t Address, void * pBuffer, std::size_t nBytes)
    {
        int const iErrorBefore = errno;
        iovec const Here = { pBuffer, nBytes };
        iovec const There = { reinterpret_cast<void *>(Address), nBytes };
        ssize_t const nRead = ::process_vm_readv(::getpid(), &Here, 1, &There, 1, 0);
        bool const bRefused = nRead < 0 && errno != EFAULT;
        errno = iErrorBefore;
        return bRefused ? ReadByPages(Address, static_cast<char *>(pBuffer), nBytes)
                        : static_cast<std::size_t>(std::max<ssize_t>(nRead, 0));
    }

    void * PagesAllocate(std::size_t nBytes)
    {
        void * const pPages = ::mmap(nullptr, nBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return pPages == MAP_FAILED ? nullptr : pPages;
    }

    void PagesRelease(void * pPages, std::size_t nBytes)
    {
        if (pPages != nullptr)
        {
            ::munmap(pPages, nBytes);
        }
    }
}
