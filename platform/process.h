// process.h: the running process, its facts, folder and last error, and the start of programs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Copies the arguments, the program's name first, each with a zero after it, cut to nSize bytes. Returns the
    /// number of bytes copied, or 0 if the arguments are unknown. A fault filter may call it.
    std::size_t ProcessArguments(char * pBuffer, std::size_t nSize);

    /// Returns the milliseconds since the process started, or -1 if that is unknown. A fault filter may call it.
    std::int64_t ProcessUptime();

    /// Copies the command line as one text, with blanks between the arguments, or an empty text if they are unknown.
    /// The text is cut to nSize - 1 bytes and terminated. If nSize is 0, writes nothing.
    void ProcessCommandLine(char * szBuffer, std::size_t nSize);

    /// Copies the executable's path. nSize counts wide characters. Returns false, and leaves the buffer unchanged, if
    /// the path is unknown or does not fit.
    bool ProcessExecutablePath(wchar_t * wszBuffer, std::size_t nSize);

    /// Copies the current folder, without a trailing separator unless it is the root. nSize counts wide characters.
    /// Returns false, and leaves the buffer unchanged, if the folder is unknown or does not fit.
    bool ProcessCurrentFolder(wchar_t * wszBuffer, std::size_t nSize);

    /// Prefixes a relative path with the current folder. wszPath has room for nSize wide characters, the terminator
    /// included. An empty path stays empty. Returns false, and leaves the path unchanged, if the folder is unknown or
    /// the result does not fit.
    bool ProcessMakeAbsolute(wchar_t * wszPath, std::size_t nSize);

    /// Returns whether the process has rights that the user who started it lacks. Such a process can read what is
    /// hidden from that user. A fault filter may call it.
    bool ProcessIsSecure();

    /// Makes a folder the current one. Returns false on failure.
    bool ProcessSetCurrentFolder(wchar_t const * wszFolder);

    /// Returns the number of threads besides the calling one, or 0 if it is unknown. A thread that was just joined
    /// still counts for some microseconds, so the call waits up to about 10 ms for the number to fall to 0.
    int ProcessOtherThreads();

    /// Installs the handler of calls of pure virtual functions, or none for null. If it returns, the process aborts.
    void ProcessSetPureCallHandler(void (*fnHandler)());

    /// Starts a program, or a script that can be executed, without arguments. It inherits this process's current
    /// folder, environment and standard streams. Does not wait for the program's end. On failure returns false, and
    /// LastErrorText has the reason.
    bool ProcessStart(char const * szProgram);

    /// Copies the calling thread's last system error as text with a line end. The text is cut to nSize - 1 bytes and
    /// terminated. If nSize is 0, writes nothing.
    void LastErrorText(char * szBuffer, std::size_t nSize);

    /// Returns whether the calling thread's last system error means that no file or folder has the name.
    bool LastErrorIsAbsence();
}
