#include "zqcore/cprofile_internal.h"

#include "zqcore/cfilelog.h"
#include "zqcore/cfilename.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include "platform/asyncwrite.h"
#include "platform/process.h"

#include <bit>

std::uint32_t g_nBytesToWrite = 0;

namespace
{
    using profiler::timer_t;

    constexpr std::uint32_t RECORD_SIZE = 2504;   // bytes in the file, of every word size
    constexpr std::size_t HEADER_SIZE = 8;
    constexpr std::size_t NAME_SIZE = 32;
    constexpr std::size_t BUFFER_SIZE = sizeof(std::uint32_t) + MAX_TIMERS_TOTAL * RECORD_SIZE;
    constexpr std::size_t ERROR_SIZE = 256;
    static_assert(BUFFER_SIZE == 1282052);
    static_assert(RECORD_SIZE == NAME_SIZE + 4 * 4 + 8 + PROFILER_FRAMES * 16 + 4 * 8 + 4 * 4);
    static_assert(sizeof(timer_t::szName) == NAME_SIZE);

    constinit plat::AsyncFile_c g_StatsFile;
    char * g_pBuffer = nullptr;
    std::uint64_t g_nPosition = 0;   // behind the last batch that is known to be there

    // Puts fields behind each other, low byte first.
    class Cursor_c
    {
    public:
        explicit Cursor_c(char * pTo)
            : m_pTo(pTo)
        {}

        void Put(std::uint32_t dwValue) { PutBytes(&dwValue, sizeof dwValue); }
        void Put(std::int32_t iValue) { PutBytes(&iValue, sizeof iValue); }
        void Put(std::int64_t iValue) { PutBytes(&iValue, sizeof iValue); }
        void PutGap() { Put(std::uint32_t{ 0 }); }

        void PutBytes(void const * pBytes, std::size_t nBytes)
        {
            static_assert(std::endian::native == std::endian::little);
            std::memcpy(m_pTo, pBytes, nBytes);
            m_pTo += nBytes;
        }

        char const * Get() const { return m_pTo; }

    private:
        char * m_pTo;
    };

    // The array's address in 32 bits. Moved down where the array would cross their end, so that no record has the
    // address 0, which means none.
    std::uint32_t FileAddress()
    {
        constexpr std::uint32_t HIGHEST = 0xFFFFFFFFu - MAX_TIMERS_TOTAL * RECORD_SIZE;
        auto const dwAddress = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ProfilerTimers()));
        return dwAddress < HIGHEST ? dwAddress : HIGHEST;
    }

    std::uint32_t FileAddress(timer_t const * pTimer)
    {
        return pTimer ? FileAddress() + static_cast<std::uint32_t>(pTimer - ProfilerTimers()) * RECORD_SIZE : 0;
    }

    // Fetches the record behind this one and its place, since the copy waits for nothing but memory.
    void PrefetchNext(timer_t const * pTimer, char const * pTo)
    {
        constexpr std::uint32_t LINE_SIZE = 64;
        for (std::uint32_t n = 0; n < RECORD_SIZE; n += LINE_SIZE)
        {
            ZQ_PREFETCH(reinterpret_cast<char const *>(pTimer + 1) + n);
            ZQ_PREFETCH(pTo + RECORD_SIZE + n);
        }
    }

    void PutRecord(Cursor_c & To, timer_t const & Timer)
    {
        PrefetchNext(&Timer, To.Get());
        To.PutBytes(static_cast<char const *>(Timer.szName), NAME_SIZE);
        To.Put(Timer.iTimer);
        To.Put(FileAddress(Timer.pChild));
        To.Put(FileAddress(Timer.pNext));
        To.PutGap();
        To.Put(Timer.tStart);
        for (timerFrame_t const & Frame : Timer.dFrames)
        {
            To.Put(Frame.tTime);
            To.Put(static_cast<std::int64_t>(Frame.nCalls));   // and the gap
        }
        To.Put(Timer.tAverage);
        To.Put(Timer.tMax);
        To.Put(Timer.tLast);
        To.Put(Timer.tMaxEver);
        To.Put(Timer.nLast);
        To.Put(Timer.nAtMax);
        To.Put(Timer.iMaxSlot);
        To.PutGap();
    }

    // The batch is lost; what is there of it goes too, so that a reader never meets it.
    ZQ_COLD void ComplainOfWrite()
    {
        char szError[ERROR_SIZE];
        plat::LastErrorText(szError, sizeof szError);
        plat::FileSetSize(g_StatsFile.GetHandle(), g_nPosition);
        Log("ProfilerSwapStats: failed to write file - Ivo Renning");
        Log("System message: %s", szError);
    }

    void StartWrite(std::size_t nBytes)
    {
        g_nBytesToWrite += static_cast<std::uint32_t>(nBytes);
        g_StatsFile.Write(g_nPosition, g_pBuffer, nBytes);
    }

    bool WriteHeader()
    {
        std::memset(g_pBuffer, 0, BUFFER_SIZE);
        Cursor_c To(g_pBuffer);
        To.Put(RECORD_SIZE);
        To.Put(FileAddress());
        g_nPosition = 0;
        StartWrite(HEADER_SIZE);
        return ProfilerFinishWrite();
    }

    // The records stand behind a count of four bytes, and are copied in words of eight.
    void TakeBuffer()
    {
        constexpr std::size_t ALIGNMENT = 64;
        g_pBuffer = static_cast<char *>(aligned_offset_malloc_dbg(BUFFER_SIZE, ALIGNMENT, sizeof(std::uint32_t),
            static_cast<int>(MemoryBlockWord(MEMORY_CLIENT_BLOCK)), __FILE__, __LINE__));
    }

    void FreeBuffer()
    {
        aligned_free_dbg(g_pBuffer);
        g_pBuffer = nullptr;
    }
}

