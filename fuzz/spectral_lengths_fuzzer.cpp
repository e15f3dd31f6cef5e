/*
 * The spectral processors at arbitrary lengths, each buffer allocated at
 * exactly the size its call states (and aligned as stated), so that a read
 * or write one float too far is a crash: forward and inverse FFT, the power
 * spectrum with scratch, the decibel scaling, both correlations and the
 * lapped transform with its inverse.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <fftw3.h>

#include <cstdint>
#include <cstring>

#include "fuzz_support.h"
#include "tolv.h"

namespace {

const int kMaxLength = 1 << 15;

/* `count` floats from fftwf_malloc (16-byte aligned), filled. */
float *Floats(size_t count, float value)
{
    float *p = static_cast<float *>(fftwf_malloc(sizeof(float) * count + 1));
    for (size_t i = 0; i < count; i++)
        p[i] = value * (float)((i * 7919) % 97) / 97.0f;
    return p;
}

void Transforms(int n)
{
    _TOLV_FFTPROC *fwd = TOLV_FFTProcCreate(n), *inv = TOLV_IFFTProcCreate(n);
    const size_t bins = n / 2 + 1, psdSize = 4 * (size_t)(n / 8 + 1);
    const size_t scratchPairs = psdSize > (size_t)n ? psdSize : n;
    float *x = Floats(n, 1.0f), *y = Floats(n, 0.0f);
    float *spectrum = Floats(2 * bins, 0.0f);
    float *scratch = Floats(2 * scratchPairs, 0.0f);
    float *psd = Floats(psdSize, 0.0f), *db = Floats(psdSize, 0.0f);
    TOLV_COMPLEX *s = reinterpret_cast<TOLV_COMPLEX *>(spectrum);
    FUZZ_CHECK(TOLV_FFTProcExecute(fwd, x, s) == (int)bins);
    FUZZ_CHECK(TOLV_IFFTProcExecuteEx(inv, s, y, true) == n);
    TOLV_FFTProcExecutePSDEx(fwd, x, psd,
                             reinterpret_cast<TOLV_COMPLEX *>(scratch));
    FUZZ_CHECK(TOLV_PSDtoDB(n, psd, db, nullptr, 1.0, 120.0) == 1);
    for (float *p : {x, y, spectrum, scratch, psd, db})
        fftwf_free(p);
    TOLV_FFTProcDestroy(fwd);
    TOLV_FFTProcDestroy(inv);
}

void Correlations(int lengthA, int lengthB)
{
    _TOLV_XCORRPROC *proc = TOLV_XcorrProcCreate(lengthA, lengthB);
    const int r = TOLV_XcorrVectorLength(proc);
    float *a = Floats(lengthA, 1.0f), *b = Floats(lengthB, -1.0f);
    float *result = Floats(r > 0 ? r : 0, 0.0f);
    FUZZ_CHECK(TOLV_XcorrProcExecute(proc, a, b, result) == r);
    FUZZ_CHECK(TOLV_XcorrPhatProcess(proc, a, b, result) == r);
    int lag = 0;
    TOLV_XcorrCoef(a, lengthA, b, lengthB, &lag);
    FUZZ_CHECK(lag > -(lengthA > lengthB ? lengthA : lengthB) &&
               lag < (lengthA > lengthB ? lengthA : lengthB));
    for (float *p : {a, b, result})
        fftwf_free(p);
    TOLV_XcorrProcDestroy(proc);
}

void Lapped(int m)
{
    _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
    float *window = Floats(2 * (size_t)(m + 1), 0.0f);
    TOLV_COMPLEX *w = reinterpret_cast<TOLV_COMPLEX *>(window);
    TOLV_FMCLTFreqWindow(w, m);
    float *re = Floats(m, 0.0f), *im = Floats(m, 0.0f),
          *block = Floats(m, 1.0f);
    float *previous = Floats(m, 0.5f), *overlap = Floats(m, 0.0f);
    TOLV_FMCLTDirect(proc, re, im, block, previous, w);
    TOLV_FMCLTInverse(proc, re, im, block, overlap, w);
    TOLV_FMCLTCDTiv(proc, block);
    for (float *p : {window, re, im, block, previous, overlap})
        fftwf_free(p);
    TOLV_FMCLTProcDestroy(proc);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    switch (fuzz.ConsumeIntegralInRange(0, 2)) {
    case 0:
        Transforms(fuzz.ConsumeIntegralInRange(1, kMaxLength));
        break;
    case 1: {
        const int a = fuzz.ConsumeIntegralInRange(1, kMaxLength / 2);
        Correlations(a, fuzz.ConsumeIntegralInRange(1, kMaxLength / 2));
        break;
    }
    default:
        Lapped(fuzz.ConsumeIntegralInRange(1, kMaxLength / 4));
    }
    return 0;
}
