// clog_internal.h: what the logs share, and what the crash report and the heap's report at exit need of them.
#pragma once

#include "zqcore/clog.h"
#include "zqcore/cwidepath_internal.h"

#include "platform/compiler.h"
#include "platform/files.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

/// Bytes of a buffer for a line, with the terminator.
inline constexpr std::size_t LOG_LINE_SIZE = LOG_LINE_LENGTH + 1;

/// Name of the main log, if the host sets none.
inline constexpr char LOG_MAIN_FILE[] = "message.log";
inline constexpr wchar_t LOG_WIDE_MAIN_FILE[] = L"message.log";

/// Bytes of a named log's name, with the terminator.
inline constexpr int LOG_NAME_SIZE = 64;

/// Writer of one log, or of those without room in the table of named logs. It writes each line to the log's own stream
/// with one system call. It counts lines that can't be written. If a full disk cuts a line, its line end is written
/// before the next line. Any thread may write. The log's own stream needs no lock.
class LogStream_c
{
public:
    /// Bytes of a path, with room for a folder, a separator and a log's name.
    static constexpr std::size_t PATH_SIZE = WIDE_PATH_UTF8_SIZE + LOG_NAME_SIZE + 1;

    /// Sets the stream that plat::StreamOpenLog opened for this log. It is written without stdio's buffer. Other
    /// streams, such as a host's, are written through stdio under a lock. Sets the number of lost lines to 0.
    void SetOwn(std::FILE * pStream)
    {
        m_pOwn = pStream;
        m_OwnFile = pStream ? plat::StreamGetIdentity(pStream) : plat::FileIdentity_t{};
        m_nLost = 0;
        m_nSize = UNKNOWN_SIZE;
    }

    /// Forgets the own stream, which is closed: another one may get its address.
    void ForgetOwn() { m_pOwn = nullptr; }

    /// Writes a text, as a rule a line with its end, and returns true. If a part of the text is lost, counts a lost
    /// line and returns false.
    bool Write(std::FILE * pStream, char const * pLine, std::size_t nLine);

    /// Continues in the file that has the log's name now, or in a new one, if the present file was deleted or another
    /// process has renamed it. Checks that at most once a second, and only with a limit of LogSetLimit. The logs call
    /// it before each line, but LogWriteBare does not. pStream and fnPath are as for Limit.
    template <typename PATH>
    void Follow(std::FILE * pStream, PATH const & fnPath)
    {
        if (s_nLimit.load(std::memory_order_relaxed) != 0 && pStream == m_pOwn && BeginDueCheck()) [[unlikely]]
        {
            BeginAnewAt(pStream, fnPath);
        }
    }

    /// Starts a new file if the present one has outgrown the limit of LogSetLimit. Does nothing for other streams, also
    /// if a host has closed the own stream and another one got its address. The logs call it after each line of nLine
    /// bytes, but LogWriteBare does not. fnPath(szPath) writes the path that the own stream was opened with.
    template <typename PATH>
    void Limit(std::FILE * pStream, std::size_t nLine, PATH const & fnPath)
    {
        std::uint64_t const nLimit = s_nLimit.load(std::memory_order_relaxed);
        if (nLimit == 0)
        {
            m_nSize.store(UNKNOWN_SIZE, std::memory_order_relaxed);   // for a limit that is set later
        }
        else if (pStream == m_pOwn && (m_nSize += nLine) > nLimit) [[unlikely]]
        {
            BeginAnewAt(pStream, fnPath);
        }
    }

    /// Sets the limit of all logs in bytes, 0 for none, and the number of previous files. Negative numbers count as 0.
    static void SetLimit(std::uint64_t nLimit, int nPrevious);

    /// Returns whether there are lost lines to report, or the last line that was written has no end.
    bool HasLost() const { return m_nLost.load(std::memory_order_relaxed) != 0; }

    /// Sets the number of lost lines to 0 and returns what it was.
    std::uint32_t ExtractLost() { return m_nLost.fetch_and(TORN) & ~TORN; }

    /// Adds back a count that could not be reported.
    void AddLost(std::uint32_t nLines) { m_nLost += nLines; }

private:
    static constexpr std::uint32_t TORN = 0x80000000;   // flag: the last line that was written has no end

    std::size_t WriteSome(std::FILE * pStream, char const * pText, std::size_t nText) const;
    bool EndTornLine(std::FILE * pStream);
    bool BeginDueCheck();

    template <typename PATH>
    ZQ_COLD void BeginAnewAt(std::FILE * pStream, PATH const & fnPath)
    {
        char szPath[PATH_SIZE];
        fnPath(szPath);
        BeginAnew(pStream, szPath);
    }

    void BeginAnew(std::FILE * pStream, char const * szPath);

    static constexpr std::uint64_t UNKNOWN_SIZE = std::uint64_t{ 1 } << 62;   // so large that a limit measures the file
    static std::atomic<std::uint64_t> s_nLimit;
    static std::atomic<int> s_nPrevious;

    std::FILE * m_pOwn = nullptr;
    plat::FileIdentity_t m_OwnFile;                      // file of the own stream, which BeginAnew changes under a lock
    std::atomic<std::uint64_t> m_nSize = UNKNOWN_SIZE;   // of the file, counted while there is a limit
    std::atomic<std::uint32_t> m_nLost = 0;              // number of lost lines, and the flag TORN
    std::atomic<std::uint32_t> m_tChecked = 0;           // of Follow's last check, by plat::CoarseClockMilliseconds
};

/// Writes a line, which includes its line end, to the main log without time and frame. Does nothing while the log is
/// closed.
void LogWriteBare(char const * pLine, std::size_t nLine);

/// Closes the main log and sets g_pMessageLogFile to null, without heap and locks. The stream's memory is not freed.
/// What other threads still write to it is dropped.
void LogCloseInCrash();

/// Appends lines to the main log's file after the last destructor of the library, when no listener may be called. If
/// the log that LogInit opened is closed, opens the file at the path of LogSetFile again. The last line of szText
/// may lack its line end.
void LogWriteLate(char const * szText);
