// reserve.h: descriptors that are held for a crash, in case the process has used up all of its own.
#pragma once

#include <cerrno>

namespace plat
{
    /// Opens the reserve, or what a host has closed of it. Does nothing if it is complete.
    void ReserveFill();

    /// Closes the reserve.
    void ReserveDrop();

    /// Sets whether OpenWithReserve may use the reserve. True while a filter runs.
    void ReserveAllow(bool bAllowed);

    /// Closes one descriptor of the reserve, which makes its number free. Returns false if none is left or the use is
    /// not allowed. What a host has closed is not the library's any more and stays.
    bool ReserveFree();

    /// Calls Open, which returns less than 0 for a failure. As long as the process has no descriptor left, frees one of
    /// the reserve and calls again. Returns the last result. Another thread may take the number first, which costs one
    /// of the reserve.
    template <typename OPEN>
    auto OpenWithReserve(OPEN const & Open)
    {
        auto iResult = Open();
        while (iResult < 0 && errno == EMFILE && ReserveFree())
        {
            iResult = Open();
        }
        return iResult;
    }
}
