/*
 * Forward and inverse real FFT processors and the complex vectors that go
 * with them.
 *
 * Plans are made with FFTW_ESTIMATE on scratch arrays under the planning
 * lock (after the wisdom file has had its chance to load) and the scratch is
 * dropped at once. Execution uses the new-array interface and takes no lock:
 * plans are constant while they run. The spectrum carries FFTW's gain, and
 * an inverse without normalisation returns N times the signal.
 */
#include <stdlib.h>
#include <string.h>

#include "TOLVfft/fftproc.h"
#include "TOLVfft/plan_service.h"

namespace {

/* Pairs past the last one FFTW touches, enough for one more four-wide read
 * of the power-spectrum loop at any length. */
const int _ComplexVectorPadPairs = 4;

enum _PlanDirection { _Forward, _Inverse };

_TOLV_FFTPROC *_CreateProc(int length, _PlanDirection direction)
{
    __FFTW_LoadWisdom();
    MutexLock(__FFTW_PlanLock);
    _TOLV_FFTPROC *proc = (_TOLV_FFTPROC *)calloc(1, sizeof(_TOLV_FFTPROC));
    proc->length = length;
    /* Lengths of 0 or less go to FFTW as they are (it refuses them with a
     * null plan); only the scratch size is kept sane. */
    const size_t n = length > 0 ? (size_t)length : 1;
    float *real = (float *)fftwf_malloc(4 * n);
    fftwf_complex *complex = (fftwf_complex *)fftwf_malloc(8 * n);
    if (direction == _Forward)
        proc->plan =
            fftwf_plan_dft_r2c_1d(length, real, complex, FFTW_ESTIMATE);
    else
        proc->plan =
            fftwf_plan_dft_c2r_1d(length, complex, real, FFTW_ESTIMATE);
    fftwf_free(complex);
    fftwf_free(real);
    MutexUnlock(__FFTW_PlanLock);
    return proc;
}

} // namespace

TOLV_COMPLEX *_TOLV_AllocComplexVector(int length)
{
    const size_t pairs =
        (length > 0 ? (size_t)length : 0) + _ComplexVectorPadPairs;
    TOLV_COMPLEX *vector =
        (TOLV_COMPLEX *)fftwf_malloc(pairs * sizeof(TOLV_COMPLEX));
    memset(vector, 0, pairs * sizeof(TOLV_COMPLEX));
    return vector;
}

extern "C" TOLV_API _TOLV_FFTPROC *TOLV_FFTProcCreate(int length)
{
    return _CreateProc(length, _Forward);
}

extern "C" TOLV_API _TOLV_FFTPROC *TOLV_IFFTProcCreate(int length)
{
    return _CreateProc(length, _Inverse);
}

extern "C" TOLV_API int TOLV_FFTProcDestroy(_TOLV_FFTPROC *proc)
{
    if (proc == nullptr)
        return 0;
    MutexLock(__FFTW_PlanLock);
    if (proc->plan != nullptr)
        fftwf_destroy_plan(proc->plan);
    MutexUnlock(__FFTW_PlanLock);
    free(proc);
    return 1;
}

extern "C" TOLV_API int TOLV_FFTProcExecute(_TOLV_FFTPROC *proc, float *input,
                                            TOLV_COMPLEX *output)
{
    if ((void *)input == (void *)output)
        KEELDEBUG_TerminalError(
            -1,
            "TOLV_FFTProcExecute: Input and output vectors must be different!");
    fftwf_execute_dft_r2c(proc->plan, input, (fftwf_complex *)output);
    return proc->length / 2 + 1;
}

extern "C" TOLV_API int TOLV_IFFTProcExecuteEx(_TOLV_FFTPROC *proc,
                                               TOLV_COMPLEX *input,
                                               float *output, bool normalize)
{
    if ((void *)input == (void *)output)
        KEELDEBUG_TerminalError(-1, "TOLV_IFFTProcExecute: Input and output "
                                    "vectors must be different!");
    fftwf_execute_dft_c2r(proc->plan, (fftwf_complex *)input, output);
    if (normalize)
        FVectorMulScalar(output, proc->length, 1.0f / (float)proc->length);
    return proc->length;
}

extern "C" TOLV_API TOLV_COMPLEX *TOLV_CreateComplexVector(_TOLV_FFTPROC *proc)
{
    if (proc == nullptr)
        return nullptr;
    return _TOLV_AllocComplexVector(proc->length);
}

extern "C" TOLV_API int TOLV_DestroyComplexVector(TOLV_COMPLEX *vector)
{
    if (vector == nullptr)
        return 0;
    fftwf_free(vector);
    return 1;
}
