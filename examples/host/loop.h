// loop.h: the main loop.
#pragma once

class Survey_c;

/// Figures of the loop. Times are seconds of work, without the waiting between frames.
struct FrameStats_t
{
    int nFrames = 0;
    int nIdle = 0;         // idle heartbeats between the frames
    int iWorstFrame = 0;   // number of the frame that took tWorst, from 0
    double tTotal = 0.0;
    double tWorst = 0.0;
    unsigned nMostAllocs = 0;   // in one frame
};

/// Number of frames with which LoopRun runs until the watch is over.
inline constexpr int FRAMES_UNTIL_OVER = -1;

/// Runs nFrames frames at the rate of the settings, with the idle heartbeat between them, and returns their figures.
/// Each frame streams as many files of the survey as the settings require.
FrameStats_t LoopRun(int nFrames, Survey_c & Survey);