bool ProfilerFinishWrite()
{
    std::uint32_t const nBytes = g_nBytesToWrite;
    bool const bWhole = g_StatsFile.Finish();
    if (bWhole)
    {
        g_nPosition += nBytes;
        ProfilerWriteComplete(0, nBytes, &g_StatsFile);
    }
    else
    {
        ComplainOfWrite();
    }
    g_nBytesToWrite = 0;
    return bWhole;
}

bool ProfilerHasStats()
{
    return g_StatsFile.GetHandle() != nullptr;
}

void ProfilerCloseStats()
{
    if (ProfilerHasStats())
    {
        ProfilerFinishWrite();
        FileCloseTracker(g_StatsFile.GetHandle());
        if (!g_StatsFile.Close())
        {
            LogWinLastError("ProfilerSwapStats");
        }
        FreeBuffer();
    }
}

void ProfilerInitSwapStats(FileName_c const & sName)
{
    if (sName.IsEmpty())
    {
        return;
    }
    ProfilerCloseStats();
    TakeBuffer();
    bool const bCreated = g_StatsFile.Create(sName);
    FileOpenTracker(g_StatsFile.GetHandle(), sName);
    if (!bCreated)
    {
        Log("ProfilerInit: failed to create file - Ivo Renning");
        FreeBuffer();
    }
    else if (!WriteHeader())
    {
        ProfilerCloseStats();
    }
}

void ProfilerSwapStats()
{
    if (!g_bProfilerInit || !ProfilerHasStats())
    {
        return;
    }
    ProfilerFinishWrite();
    Cursor_c To(g_pBuffer);
    To.Put(static_cast<std::uint32_t>(g_iTimerTotalCount));
    for (int i = 0; i < g_iTimerTotalCount; ++i)
    {
        PutRecord(To, ProfilerTimers()[i]);
    }
    StartWrite(static_cast<std::size_t>(To.Get() - g_pBuffer));
    if (!g_StatsFile.IsBusy())
    {
        ProfilerFinishWrite();
    }
}

void ProfilerWriteComplete(std::uint32_t dwError, std::uint32_t nBytes, void *)
{
    ZQ_ASSERT(dwError == 0);
    g_nBytesToWrite -= nBytes;
}
