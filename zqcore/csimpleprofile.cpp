#include "zqcore/csimpleprofile.h"

#include "zqcore/carray.h"
#include "zqcore/cdebug.h"
#include "zqcore/ctimer.h"

#include "platform/fork.h"
#include "platform/threads.h"

#include <algorithm>

namespace
{
    constexpr int SPAN_FRAMES = 32;   // frames of a mean and of a peak

    constexpr char const * KIND_NAMES[] = { "TIMER_SERVER", "TIMER_SERVER_WORLDUPDATE", "TIMER_SERVER_NETWORK",
        "TIMER_CLIENT_WORLDUPDATE", "TIMER_CLIENT_SFXUPDATE", "TIMER_CLIENT_DISPATCHMSG", "TIMER_CLIENT_NETWORK",
        "TIMER_COLLISIONS", "TIMER_PATHFINDER", "TIMER_AI", "TIMER_UI", "TIMER_PARTICLES", "TIMER_RENDER",
        "TIMER_DEBUGRENDER", "TIMER_SOUND", "TIMER_ANIMATION", "TIMER_DEBUG" };
    constexpr int KINDS = static_cast<int>(std::size(KIND_NAMES));
    static_assert(KINDS == SIMPLE_TIMER_DEBUG + 1);

    // Kind of work that is pushed and not yet popped. Times are in ticks of shortTimeGet.
    struct SimpleProfileData_t
    {
        std::int64_t tStart = 0;
        std::int64_t tChildren = 0;   // time of the kinds nested in it
        std::int32_t nCount = 0;      // pushes that share the entry
        SimpleProfileType_e eType = SIMPLE_TIMER_SERVER;
    };

    // State of a context. Times are in ticks of shortTimeGet.
    struct SimpleProfile_t
    {
        StaticArray_T<SimpleProfileInfo_t, KINDS> dInfo;
        StaticArray_T<SimpleProfileData_t, SIMPLE_PROFILE_STACKSIZE> dStack;
        std::int64_t dFrameTime[KINDS] = {};   // times in the current frame
        int iStackPtr = -1;                    // index of the top, -1 if empty
        int nBeyond = 0;                       // open pushes without room in dStack
        int nFrames = 0;                       // resets since the last span was closed
        plat::Lock_c StatsLock;                // lock of the figures, held for short steps
        plat::Lock_c UseLock;                  // held from push to pop, locked first
    };
    constinit SimpleProfile_t g_dProfiles[SIMPLE_PROFILE_CONTEXT_TOTAL];

    SimpleProfileContext_e g_dSProfileContextStack[SIMPLE_PROFILE_STACKSIZE];
    int g_iSProfileContextStackPtr = -1;
    int g_nContextsRefused = 0;   // open pushes of contexts that are not on the stack, and pushes inside them

    bool IsContext(SimpleProfileContext_e eContext)
    {
        return eContext >= 0 && eContext < SIMPLE_PROFILE_CONTEXT_TOTAL;
    }

    bool IsKind(SimpleProfileType_e eType)
    {
        return eType >= 0 && eType < KINDS;
    }

    // Returns the state of a context. Asserts that context and kind exist, and returns null otherwise.
    SimpleProfile_t * Find(SimpleProfileContext_e eContext, SimpleProfileType_e eType)
    {
        ZQ_ASSERT_TEXT(IsContext(eContext), "eContext < SIMPLE_PROFILE_CONTEXT_TOTAL");
        ZQ_ASSERT_TEXT(IsKind(eType), "eType <= SIMPLE_TIMER_DEBUG");
        return IsContext(eContext) && IsKind(eType) ? &g_dProfiles[eContext] : nullptr;
    }

    // Returns the context itself, or the one that SIMPLE_PROFILE_CONTEXT_CURRENT means.
    SimpleProfileContext_e Resolve(SimpleProfileContext_e eContext)
    {
        if (eContext != SIMPLE_PROFILE_CONTEXT_CURRENT)
        {
            return eContext;
        }
        int const iTop = g_iSProfileContextStackPtr;
        return iTop >= 0 ? g_dSProfileContextStack[iTop] : SIMPLE_PROFILE_CONTEXT_1;
    }

    void Begin(SimpleProfile_t & Profile, SimpleProfileType_e eType)
    {
        bool const bWithin = Profile.nBeyond == 0;
        if (bWithin && Profile.iStackPtr >= 0 && Profile.dStack[Profile.iStackPtr].eType == eType)
        {
            ++Profile.dStack[Profile.iStackPtr].nCount;
        }
        else if (bWithin && Profile.iStackPtr < SIMPLE_PROFILE_STACKSIZE - 1)
        {
            Profile.dStack[++Profile.iStackPtr] = { shortTimeGet(), 0, 1, eType };
        }
        else
        {
            ++Profile.nBeyond;
            ZQ_ASSERT_TEXT(false, "iStackPtr < SIMPLE_PROFILE_STACKSIZE");
        }
    }

    void End(SimpleProfile_t & Profile, SimpleProfileType_e eType)
    {
        if (Profile.nBeyond > 0)
        {
            --Profile.nBeyond;
            return;
        }
        SimpleProfileData_t & Top = Profile.dStack[Profile.iStackPtr];
        ZQ_ASSERT(Top.eType == eType);
        if (--Top.nCount > 0)
        {
            return;
        }
        std::int64_t const tTaken = std::max<std::int64_t>(shortTimeGet() - Top.tStart, 0);
        Profile.dFrameTime[Top.eType] += std::max<std::int64_t>(tTaken - Top.tChildren, 0);
        if (--Profile.iStackPtr >= 0)
        {
            Profile.dStack[Profile.iStackPtr].tChildren += tTaken;
        }
    }

