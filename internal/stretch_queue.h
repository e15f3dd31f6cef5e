/*
 * The linked stretcher behind two queues, for front ends that hand it
 * blocks of any size: the engine takes input only while its window has
 * room and gives output in whole blocks, so input it has not taken waits,
 * and output waits until the caller takes it.
 */
#ifndef TOLV_INTERNAL_STRETCH_QUEUE_H
#define TOLV_INTERNAL_STRETCH_QUEUE_H

#include <cstdint>
#include <vector>

#include "linked_stretch.h"

class _LinkedStretchQueue {
  public:
    /* engine() is null when the engine refuses the frame or rate. */
    _LinkedStretchQueue(int frameMs, int sampleRate, int channels);
    ~_LinkedStretchQueue();
    _LinkedStretchQueue(const _LinkedStretchQueue &) = delete;
    _LinkedStretchQueue &operator=(const _LinkedStretchQueue &) = delete;

    _TOLV_LINKED_STRETCH *engine() const { return engine_; }
    /* Queues `frames` interleaved frames played at `speed` (silence for a
     * null block) and collects whatever output they allow. */
    void feed(const float *samples, int64_t frames, float speed);
    /* Output frames waiting, their interleaved samples, and the count made
     * since the start. */
    int64_t readyFrames() const;
    const float *ready() const { return ready_.data(); }
    int64_t made() const { return made_; }
    /* Removes the first `frames` waiting frames. */
    void drop(int64_t frames);
    /* Forgets all waiting input and output (the end of a stream). */
    void clear();

  private:
    void pump(float speed);
    _TOLV_LINKED_STRETCH *engine_;
    int64_t channels_, made_ = 0;
    std::vector<float> pending_, ready_, scratch_;
};

#endif
