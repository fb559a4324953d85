#include "platform/system.h"

#include "platform/linux/descriptor.h"
#include "platform/linux/reserve.h"
#include "platform/linux/userrecord.h"
#include "platform/text.h"

#include <algorithm>
#include <cpuid.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <sys/utsname.h>

namespace plat
{
    namespace
    {
        // Reads the version: "6.1.0-18-amd64" has 6, 1 and 0. A missing number is 0.
        void ReadVersion(char const * szRelease, SystemFacts_t & Facts)
        {
            long dNumbers[3] = { 0, 0, 0 };
            for (long & iNumber : dNumbers)
            {
                char * szEnd = nullptr;
                iNumber = std::strtol(szRelease, &szEnd, 10);
                if (*szEnd != '.')
                {
                    break;
                }
                szRelease = szEnd + 1;
            }
            Facts.iMajor = static_cast<int>(dNumbers[0]);
            Facts.iMinor = static_cast<int>(dNumbers[1]);
            Facts.iBuild = static_cast<std::uint32_t>(dNumbers[2]);
        }

        // Returns the first nine digits of the machine's name: 8664 for "x86_64", 686 for "i686", 0 without digits.
        int ProcessorType(char const * szMachine)
        {
            int iType = 0;
            for (int nDigits = 0; *szMachine != 0 && nDigits < 9; ++szMachine)
            {
                if (IsDigit(*szMachine))
                {
                    iType = iType * 10 + (*szMachine - '0');
                    ++nDigits;
                }
            }
            return iType;
        }

        // Returns the bytes that /proc/meminfo has for a name, or 0 without it.
        std::uint64_t MemoryNamed(char const * szText, char const * szName)
        {
            char const * const szFound = std::strstr(szText, szName);
            return szFound != nullptr ? std::strtoull(szFound + std::strlen(szName), nullptr, 10) * 1024 : 0;
        }

        void ReadMemory(SystemFacts_t & Facts)
        {
            char szText[4096];
            ReadText(Descriptor_c(OpenToReadWithReserve("/proc/meminfo")).Get(), szText, sizeof(szText));
            Facts.nPhysicalTotal = MemoryNamed(szText, "MemTotal:");
            Facts.nPhysicalFree = MemoryNamed(szText, "\nMemAvailable:");   // the kernel's caches count as free
            constexpr bool WIDE = sizeof(void *) == 8;
            // A 64-bit process has the lower half of the canonical addresses (Intel SDM, volume 1, 3.3.7.1), a 32-bit
            // process 2^32 addresses.
            Facts.nVirtualTotal = std::uint64_t(1) << (WIDE ? 47 : 32);
            rlimit Limit;
            if (getrlimit(RLIMIT_AS, &Limit) == 0 && Limit.rlim_cur < Facts.nVirtualTotal)
            {
                Facts.nVirtualTotal = Limit.rlim_cur;
            }
            ReadText(Descriptor_c(OpenToReadWithReserve("/proc/self/statm")).Get(), szText, sizeof(szText));
            std::uint64_t const nPage = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
            std::uint64_t const nUsed = std::strtoull(szText, nullptr, 10) * nPage;
            Facts.nVirtualFree = nUsed > 0 && nUsed < Facts.nVirtualTotal ? Facts.nVirtualTotal - nUsed : 0;
        }

        void ReadUser(SystemFacts_t & Facts)
        {
            UserRecord_c const User;
            if (User.Get() != nullptr)
            {
                std::snprintf(Facts.szUser, sizeof(Facts.szUser), "%s", User.Get()->pw_name);
            }
        }
    }

    void SystemGetFacts(SystemFacts_t & Facts)
    {
        Facts = SystemFacts_t{};
        utsname Name;
        if (uname(&Name) == 0)
        {
            constexpr int MAX_NAME = sizeof(Facts.szName) - 1;
            std::snprintf(Facts.szName, sizeof(Facts.szName), "%.*s", MAX_NAME, Name.sysname);
            ReadVersion(Name.release, Facts);
            Facts.iProcessorType = ProcessorType(Name.machine);
        }
        if (gethostname(Facts.szComputer, sizeof(Facts.szComputer) - 1) != 0)
        {
            Facts.szComputer[0] = 0;
        }
        ReadUser(Facts);
        Facts.nProcessors = static_cast<int>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 0L));
        ReadMemory(Facts);
    }

    void SystemName(char * szText, std::size_t nSize)
    {
        utsname Name;
        if (uname(&Name) == 0)
        {
            std::snprintf(szText, nSize, "%s %s %s", Name.sysname, Name.release, Name.machine);
        }
        else if (nSize > 0)
        {
            szText[0] = '\0';
        }
    }

    void ProcessorName(char * szText, std::size_t nSize)
    {
        // CPUID (Intel SDM, volume 2): leaves 80000002 to 80000004 have 48 bytes of name, padded with blanks.
        constexpr unsigned FIRST = 0x80000002, LAST = 0x80000004;
        char szName[48 + 1] = {};
        for (unsigned iLeaf = FIRST; iLeaf <= LAST; ++iLeaf)
        {
            unsigned dWords[4] = {};
            if (__get_cpuid(iLeaf, &dWords[0], &dWords[1], &dWords[2], &dWords[3]) != 0)
            {
                std::memcpy(szName + (iLeaf - FIRST) * sizeof dWords, dWords, sizeof dWords);
            }
        }
        std::size_t nName = std::strlen(szName);
        while (nName > 0 && szName[nName - 1] == ' ')
        {
            szName[--nName] = '\0';
        }
        std::snprintf(szText, nSize, "%s", szName + std::strspn(szName, " "));
    }
}
