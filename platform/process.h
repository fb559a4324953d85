// process.h: facts about the running process.
#pragma once

#include <cstddef>

namespace plat
{
    /// The command line in one text, arguments joined by blanks; cut to nSize - 1 bytes and always terminated.
    void ProcessCommandLine(char * szBuffer, std::size_t nSize);

    /// Copies the executable's path; false if it is unknown or does not fit.
    bool ProcessExecutablePath(wchar_t * szBuffer, std::size_t nSize);

    /// The current folder without a trailing separator, but for the root; false if it is unknown or does not fit.
    bool ProcessCurrentFolder(wchar_t * szBuffer, std::size_t nSize);

    /// Puts the current folder in front of a relative path of nSize units at most; an empty one stays empty. False, with
    /// the path as it was, if the folder is unknown or the result does not fit.
    bool ProcessMakeAbsolute(wchar_t * szPath, std::size_t nSize);

    /// Whether the process has rights that its caller lacks. What it may read must then not be shown to the caller. A
    /// fault filter may call it.
    bool ProcessIsSecure();

    /// Makes a folder the current one; false on failure.
    bool ProcessSetCurrentFolder(wchar_t const * szFolder);

    /// How many threads run beside the calling one; 0 if that is unknown. A thread that has just been joined counts
    /// for some microseconds still, so the call waits up to 10 ms for none to be left.
    int ProcessOtherThreads();

    /// Installs what a call of a pure virtual function does; it must not return.
    void ProcessSetPureCallHandler(void (*fnHandler)());

    /// Starts a program, or a script that can be executed, in the current folder with this process's files and
    /// environment and no arguments. False if it can't be started; LastErrorText then tells why. Nobody waits for its
    /// end.
    bool ProcessStart(char const * szProgram);

    /// The calling thread's last system error as text, with a line end; cut to nSize - 1 bytes.
    void LastErrorText(char * szBuffer, std::size_t nSize);

    /// Whether that error says that there is nothing of the name, and no more than that.
    bool LastErrorIsAbsence();
}
