/*
 * Private side of the FFT plan service. FFTW's planner and wisdom store are
 * not safe for concurrent use: every fftwf_plan_*, fftwf_destroy_plan and
 * wisdom call in the library is made with __FFTW_PlanLock held (declared in
 * tolv.h, since hosts and the lapped transform lock it too). Executing a
 * plan needs no lock.
 */
#ifndef TOLV_PLAN_SERVICE_H
#define TOLV_PLAN_SERVICE_H

#include "keel.h"
#include "tolv.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Loads the wisdom file once the question can be settled; 1 when a file was
 * read and imported. Takes the lock itself: call it with the lock free. */
int __FFTW_LoadWisdom(void);
/* Writes the wisdom back when it differs from the file; 1 when the file now
 * holds the current wisdom. Takes the lock itself. */
int __FFTW_SaveWisdom(void);
/* Body of the background plan pass. */
int __InitializeFFTWPlans(void *unused);

/* Diagnostics of the background pass: passes started in this process, the
 * lengths the latest pass planned, and the handle of the pass not yet
 * joined by a waiting TOLV_OptimizeFFT (null when none). */
int _FFTW_PassesStarted(void);
int _FFTW_PassLengthCount(void);
KEEL_THREAD _FFTW_BackgroundThread(void);

#ifdef __cplusplus
}
#endif

#endif
