// clog_internal.h: what the logs share, and what the crash report and the heap's report at exit need of them.
#pragma once

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
    }

    /// Writes a text that ends with its line end. False if it is lost, which is counted.
    bool Write(std::FILE * pStream, char const * pLine, std::size_t nLine);

    bool HasLost() const { return m_nLost.load(std::memory_order_relaxed) != 0; }

    /// Returns how many lines were lost since the last call.
    std::uint32_t TakeLost() { return m_nLost.fetch_and(TORN) & ~TORN; }

    /// Returns a count to the others when it could not be reported.
    void AddLost(std::uint32_t nLines) { m_nLost += nLines; }

private:
    static constexpr std::uint32_t TORN = 0x80000000;   // the last line that was written has no end

    std::size_t WriteSome(std::FILE * pStream, char const * pText, std::size_t nText) const;
    bool EndTornLine(std::FILE * pStream);

    std::FILE * m_pOwn = nullptr;
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
