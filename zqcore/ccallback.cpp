#include "zqcore/ccallback_internal.h"

#include "platform/fork.h"

constinit Callbacker_T<bool> g_ExecutionCallbacker;
constinit Callbacker_T<int> g_CommandCallbacker;
constinit Callbacker_T<void> g_LoadingCallbacker;
constinit Callbacker_T<void> g_RenderCallbacker;
constinit Callbacker_T<bool> g_ActiveCallbacker;
constinit Callbacker_T<void> g_SizeCallbacker;
constinit Callbacker_T<void> g_IdleCallbacker;
constinit Callbacker_T<int> g_InitMenuCallbacker;
constinit Callbacker_T<MessageData_s> g_FullscreenCallbacker;
constinit Callbacker_T<MessageData_s> g_MouseCallbacker;
constinit Callbacker_T<MessageData_s> g_KeyboardCallbacker;
constinit Callbacker_T<MessageData_s> g_JoystickCallbacker;
constinit Callbacker_T<char> g_CharCallbacker;
constinit Callbacker_T<MessageData_s> g_ApplicationMessages;
constinit Callbacker_T<char const *> g_FileReadErrorCallbacker;
constinit Callbacker_T<MessageData_s> g_NetworkCallbacker;
constinit Callbacker_T<bool> g_FullscreenSwitchCallbacker;
constinit Callbacker_T<char const *> g_FileTrackChangesCallbacker;
constinit Callbacker_T<char const *> g_AddSubfolderCallbacker;
constinit Callbacker_T<char const *> g_ResourceLoadCallbacker;
constinit Callbacker_T<char const *> g_WarningsCallbacker;
constinit Callbacker_T<char const *> g_FileOpenCallbacker;

namespace
{
    constinit plat::Lock_c g_FiringLock;
    plat::ForkLock_c const g_FiringForkLock(g_FiringLock);
    ZQ_THREAD_LOCAL int t_nFirings = 0;   // firings of the calling thread
    ZQ_THREAD_LOCAL int t_nNoWaits = 0;   // open scopes of FiringNoWait_c on the calling thread

    // Calls fnCall with a bit and each list that the lock guards.
    template <typename CALL>
    void VisitLists(CALL fnCall)
    {
        fnCall(1u, g_WarningsCallbacker);
        fnCall(2u, g_ExecutionCallbacker);
        fnCall(4u, g_FileOpenCallbacker);
        fnCall(8u, g_FileReadErrorCallbacker);
    }

    // Returns the bits of the lists that are firing. Requires that the calling thread holds the lock.
    std::uint32_t FiringLists()
    {
        std::uint32_t dwLists = 0;
        VisitLists([&dwLists](std::uint32_t dwList, auto & List) { dwLists |= List.IsFiring() ? dwList : 0; });
        return dwLists;
    }

    // Enters the lock and returns true. Inside a FiringNoWait_c, returns false if another thread holds it.
    bool Grant()
    {
        if (t_nNoWaits > 0)
        {
            return g_FiringLock.TryEnter();
        }
        g_FiringLock.Enter();
        return true;
    }

    // Leaves the lock until nFirings firings of the calling thread are left.
    void LeaveUntil(int nFirings)
    {
        for (; t_nFirings > nFirings; --t_nFirings)
        {
            g_FiringLock.Leave();
        }
    }
}

Firing_c::Firing_c()
    : m_bGranted(Grant())
{
    t_nFirings += m_bGranted;
}

Firing_c::~Firing_c()
{
    if (m_bGranted)
    {
        --t_nFirings;
        g_FiringLock.Leave();
    }
}

FiringNoWait_c::FiringNoWait_c()
{
    ++t_nNoWaits;
}

FiringNoWait_c::~FiringNoWait_c()
{
    --t_nNoWaits;
}

bool FiringNoWait_c::IsActive()
{
    return t_nNoWaits > 0;
}

void Firing_c::EndAll()
{
    LeaveUntil(0);
}

FiringMark_c::FiringMark_c()
    : m_nFirings(t_nFirings)
    , m_nNoWaits(t_nNoWaits)
    , m_dwLists(t_nFirings > 0 ? FiringLists() : 0)
{}

void FiringMark_c::EndLater() const
{
    t_nNoWaits = m_nNoWaits;
    if (t_nFirings > m_nFirings)
    {
        VisitLists(
            [this](std::uint32_t dwList, auto & List)
            {
                if ((m_dwLists & dwList) == 0)
                {
                    List.EndFiring();
                }
            });
    }
    LeaveUntil(m_nFirings);
}
