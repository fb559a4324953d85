// statstrace.h: a stats file as trace events in JSON, the format that trace viewers load.
//
// The file holds times by frame, not the moments of pushes. So each frame is one event, which begins where the previous
// one ends. In a frame, each timer below the root with calls or a size is one event, with its calls and ticks. The size
// is the timer's time or the sum of its children's sizes, whichever is larger. The event lies inside its parent's
// event, after the timers of that parent that were created before it.
#pragma once

#include "tools/zqtool/statsfile.h"

#include <iosfwd>

/// Writer of a trace.
class StatsTrace_c
{
public:
    /// Begins the trace. Requires that the stream outlives the object, and that the rate is above 0.
    StatsTrace_c(std::ostream & Stream, double fTicksPerSecond);

    /// Appends the frames of a batch.
    void Add(StatsBatch_t const & Batch);

    /// Writes the end. The stream then holds one JSON value.
    void Finish();

private:
    void AddFrame(StatsBatch_t const & Batch, std::vector<std::size_t> const & dOrder,
        std::vector<int> const & dParents, std::size_t iSlot);
    void AddEvent(std::string const & sName, double tStart, double tSize, std::string const & sArguments);

    std::ostream & m_Stream;
    double m_fNanosecondsPerTick;
    double m_tFrame = 0;   // start of the next frame, in ticks
    int m_iFrame = 0;
};
