#include "stretch_queue.h"

#include <algorithm>

_LinkedStretchQueue::_LinkedStretchQueue(int frameMs, int sampleRate,
                                         int channels)
    : engine_(_LinkedStretchCreate(frameMs, sampleRate, channels)),
      channels_(channels)
{
    // Output comes in whole blocks of half a frame, never more than asked
    // for once the capacity holds one block.
    const int64_t frame = (int64_t(frameMs) * sampleRate / 1000) & ~int64_t(7);
    if (engine_ != nullptr)
        scratch_.resize(
            size_t(std::max<int64_t>(65536 / channels, frame) * channels));
}

_LinkedStretchQueue::~_LinkedStretchQueue()
{
    _LinkedStretchDestroy(engine_);
}

void _LinkedStretchQueue::feed(const float *samples, int64_t frames,
                               float speed)
{
    const size_t count = size_t(frames * channels_);
    if (samples != nullptr)
        pending_.insert(pending_.end(), samples, samples + count);
    else
        pending_.resize(pending_.size() + count, 0.0f);
    pump(speed);
}

/* Offers the pending input and collects whatever output that allows, until
 * the engine neither takes nor gives anything. */
void _LinkedStretchQueue::pump(float speed)
{
    const int capacity = int(int64_t(scratch_.size()) / channels_);
    for (;;) {
        int taken = 0;
        if (!pending_.empty())
            taken = _LinkedStretchInput(
                engine_, pending_.data(),
                int(int64_t(pending_.size()) / channels_), speed);
        pending_.erase(pending_.begin(),
                       pending_.begin() + long(taken * channels_));
        const int made =
            _LinkedStretchOutput(engine_, scratch_.data(), capacity);
        ready_.insert(ready_.end(), scratch_.begin(),
                      scratch_.begin() + long(made * channels_));
        made_ += made;
        if (taken == 0 && made == 0)
            return;
    }
}

int64_t _LinkedStretchQueue::readyFrames() const
{
    return int64_t(ready_.size()) / channels_;
}

void _LinkedStretchQueue::drop(int64_t frames)
{
    ready_.erase(ready_.begin(), ready_.begin() + long(frames * channels_));
}

void _LinkedStretchQueue::clear()
{
    pending_.clear();
    ready_.clear();
}
