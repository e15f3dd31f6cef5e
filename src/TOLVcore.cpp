/*
 * Library start and stop by reference count.
 *
 * The shared object starts itself: TOLV_Initialize runs from the loader's
 * constructor list and TOLV_Finalize from its destructor list, so a host
 * that merely links the library finds it running before main and stopped
 * after exit. Explicit calls by a host only add and drop references.
 */
#include "TOLVfft/plan_service.h"
#include "keel.h"
#include "tolv.h"

/* Plain count, deliberately not atomic: the load-time call runs before any
 * host thread exists, and later calls are the host's to serialise. */
static int __IsInitialized = 0;

extern "C" {

__attribute__((constructor)) int TOLV_Initialize(void)
{
    if (__IsInitialized > 0)
        return ++__IsInitialized;

    /* The version and the settings default go in before the base library
     * starts: both must be visible to anything it does at start-up. */
    KEELVERSION_Register("libtolv", 3, 7, 18, 0);
    KEELSETTINGS_SetDefaultEx(nullptr, "tolv.fftw.prepare_plans=%d", 0);
    KEELCORE_Initialize();
    const int result = TOLV_InitializeFFT();

    /* A count driven below zero by surplus releases restarts at one. */
    __IsInitialized = 1;
    return result;
}

__attribute__((destructor)) void TOLV_Finalize(void)
{
    if (--__IsInitialized == 0) {
        TOLV_FinalizeFFT();
        KEELCORE_Finalize();
    }
}

} /* extern "C" */
