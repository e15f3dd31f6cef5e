/*
 * A time-scale modifier for several channels of one recording, linked: one
 * similarity search per block, run on the mean of the channels, and the
 * same splice applied to every channel, so that the image between channels
 * (level ratios, inter-channel delays) survives the stretch. Each channel is
 * still the library's own one-channel object; with one channel the output
 * is that object's to the bit.
 *
 * Project-internal: the command and the bindings use it; the shared
 * library's interface does not carry it.
 */
#ifndef TOLV_INTERNAL_LINKED_STRETCH_H
#define TOLV_INTERNAL_LINKED_STRETCH_H

#include <cstdint>

struct _TOLV_LINKED_STRETCH;

/* Null when the frame length (frameMs * sampleRate / 1000) is below 8
 * frames, channels is below 1, or memory runs out. */
_TOLV_LINKED_STRETCH *_LinkedStretchCreate(int frameMs, int sampleRate,
                                           int channels);
/* Releases the engine and all its memory (unlike the library's one-channel
 * objects, whose memory stays with the process). */
void _LinkedStretchDestroy(_TOLV_LINKED_STRETCH *st);

/* Takes up to `frames` interleaved frames played at `speed`; returns how
 * many were taken (all channels take the same count). */
int _LinkedStretchInput(_TOLV_LINKED_STRETCH *st, const float *samples,
                        int frames, float speed);

/* Writes whole blocks of interleaved frames; as with the one-channel object,
 * `capacity` must hold at least one block (half a frame). Returns the count
 * written. */
int _LinkedStretchOutput(_TOLV_LINKED_STRETCH *st, float *samples,
                         int capacity);

/* Output position of input frame `position`, as the one-channel object
 * translates it (every channel shares the same segments). */
int64_t _LinkedStretchTranslate(_TOLV_LINKED_STRETCH *st, int64_t position);

#endif
