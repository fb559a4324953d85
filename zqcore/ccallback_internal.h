// ccallback_internal.h: the lock of the event lists that any thread may fire. Nothing public includes it.
#pragma once

#include "zqcore/ccallback.h"

/// Scope of one firing. If granted, holds the lock that the four lists share (ccallback.h). They share one because a
/// receiver of one list may fire another: with two locks, two threads could enter them in opposite orders. The lock is
/// re-entrant, so a receiver may fire. Fire decides what a nested firing does (ccallback.h).
class Firing_c
{
public:
    /// Waits while another thread fires, except in a FiringNoWait_c.
    Firing_c();
    ~Firing_c();
    Firing_c(Firing_c const &) = delete;
    Firing_c & operator=(Firing_c const &) = delete;

    /// Returns whether the caller may fire. Returns false only in a FiringNoWait_c, while another thread fires.
    bool IsGranted() const { return m_bGranted; }

    /// Leaves the lock for all firings of the calling thread. Their lists still count as firing. Requires that the
    /// thread does not return to them.
    static void EndAll();

private:
    bool const m_bGranted;
};

/// Fires an event with a text. Waits while another thread fires. In a FiringNoWait_c does nothing instead of waiting.
inline void FireIfGranted(Callbacker_T<char const *> & Event, char const * szText)
{
    Firing_c const Firing;
    if (Firing.IsGranted())
    {
        Event.Fire(szText, false);
    }
}

/// Scope in which the firings of the calling thread do not wait: a receiver of another thread may wait for this thread,
/// for instance for the heap's lock. An event is dropped while another thread fires. A complaint whose event is dropped
/// is logged all the same.
class FiringNoWait_c
{
public:
    FiringNoWait_c();
    ~FiringNoWait_c();
    FiringNoWait_c(FiringNoWait_c const &) = delete;
    FiringNoWait_c & operator=(FiringNoWait_c const &) = delete;

    /// Returns whether the calling thread is in such a scope.
    static bool IsActive();
};

/// Mark of the calling thread's scopes above, before a call that a jump may leave.
class FiringMark_c
{
public:
    FiringMark_c();

    /// Ends the scopes that began after the mark, and the firings in them. Requires that the thread does not return to
    /// them.
    void EndLater() const;

private:
    int const m_nFirings, m_nNoWaits;
    std::uint32_t const m_dwLists;   // a bit for each list that this thread was firing
};
