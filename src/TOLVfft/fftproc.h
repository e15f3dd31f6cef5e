/*
 * Private side of the FFT processors. A processor is a transform length and
 * an FFTW plan made once on scratch arrays; execution goes through FFTW's
 * new-array interface on the caller's buffers, so one processor serves any
 * number of buffers and threads at once.
 */
#ifndef TOLV_FFTPROC_H
#define TOLV_FFTPROC_H

#include <fftw3.h>
#include <stdint.h>

#include "tolv.h"

struct _TOLV_FFTPROC {
    int32_t length; /* real samples per frame; any positive N */
    fftwf_plan plan;
};

/*
 * A complex vector for a transform of `length` real samples: `length` pairs
 * from fftwf_malloc (16-byte aligned or better), followed by enough zeroed
 * pairs that the four-wide power-spectrum loop, which reads pairs up to
 * 4 (length / 8 + 1) - 1, stays inside the allocation at every length,
 * including 1 and the refused lengths of 0 or less. Release with fftwf_free.
 */
TOLV_COMPLEX *_TOLV_AllocComplexVector(int length);

#endif
