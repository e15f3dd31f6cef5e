/*
 * Start and stop sequences of the library and its FFT plan service, with
 * background passes started, waited for and abandoned in any order, and
 * processors planned in between. Every input leaves the library as it found
 * it: references balanced and no pass left running.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "TOLVfft/plan_service.h"
#include "fuzz_support.h"
#include "tolv.h"

namespace {

const int kMaxSteps = 8;

void PlanOne(int n)
{
    TOLV_FFTProcDestroy(TOLV_FFTProcCreate(n));
}

/* One step; returns the change it made to the reference count. */
int Step(FuzzedDataProvider &fuzz)
{
    switch (fuzz.ConsumeIntegralInRange(0, 6)) {
    case 0:
        return TOLV_Initialize() == 1 ? 1 : 0;
    case 1:
        TOLV_Finalize();
        return -1;
    case 2:
        TOLV_InitializeFFT();
        return 0;
    case 3:
        TOLV_FinalizeFFT();
        return 0;
    case 4:
        TOLV_OptimizeFFT(false);
        return 0;
    case 5:
        TOLV_OptimizeFFT(true);
        return 0;
    default:
        PlanOne(fuzz.ConsumeIntegralInRange(1, 4096));
        return 0;
    }
}

} // namespace

/* A restart of the plan service forgets a pass handle without joining it
 * (a pass started while the service was stopped): a leak the library keeps
 * on purpose, so leaks are not what this target looks for. */
extern "C" const char *__asan_default_options(void)
{
    return "detect_leaks=0";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    int references = 0;
    for (int i = 0; i < kMaxSteps && fuzz.remaining_bytes() > 0; i++)
        references += Step(fuzz);
    for (; references < 0; references++)
        TOLV_Initialize();
    for (; references > 0; references--)
        TOLV_Finalize();
    /* A running library with a pass still pending waits for it here. */
    TOLV_InitializeFFT();
    if (_FFTW_BackgroundThread() != nullptr)
        TOLV_OptimizeFFT(true);
    return 0;
}
