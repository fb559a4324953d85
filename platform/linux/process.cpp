#include "platform/process.h"

#include "platform/clock.h"
#include "platform/compiler.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/reserve.h"
#include "platform/linux/spelling.h"
#include "platform/text.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <spawn.h>
#include <sys/auxv.h>
#include <sys/single_threaded.h>

namespace plat
{
    namespace
    {
        std::atomic<void (*)()> g_fnPureCall{ nullptr };

        // Converts a path. Returns false, with ERANGE, if it does not fit as a whole.
        bool WidePathFromUtf8(wchar_t * wszBuffer, std::size_t nSize, char const * szPath)
        {
            wchar_t wszWide[PATH_MAX];
            std::size_t const nWide = WideFromUtf8(wszWide, PATH_MAX, szPath);
            if (nWide >= nSize)
            {
                errno = ERANGE;
                return false;
            }
            std::wmemcpy(wszBuffer, wszWide, nWide + 1);
            return true;
        }

        // Returns a field of /proc/self/stat (proc(5)), counted from 1 after the process's name, which is in brackets
        // and may hold any bytes. Returns 0 on failure.
        unsigned long long FieldOfProcess(int iField)
        {
            char szStat[512];
            ReadText(Descriptor_c(OpenToReadWithReserve("/proc/self/stat")).Get(), szStat, sizeof szStat);
            char const * pField = std::strrchr(szStat, ')');
            for (int i = 0; pField && i < iField; ++i)
            {
                pField = std::strchr(pField + 1, ' ');
            }
            return pField ? std::strtoull(pField, nullptr, 10) : 0;
        }

        int ThreadsOfProcess()
        {
            constexpr int FIELD = 18;   // number of threads
            return static_cast<int>(FieldOfProcess(FIELD));
        }
    }

    bool ProcessIsSecure()
    {
        return getauxval(AT_SECURE) != 0;
    }

    int ProcessOtherThreads()
    {
        if (__libc_single_threaded)   // a process that never had a second thread needs no system call
        {
            return 0;
        }
        constexpr timespec MILLISECOND = { 0, NANOSECONDS_OF_MILLISECOND };
        int nThreads = ThreadsOfProcess();
        for (int i = 0; i < 10 && nThreads > 1; ++i)
        {
            nanosleep(&MILLISECOND, nullptr);
            nThreads = ThreadsOfProcess();
        }
        return std::max(nThreads - 1, 0);
    }

    std::size_t ProcessArguments(char * pBuffer, std::size_t nSize)
    {
        Descriptor_c const Line(OpenToReadWithReserve("/proc/self/cmdline"));
        return Line.IsOpen() ? ReadFully(Line.Get(), pBuffer, nSize) : 0;
    }

    // The system counts the start of a process in ticks since the boot.
    std::int64_t ProcessUptime()
    {
        constexpr int FIELD = 20;   // start in ticks
        auto const nStart = static_cast<std::int64_t>(FieldOfProcess(FIELD));
        std::int64_t const nTicks = sysconf(_SC_CLK_TCK);
        timespec Now;
        bool const bKnown = nStart > 0 && nTicks > 0 && clock_gettime(CLOCK_BOOTTIME, &Now) == 0;
        return bKnown ? std::int64_t{ Now.tv_sec } * MILLISECONDS_OF_SECOND + Now.tv_nsec / NANOSECONDS_OF_MILLISECOND
                            - nStart * MILLISECONDS_OF_SECOND / nTicks
                      : -1;
    }

    void ProcessCommandLine(char * szBuffer, std::size_t nSize)
    {
        if (nSize == 0)
        {
            return;
        }
        std::size_t nLine = ProcessArguments(szBuffer, nSize - 1);
        nLine -= nLine > 0 && szBuffer[nLine - 1] == '\0' ? 1 : 0;
        std::replace(szBuffer, szBuffer + nLine, '\0', ' ');
        szBuffer[nLine] = '\0';
    }

    bool ProcessExecutablePath(wchar_t * wszBuffer, std::size_t nSize)
    {
        char szPath[PATH_MAX];
        ssize_t const nPath = readlink("/proc/self/exe", szPath, sizeof(szPath) - 1);
        szPath[std::max<ssize_t>(nPath, 0)] = '\0';
        return nPath > 0 && WidePathFromUtf8(wszBuffer, nSize, szPath);
    }

    bool ProcessCurrentFolder(wchar_t * wszBuffer, std::size_t nSize)
    {
        char szPath[PATH_MAX];
        return getcwd(szPath, sizeof(szPath)) != nullptr && WidePathFromUtf8(wszBuffer, nSize, szPath);
    }

    bool ProcessMakeAbsolute(wchar_t * wszPath, std::size_t nSize)
    {
        if (wszPath[0] == L'\0' || wszPath[0] == L'/' || wszPath[0] == L'\\')
        {
            return true;
        }
        std::size_t const nPath = std::wcslen(wszPath);
        wchar_t wszFolder[PATH_MAX];
        if (!ProcessCurrentFolder(wszFolder, PATH_MAX))
        {
            return false;
        }
        std::size_t const nFolder = std::wcslen(wszFolder);
        std::size_t const nSeparator = wszFolder[nFolder - 1] == L'/' ? 0 : 1;
        if (nFolder + nSeparator + nPath >= nSize)
        {
            errno = ERANGE;
            return false;
        }
        std::wmemmove(wszPath + nFolder + nSeparator, wszPath, nPath + 1);
        std::wmemcpy(wszPath, wszFolder, nFolder);
        if (nSeparator != 0)
        {
            wszPath[nFolder] = L'/';
        }
        return true;
    }

    bool ProcessSetCurrentFolder(wchar_t const * wszFolder)
    {
        char szPath[PATH_MAX * 4];   // longer than the longest path that DiskPath_c accepts
        Utf8FromWide(szPath, sizeof(szPath), wszFolder);
        return DiskPath_c(szPath).Try([](char const * szTry) { return chdir(szTry); }) == 0;
    }

    void ProcessSetPureCallHandler(void (*fnHandler)())
    {
        g_fnPureCall = fnHandler;
    }

    // Uses no heap: a thread that faulted may hold the heap's lock.
    bool ProcessStart(char const * szProgram)
    {
        auto const fnSpawn = [](char const * szPath)
        {
            pid_t iChild;
            char * dArguments[] = { const_cast<char *>(szPath), nullptr };
            errno = posix_spawn(&iChild, szPath, nullptr, nullptr, dArguments, environ);
            return errno == 0 ? 0 : -1;
        };
        return DiskPath_c(szProgram, false).Try(fnSpawn) == 0;
    }

    bool LastErrorIsAbsence()
    {
        return errno == ENOENT || errno == ENOTDIR;
    }

    void LastErrorText(char * szBuffer, std::size_t nSize)
    {
        char szError[256];
        std::snprintf(szBuffer, nSize, "%s\n", strerror_r(errno, szError, sizeof(szError)));
    }
}

extern "C"
{
    // Replaces the C++ runtime's function, which the compiler stores in the slots of pure virtual functions.
    [[noreturn]] ZQ_API void __cxa_pure_virtual()
    {
        if (void (*const fnHandler)() = plat::g_fnPureCall)
        {
            fnHandler();
        }
        std::abort();
    }
}
