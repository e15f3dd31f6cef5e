/*
 * The frame walk shared by both run routines. A frame starts at p = start,
 * start + step, ... and covers p .. p + numChannels - 1, for as long as
 * p <= count - numChannels. Positions, the last start and the comparison
 * are signed 32-bit although callers pass unsigned values, so a block
 * shorter than one frame or a start past the end does nothing; the sum
 * wraps instead of overflowing, and the walk stops at the first position
 * that would fall before the buffer.
 */
#ifndef TOLV_FILTER_WALK_H
#define TOLV_FILTER_WALK_H

#include <stdint.h>

template <class FrameFn>
static inline void _WalkFrames(uint32_t count, uint32_t start, uint32_t step,
                               int32_t numChannels, FrameFn frame)
{
    const int32_t last =
        static_cast<int32_t>(count - static_cast<uint32_t>(numChannels));
    for (uint32_t p = start; static_cast<int32_t>(p) <= last; p += step) {
        // A position that reads as negative lies before the buffer (a start
        // or a step of 2^31 or more): the walk ends there. Every position
        // then stays in 0 .. last, and any step but 0 reaches one of the
        // two ends, so the walk also ends.
        if (static_cast<int32_t>(p) < 0)
            break;
        frame(static_cast<int32_t>(p));
    }
}

#endif
