// cexceptioninfo_internal.h: what the sources of ExceptionInfo_c share.
//
// Threads: g_szDialog and all free functions but TraceText require that the caller holds g_Lock.
#pragma once

#include "zqcore/cexceptioninfo.h"

#include "platform/faults.h"
#include "platform/threads.h"

#include <cstddef>
#include <cstdint>

namespace exceptioninfo
{
    /// A re-entrant lock that knows its owner.
    class OwnedLock_c
    {
    public:
        void Enter()
        {
            m_Lock.Enter();
            ++m_nEntered;
        }
        void Leave()
        {
            --m_nEntered;
            m_Lock.Leave();
        }

        /// Returns how many times the calling thread has entered the lock and not left it yet. Requires that it holds
        /// the lock.
        int GetDepth() const { return m_nEntered; }

        /// Leaves the lock until the depth is nDepth, after a jump out of its scopes.
        void LeaveDownTo(int nDepth)
        {
            while (m_nEntered > nDepth)
            {
                Leave();
            }
        }

        /// Returns whether the calling thread holds the lock.
        bool IsMine()
        {
            bool const bEntered = m_Lock.TryEnter();
            bool const bMine = bEntered && m_nEntered > 0;
            if (bEntered)
            {
                m_Lock.Leave();
            }
            return bMine;
        }

        /// Releases the lock in a forked child, unless the calling thread holds it.
        void Renew()
        {
            if (!IsMine())
            {
                m_Lock.Renew();
                m_nEntered = 0;
            }
        }

    private:
        plat::Lock_c m_Lock;
        int m_nEntered = 0;
    };

    extern OwnedLock_c g_Lock;   // the lock of ExceptionInfo_c

    /// Scope that holds g_Lock.
    class Scope_c
    {
    public:
        Scope_c() { g_Lock.Enter(); }
        ~Scope_c() { g_Lock.Leave(); }
        Scope_c(Scope_c const &) = delete;
        Scope_c & operator=(Scope_c const &) = delete;
    };

    inline constexpr std::size_t EXCEPTION_TRACE_SIZE = 65536;   // bytes, as the two below
    inline constexpr std::size_t MESSAGE_TRACE_SIZE = 16384;
    inline constexpr std::size_t DIALOG_SIZE = EXCEPTION_TRACE_SIZE + 4096;   // of the text of a dialog with a trace

    extern char g_szDialog[DIALOG_SIZE];   // text of the open dialog

    /// A module in the list of LoadModules.
    struct ModuleInfo_s
    {
        char szPath[260];
        char const * szName;   // the file's name, in szPath
        std::uintptr_t Base;
        std::size_t nSize;
    };

    /// Tries the symbol helper and traces the outcome, until it was available once.
    void SetUpSymbols(plat::FaultContext_t const & Context);

    /// Lists the modules and traces which of their files can be read for symbols.
    void LoadModules();

    /// Returns the listed module that holds the address, or null if none does.
    ModuleInfo_s const * ModuleOf(std::uintptr_t Address);

    /// Traces a text of any length, as TraceLine does a line.
    void TraceText(char const * szText);

    /// Ends a trace that a jump has left.
    void EndTrace();

    /// Returns the text of the calling thread's last system error. It is valid until the next call.
    char const * LastError();
}
