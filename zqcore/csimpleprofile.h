// csimpleprofile.h: a small profiler of fixed kinds of work, for several threads.
//
// There are three contexts and 17 kinds. Per context and kind it tells the time of the last frame without the time of
// kinds nested in it, the mean over 32 frames and the peak. A thread is in a context from a push to the matching pop;
// another one that pushes there waits until it has left. Figures may be read meanwhile. A forked child is in the
// contexts of the thread that forked, and in no others. Contexts are numbers of meaning only to the host; nothing is
// started or freed, and nothing is allocated. A push and a pop cost three lock pairs and two readings of the clock. A
// span that the clock makes negative counts as 0.
#pragma once

#include "zqcore/cconfig.h"

inline constexpr int SIMPLE_PROFILE_CONTEXT_TOTAL = 3;

/// Entries in a context's stack, and in that of the contexts.
inline constexpr int SIMPLE_PROFILE_STACKSIZE = 32;

enum SimpleProfileContext_e : int
{
    SIMPLE_PROFILE_CONTEXT_0,
    SIMPLE_PROFILE_CONTEXT_1,
    SIMPLE_PROFILE_CONTEXT_2,
    SIMPLE_PROFILE_CONTEXT_CURRENT   // for push and pop: the one pushed last, context 1 if none is
};

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

/// The figures of a kind, in ticks of shortTimeGet.
struct SimpleProfileInfo_t
{
    std::int64_t tLast = 0;      // the latest frame
    std::int64_t tPeak = 0;      // largest frame of the present span of 32 frames
    std::int64_t tAverage = 0;   // mean of a frame of the span before; 0 in the first span
    std::int64_t tSum = 0;       // of the present span
};

/// Choose the context of SIMPLE_PROFILE_CONTEXT_CURRENT. One of the three is pushed, at most 32 deep; a pop with
/// nothing pushed does nothing. For one thread alone.
ZQ_API void SimpleProfileContextPush(SimpleProfileContext_e eContext);
ZQ_API void SimpleProfileContextPop();

/// Begins a kind of work, and waits while another thread is in the context. A kind that begins directly inside itself
/// is timed once. Beyond 32 nested kinds an assertion fails; if that is ignored, the time is the outer kind's.
ZQ_API void SimpleProfilePush(SimpleProfileContext_e eContext, SimpleProfileType_e eType);

/// Ends the kind that began last, which must be this one; it is ended in any case.
ZQ_API void SimpleProfilePop(SimpleProfileContext_e eContext, SimpleProfileType_e eType);

/// Closes a frame, and waits for the thread that is in the context. The calling thread must not be.
ZQ_API void SimpleProfileReset(SimpleProfileContext_e eContext);

/// A copy of the figures; waits for nothing but a few instructions of others. Zeros for what does not exist.
ZQ_API SimpleProfileInfo_t SimpleProfileGet(SimpleProfileContext_e eContext, SimpleProfileType_e eType);

/// The enumerator's name without "SIMPLE_"; "unknown" for other values.
ZQ_API char const * SimpleProfileName(SimpleProfileType_e eType);
