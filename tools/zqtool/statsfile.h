// statsfile.h: the stats file of the hierarchical profiler: a header, then batches of timers of STATS_FRAMES frames.
//
// The file comes from outside. Whatever it holds, reading ends, and the timers of a batch form a tree in which a parent
// comes before its children. One batch is in memory at a time.
#pragma once

#include "zqcore/cprofile.h"

#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

inline constexpr std::size_t STATS_FRAMES = PROFILER_FRAMES;          // frames in a batch
inline constexpr std::uint32_t STATS_MAX_TIMERS = MAX_TIMERS_TOTAL;   // most timers in a batch

/// A timer in one frame.
struct StatsSlot_t
{
    std::int64_t tTime = 0;   // ticks of the processor's cycle counter
    std::uint32_t nCalls = 0;
};

/// Figures of a timer, which the profiler computed at the end of a batch from its last STATS_FRAMES - 1 frames. Times
/// are in ticks. tMaxEver is the largest since the profiler's last reset.
struct StatsFigures_t
{
    std::int64_t tAverage = 0, tMax = 0, tLast = 0, tMaxEver = 0;
    std::uint32_t nLast = 0, nAtMax = 0;   // calls in the last frame and in that of tMax
    std::int32_t iMaxSlot = -1;            // of tMax in dSlots; -1 if no frame took any time, or if it is damaged
};

/// A timer in one batch.
struct StatsTimer_t
{
    std::string sName;   // printable UTF-8, whatever the file holds
    std::uint32_t iTimer = 0;
    int iParent = -1;                               // index in the batch, below the timer's own; -1 only for the root
    std::array<StatsSlot_t, STATS_FRAMES> dSlots;   // the oldest frame first
    StatsFigures_t Figures;
};

/// Timers of a batch. A batch that is passed on has at least one timer, and the first one is the root.
using StatsBatch_t = std::vector<StatsTimer_t>;

/// Function that receives a batch. bWhole is false if the file ends inside it and its last timers are missing.
using StatsTake_t = std::function<void(StatsBatch_t const & Batch, bool bWhole)>;

/// Result of StatsTail_c::Read.
enum class StatsTail_e
{
    Nothing,   // the file has no further whole batch yet, or can't be opened
    Batch,     // a batch was read
    Anew,      // the file was created anew, and what was read before is of another run
    Damaged    // the rest can't be read, unless the file is created anew
};

/// Reads a stats file and passes on one batch after the other. A broken one comes last, if it has a timer besides the
/// root. Reports each fault to fnComplain with its offset in the file, and passes on all that is readable before and
/// after it. Returns whether there was no fault.
bool ReadStatsFile(std::istream & Stream, StatsTake_t const & fnTake,
    std::function<void(std::uint64_t nOffset, std::string const & sText)> const & fnComplain);

/// Reader of a stats file that a program still writes.
class StatsTail_c
{
public:
    /// Names the file, which need not exist yet.
    explicit StatsTail_c(std::string sFile);
    ~StatsTail_c();

    /// Reads the next batch if the file holds all of it. Returns what was found. Batch is valid if that is
    /// StatsTail_e::Batch. Reports faults as ReadStatsFile does.
    StatsTail_e Read(
        StatsBatch_t & Batch, std::function<void(std::uint64_t nOffset, std::string const & sText)> const & fnComplain);

private:
    struct State_s;
    std::unique_ptr<State_s> m_pState;
};

/// Returns the time of a frame of a batch in ticks: that of the timer ZQ_TIMER_APPLICATION directly under the root, or
/// without such a timer the sum of all timers directly under the root. Requires iSlot below STATS_FRAMES.
double StatsFrameTime(StatsBatch_t const & Batch, std::size_t iSlot);
