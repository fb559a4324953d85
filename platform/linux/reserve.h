// reserve.h: descriptors that are held for a crash, in case the process has used up all of its own.
//
// Threads: one thread at a time calls ReserveFill or ReserveDrop. After a handled fault ReserveFill runs on the thread
// that faulted. Any thread, also in a fault filter, may call OpenWithReserve and OpenToReadWithReserve. ReserveAllow is
// for the thread that has the filter, and for the child of a fork. The entries have no lock.
#pragma once

#include <cerrno>
#include <fcntl.h>

namespace plat
{
    /// Opens the reserve, or what is missing of it. Changes nothing if it is complete. On failure the reserve stays
    /// incomplete. Keeps errno.
    void ReserveFill();

    /// Closes the reserve.
    void ReserveDrop();

    /// Sets whether OpenWithReserve may use the reserve. Callers allow it while a filter runs, and after one that did
    /// not handle its fault.
    void ReserveAllow(bool bAllowed);

    /// Closes one descriptor of the reserve, which makes its number free, and returns true. Skips a number that the
    /// host has closed. Returns false if none is left or the use is not allowed.
    bool ReserveFree();

    /// Calls fnOpen, and again as long as the process has no descriptor left and ReserveFree frees one. Returns the
    /// last result. Requires that fnOpen on failure returns less than 0 and sets errno. If another thread uses the
    /// freed number first, that costs one more of the reserve.
    template <typename OPEN>
    auto OpenWithReserve(OPEN const & fnOpen)
    {
        auto iResult = fnOpen();
        while (iResult < 0 && errno == EMFILE && ReserveFree())
        {
            iResult = fnOpen();
        }
        return iResult;
    }

    /// Opens a file for reading with further flags, and with the reserve. Returns the descriptor, or -1 on failure.
    inline int OpenToReadWithReserve(char const * szPath, int iFlags = 0)
    {
        return OpenWithReserve([=] { return open(szPath, O_RDONLY | O_CLOEXEC | iFlags); });
    }
}
