/* Private layout of the noise suppressor object. */
#ifndef TOLV_NOISESUP_H
#define TOLV_NOISESUP_H

#include <cstdint>

#include "TOLVnoisesup/engine.h"
#include "keel.h"
#include "tolv.h"

/* Frames are 10 ms; the engine works on 160-sample bands. */
enum { kNsBandLength = 160 };

/* One side of the two-band split at 32000 Hz: the bands of a frame and the
 * two all-pass states the split keeps from frame to frame. */
struct _TOLV_NSBANDS {
    int16_t low[kNsBandLength];
    int16_t high[kNsBandLength];
    int32_t state1[6];
    int32_t state2[6];
};

struct _TOLV_NOISESUP {
    KEEL_MEMDESCR memory;
    NsHandle *engine;
    int32_t sampleRate;
    int32_t frameLength;
    int16_t *input;
    int16_t *output;
    _TOLV_NSBANDS *analysisBands;
    _TOLV_NSBANDS *synthesisBands;
};

/* Runs one frame from the object's input buffer into its output buffer. */
int _noisesup_core(_TOLV_NOISESUP *ns);
/* The core's float-to-16-bit rule, exposed for its tests. */
int16_t _NsSaturate(float x);

#endif
