// clog_internal.h: what the logs share, and what the crash report and the heap's report at exit need of them.
#pragma once

#include "zqcore/cwidepath_internal.h"

#include "platform/compiler.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

/// Writes the lines of one log, each with one call to the system, and counts those that can't be written. A line that a
/// full disk cuts is ended before the next one. Any thread may write; takes no lock for the log's own stream.
class LogStream_c
{
public:
    /// Begins with the stream that plat::StreamOpenLog opened for this log, which is written past stdio. All others are
    /// their host's and are written through it.
    void SetOwn(std::FILE * pStream)
    {
        m_pOwn = pStream;
        m_nLost = 0;
        m_nSize = UNKNOWN_SIZE;
    }

    /// Writes a text that ends with its line end. False if it is lost, which is counted.
    bool Write(std::FILE * pStream, char const * pLine, std::size_t nLine);

    /// After a line, begins the file anew if it has outgrown the limit of LogSetLimit. Path(szPath) writes the path that the
    /// own stream was opened with.
    template <typename PATH>
    void Limit(std::FILE * pStream, std::size_t nLine, PATH const & Path)
    {
        std::uint64_t const nLimit = s_nLimit.load(std::memory_order_relaxed);
        if (nLimit != 0 && pStream == m_pOwn && (m_nSize += nLine) > nLimit) [[unlikely]]
        {
            BeginAnewAt(pStream, Path);
        }
    }

    /// Sets the limit of all logs.
    static void SetLimit(std::uint64_t nLimit, int nFormer);

    static constexpr std::size_t PATH_SIZE = WIDE_PATH_UTF8_SIZE + 64 + 1;   // bytes of a path that Limit asks for

    bool HasLost() const { return m_nLost.load(std::memory_order_relaxed) != 0; }

    /// Returns how many lines were lost since the last call.
    std::uint32_t TakeLost() { return m_nLost.fetch_and(TORN) & ~TORN; }

    /// Returns a count to the others when it could not be reported.
    void AddLost(std::uint32_t nLines) { m_nLost += nLines; }

private:
    static constexpr std::uint32_t TORN = 0x80000000;   // the last line that was written has no end

    std::size_t WriteSome(std::FILE * pStream, char const * pText, std::size_t nText) const;
    bool EndTornLine(std::FILE * pStream);

    template <typename PATH>
    ZQ_COLD void BeginAnewAt(std::FILE * pStream, PATH const & Path)
    {
        char szPath[PATH_SIZE];
        Path(szPath);
        BeginAnew(pStream, szPath);
    }

    void BeginAnew(std::FILE * pStream, char const * szPath);

    static constexpr std::uint64_t UNKNOWN_SIZE = std::uint64_t{ 1 } << 62;
    static std::atomic<std::uint64_t> s_nLimit;
    static std::atomic<int> s_nFormer;

    std::FILE * m_pOwn = nullptr;
    std::atomic<std::uint64_t> m_nSize = UNKNOWN_SIZE;   // of the file; counted while there is a limit
    std::atomic<std::uint32_t> m_nLost = 0;
};

/// Writes a line of the main log, which ends with its line end, with no time and no frame.
void LogWriteBare(char const * pLine, std::size_t nLine);

/// Closes the main log and sets g_pMessageLogFile to null, with no heap and no lock: the stream's memory stays taken,
/// and what other threads still write to it is dropped.
void LogCloseInCrash();

/// Appends lines to the main log's file after the last destructor of the library, when its listeners may not be called
/// any more: to the file that LogInit opened last, whether or not LogDone has closed it. The text ends in a line end.
void LogWriteLate(char const * szText);
