// csimpleprofile.h: a small profiler of fixed kinds of work, for several threads.
//
// There are three contexts and 17 kinds of work. The host decides what a context means. The profiler stores the time of
// the last frame, the mean over 32 frames and the peak for each kind in each context. The time of a kind does not
// include the kinds nested in it.
//
// A thread is in a context from a SimpleProfilePush to the matching SimpleProfilePop. A forked child is in the contexts
// of the thread that forked, and in no others.
//
// Ownership: nothing is owned, started or freed.
// Threads: any thread. A thread that pushes waits until other threads have left the context. The stack of contexts
// (SimpleProfileContextPush, SIMPLE_PROFILE_CONTEXT_CURRENT) belongs to one thread.
// Cost: a push and a pop need three lock cycles and two readings of the clock. Nothing allocates.
// Failure: what a function says that it asserts fails an assertion. A time that the clock makes negative counts as 0.
//
//     {
//         SimpleProfileScope_c const Work(SIMPLE_PROFILE_CONTEXT_1, SIMPLE_TIMER_AI);
//         longTimeWait(0.001);   // the work
//     }
//     SimpleProfileReset(SIMPLE_PROFILE_CONTEXT_1);   // the frame ends
//     SimpleProfileInfo_t const Info = SimpleProfileGet(SIMPLE_PROFILE_CONTEXT_1, SIMPLE_TIMER_AI);
//     Log("AI took %lli ticks.", static_cast<long long>(Info.tLast));
#pragma once

#include "zqcore/cconfig.h"

/// Number of contexts, without SIMPLE_PROFILE_CONTEXT_CURRENT.
inline constexpr int SIMPLE_PROFILE_CONTEXT_TOTAL = 3;

/// Depth of a context's stack of kinds, and of the stack of contexts.
inline constexpr int SIMPLE_PROFILE_STACKSIZE = 32;

/// Contexts, whose meaning the host decides.
enum SimpleProfileContext_e : int
{
    SIMPLE_PROFILE_CONTEXT_0,
    SIMPLE_PROFILE_CONTEXT_1,
    SIMPLE_PROFILE_CONTEXT_2,
    SIMPLE_PROFILE_CONTEXT_CURRENT   // for push and pop: the context pushed last, or context 1
};

/// Kinds of work.
enum SimpleProfileType_e : int
{
    SIMPLE_TIMER_SERVER,
    SIMPLE_TIMER_SERVER_WORLDUPDATE,
    SIMPLE_TIMER_SERVER_NETWORK,
    SIMPLE_TIMER_CLIENT_WORLDUPDATE,
    SIMPLE_TIMER_CLIENT_SFXUPDATE,
    SIMPLE_TIMER_CLIENT_DISPATCHMSG,
    SIMPLE_TIMER_CLIENT_NETWORK,
    SIMPLE_TIMER_COLLISIONS,
    SIMPLE_TIMER_PATHFINDER,
    SIMPLE_TIMER_AI,
    SIMPLE_TIMER_UI,
    SIMPLE_TIMER_PARTICLES,
    SIMPLE_TIMER_RENDER,
    SIMPLE_TIMER_DEBUGRENDER,
    SIMPLE_TIMER_SOUND,
    SIMPLE_TIMER_ANIMATION,
    SIMPLE_TIMER_DEBUG
};

/// Figures of a kind in ticks of shortTimeGet.
struct SimpleProfileInfo_t
{
    std::int64_t tLast = 0;      // time of the latest frame
    std::int64_t tPeak = 0;      // largest time of a frame in the current span of 32 frames
    std::int64_t tAverage = 0;   // time of the previous span / 32, 0 in the first span, which has only 31 frames
    std::int64_t tSum = 0;       // time in the current span
};

/// Push and pop the context that SIMPLE_PROFILE_CONTEXT_CURRENT means. Require that only one thread calls them, and
/// that each push has its own pop.
/// - A pop of an empty stack does nothing.
/// - The push asserts that eContext is one of the three, and that at most 32 are pushed. If the developer continues,
///   the context stays as it is until the pop of this push.
ZQ_API void SimpleProfileContextPush(SimpleProfileContext_e eContext);
ZQ_API void SimpleProfileContextPop();

/// Begins a kind of work. Waits while another thread is in the context. A kind that begins directly inside itself is
/// timed once. Requires that each push has its own pop.
/// - Asserts that context and kind exist, and does nothing otherwise.
/// - Asserts that at most 32 kinds are nested. If the developer continues, the time of a deeper kind counts for the
///   kind around it.
ZQ_API void SimpleProfilePush(SimpleProfileContext_e eContext, SimpleProfileType_e eType);

/// Ends the kind that began last in the context. Asserts that it is eType, unless it was too deep to be timed, and ends
/// it even if it is another kind. Requires that the calling thread is in the context. Asserts and does nothing else in
/// these cases:
/// - the context does not exist.
/// - the kind does not exist.
/// - there is no push to pop.
ZQ_API void SimpleProfilePop(SimpleProfileContext_e eContext, SimpleProfileType_e eType);

/// Scope of a kind of work: calls SimpleProfilePush, and SimpleProfilePop at the end.
class SimpleProfileScope_c
{
public:
    SimpleProfileScope_c(SimpleProfileContext_e eContext, SimpleProfileType_e eType)
        : m_eContext(eContext)
        , m_eType(eType)
    {
        SimpleProfilePush(eContext, eType);
    }
    ~SimpleProfileScope_c() { SimpleProfilePop(m_eContext, m_eType); }
    SimpleProfileScope_c(SimpleProfileScope_c const &) = delete;
    SimpleProfileScope_c & operator=(SimpleProfileScope_c const &) = delete;

private:
    SimpleProfileContext_e const m_eContext;
    SimpleProfileType_e const m_eType;
};

/// Scope in which SIMPLE_PROFILE_CONTEXT_CURRENT means a context: calls SimpleProfileContextPush, and
/// SimpleProfileContextPop at the end.
class SimpleProfileContextScope_c
{
public:
    explicit SimpleProfileContextScope_c(SimpleProfileContext_e eContext) { SimpleProfileContextPush(eContext); }
    ~SimpleProfileContextScope_c() { SimpleProfileContextPop(); }
    SimpleProfileContextScope_c(SimpleProfileContextScope_c const &) = delete;
    SimpleProfileContextScope_c & operator=(SimpleProfileContextScope_c const &) = delete;
};

/// Ends a frame of the context and begins the next one. The times of the ended frame become the figures. Waits while
/// another thread is in the context. Asserts that the calling thread is not in it. Asserts that the context exists, and
/// does nothing otherwise.
ZQ_API void SimpleProfileReset(SimpleProfileContext_e eContext);

/// Returns a copy of the figures. Waits at most for a few instructions of other threads, or for the dialog of an
/// assertion that one of them fails in the context. Asserts that context and kind exist, and returns zeros otherwise.
ZQ_API SimpleProfileInfo_t SimpleProfileGet(SimpleProfileContext_e eContext, SimpleProfileType_e eType);

/// Returns the enumerator's name without "SIMPLE_", or "unknown" for other values.
ZQ_API char const * SimpleProfileName(SimpleProfileType_e eType);
