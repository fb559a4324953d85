// threads.h: the frames of the process's other threads.
//
// ThreadLines_c stops one thread at a time, walks its stack and lets it run on. It finds names and lines after all
// walks.
#pragma once

#include "tools/zqsymbols/details.h"
#include "tools/zqsymbols/frames.h"
#include "tools/zqsymbols/process.h"

namespace zqsymbols
{
    /// A lock that the library reported, or that a thread waits for.
    struct Lock_t
    {
        std::uint64_t nAddress;
        std::uint64_t nOwner;   // address of the LockMark_s (lockmark.h) of the thread that held it, 0 for none
    };

    /// Writer of the lines of the other threads. The first Next walks all of them, until 5 seconds have passed.
    class ThreadLines_c
    {
    public:
        /// Makes a writer. Requires that Process and Lines outlive it.
        ThreadLines_c(Process_c & Process, FrameLines_c & Lines)
            : m_Process(Process)
            , m_Lines(Lines)
        {}

        /// Adds a lock to look for. Has no effect after the first Next.
        void AddLock(Lock_t const & Lock) { m_dLocks.push_back(Lock); }

        /// Steps to the next thread and returns its lines. Threads that hold or wait for a lock come first. After the
        /// last one, returns a line that says why others are missing, if any are. Then returns an empty text.
        std::string Next();

    private:
        struct Thread_t
        {
            int iThread = 0;
            std::uint64_t nMark = 0;      // address of its LockMark_s, 0 without registers
            std::uint64_t nAwaited = 0;   // address of the lock that it waits for, 0 for none
            std::string sLocks;           // what it holds and waits for
            int iRank = 0;                // the lowest first
            std::string sProblem;         // why it has no frames; empty if it has some
            std::vector<Frame_t> dFrames;
            bool bMore = false;   // whether its stack has frames after these
        };

        void Collect();
        bool Trace(Thread_t & Thread);
        bool TraceApart(Thread_t & Thread);
        void Walk(Thread_t & Thread);
        void ReadMark(Thread_t & Thread);
        void DescribeLocks(Thread_t & Thread);
        std::string LockName(Lock_t const & Lock);
        std::string TextOf(Thread_t const & Thread);

        Process_c & m_Process;
        FrameLines_c & m_Lines;
        std::vector<Lock_t> m_dLocks;
        std::vector<Thread_t> m_dThreads;
        std::string m_sEnd;   // after the last thread: why there are no more
        bool m_bCollected = false;
        std::size_t m_iThread = 0;   // the next one that Next returns
    };
}