    // Whether the forking thread is in a context, by context.
    bool g_dOwn[SIMPLE_PROFILE_CONTEXT_TOTAL];

    // Records in which contexts the forking thread is.
    void NoteOwnContexts()
    {
        for (int i = 0; i < SIMPLE_PROFILE_CONTEXT_TOTAL; ++i)
        {
            bool const bEntered = g_dProfiles[i].UseLock.TryEnter();
            g_dOwn[i] = bEntered && g_dProfiles[i].iStackPtr >= 0;
            if (bEntered)
            {
                g_dProfiles[i].UseLock.Leave();
            }
        }
    }

    // Leaves the contexts of the other threads, which a forked child lacks. Renews all locks, and enters those of its
    // own contexts again.
    void KeepOwnContexts()
    {
        for (int i = 0; i < SIMPLE_PROFILE_CONTEXT_TOTAL; ++i)
        {
            SimpleProfile_t & Profile = g_dProfiles[i];
            Profile.StatsLock.Renew();
            Profile.UseLock.Renew();
            Profile.iStackPtr = g_dOwn[i] ? Profile.iStackPtr : -1;
            Profile.nBeyond = g_dOwn[i] ? Profile.nBeyond : 0;
            int nPushes = Profile.nBeyond;
            for (int iEntry = 0; iEntry <= Profile.iStackPtr; ++iEntry)
            {
                nPushes += Profile.dStack[iEntry].nCount;
            }
            for (; nPushes > 0; --nPushes)
            {
                Profile.UseLock.Enter();
            }
        }
    }
    plat::ForkHandler_c const g_ForkHandler({ NoteOwnContexts, nullptr, KeepOwnContexts });

    void CloseSpan(SimpleProfile_t & Profile)
    {
        Profile.nFrames = 0;
        for (int i = 0; i < KINDS; ++i)
        {
            SimpleProfileInfo_t & Info = Profile.dInfo[i];
            Info.tAverage = Info.tSum / SPAN_FRAMES;
            Info.tSum = 0;
            Info.tPeak = 0;
        }
    }

    void CloseFrame(SimpleProfile_t & Profile)
    {
        for (int i = 0; i < KINDS; ++i)
        {
            SimpleProfileInfo_t & Info = Profile.dInfo[i];
            Info.tLast = Profile.dFrameTime[i];
            Info.tSum += Info.tLast;
            Info.tPeak = std::max(Info.tPeak, Info.tLast);
            Profile.dFrameTime[i] = 0;
        }
    }
}

void SimpleProfileContextPush(SimpleProfileContext_e eContext)
{
    ZQ_ASSERT_TEXT(IsContext(eContext), "eContext < SIMPLE_PROFILE_CONTEXT_TOTAL");
    bool const bRoom = g_iSProfileContextStackPtr + 1 < SIMPLE_PROFILE_STACKSIZE;
    ZQ_ASSERT_TEXT(bRoom, "g_iSProfileContextStackPtr < SIMPLE_PROFILE_STACKSIZE");
    if (!IsContext(eContext) || !bRoom || g_nContextsRefused > 0)
    {
        ++g_nContextsRefused;
        return;
    }
    g_dSProfileContextStack[++g_iSProfileContextStackPtr] = eContext;
}

void SimpleProfileContextPop()
{
    if (g_nContextsRefused > 0)
    {
        --g_nContextsRefused;
        return;
    }
    g_iSProfileContextStackPtr = std::max(g_iSProfileContextStackPtr - 1, -1);
}

void SimpleProfilePush(SimpleProfileContext_e eContext, SimpleProfileType_e eType)
{
    if (SimpleProfile_t * const pProfile = Find(Resolve(eContext), eType))
    {
        pProfile->UseLock.Enter();
        plat::LockScope_c const Scope(pProfile->StatsLock);
        Begin(*pProfile, eType);
    }
}

void SimpleProfilePop(SimpleProfileContext_e eContext, SimpleProfileType_e eType)
{
    SimpleProfile_t * const pProfile = Find(Resolve(eContext), eType);
    if (!pProfile)
    {
        return;
    }
    {
        plat::LockScope_c const Scope(pProfile->StatsLock);
        bool const bInside = pProfile->iStackPtr >= 0;
        ZQ_ASSERT_TEXT(bInside, "iStackPtr >= 0");
        if (!bInside)
        {
            return;
        }
        End(*pProfile, eType);
    }
    pProfile->UseLock.Leave();
}

void SimpleProfileReset(SimpleProfileContext_e eContext)
{
    SimpleProfile_t * const pProfile = Find(eContext, SIMPLE_TIMER_SERVER);
    if (!pProfile)
    {
        return;
    }
    plat::LockScope_c const Use(pProfile->UseLock);
    plat::LockScope_c const Stats(pProfile->StatsLock);
    ZQ_ASSERT_TEXT(pProfile->iStackPtr == -1, "iStackPtr == -1");
    if (++pProfile->nFrames == SPAN_FRAMES)
    {
        CloseSpan(*pProfile);
    }
    CloseFrame(*pProfile);
}

SimpleProfileInfo_t SimpleProfileGet(SimpleProfileContext_e eContext, SimpleProfileType_e eType)
{
    SimpleProfile_t * const pProfile = Find(eContext, eType);
    if (!pProfile)
    {
        return {};
    }
    plat::LockScope_c const Scope(pProfile->StatsLock);
    return pProfile->dInfo[eType];
}

char const * SimpleProfileName(SimpleProfileType_e eType)
{
    return IsKind(eType) ? KIND_NAMES[eType] : "unknown";
}
