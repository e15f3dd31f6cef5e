/*
 * Speed of the spectral path, each figure beside its baseline in one run:
 *   - TOLV_FFTProcExecute against a bare fftwf_execute_dft_r2c on the same
 *     plan (goal: at most 1.03 times);
 *   - TOLV_FFTProcExecutePSDEx with scratch against the FFT alone (goal: at
 *     most 1.15 times);
 *   - TOLV_PSDtoDB against a scalar loop of 10 * log10f per bin (goal: at
 *     least 4 times faster).
 */
#include <math.h>
#include <stdlib.h>

#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "TOLVfft/fftproc.h"
#include "tolv.h"

namespace {

/* No wisdom file is read or written by a benchmark run. */
__attribute__((constructor(101), used)) void NoWisdomFolder()
{
    unsetenv("KEEL_DATA_PATH");
}

struct Frame {
    explicit Frame(int n)
        : n(n), proc(TOLV_FFTProcCreate(n)),
          input((float *)fftwf_malloc(sizeof(float) * n)),
          spectrum(TOLV_CreateComplexVector(proc)),
          scratch(TOLV_CreateComplexVector(proc)),
          psd((float *)fftwf_malloc(sizeof(float) * (n / 2 + 8))),
          db((float *)fftwf_malloc(sizeof(float) * (n / 2 + 8)))
    {
        std::mt19937 rng(n);
        std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
        for (int i = 0; i < n; i++)
            input[i] = dist(rng);
        TOLV_FFTProcExecutePSDEx(proc, input, psd, scratch);
    }
    ~Frame()
    {
        fftwf_free(input);
        fftwf_free(psd);
        fftwf_free(db);
        TOLV_DestroyComplexVector(spectrum);
        TOLV_DestroyComplexVector(scratch);
        TOLV_FFTProcDestroy(proc);
    }
    int n;
    _TOLV_FFTPROC *proc;
    float *input;
    TOLV_COMPLEX *spectrum;
    TOLV_COMPLEX *scratch;
    float *psd;
    float *db;
};

void BM_BareR2C(benchmark::State &state)
{
    Frame f((int)state.range(0));
    for (auto _ : state) {
        fftwf_execute_dft_r2c(f.proc->plan, f.input,
                              (fftwf_complex *)f.spectrum);
        benchmark::DoNotOptimize(f.spectrum);
    }
}

void BM_FFTProcExecute(benchmark::State &state)
{
    Frame f((int)state.range(0));
    for (auto _ : state) {
        TOLV_FFTProcExecute(f.proc, f.input, f.spectrum);
        benchmark::DoNotOptimize(f.spectrum);
    }
}

void BM_PSDWithScratch(benchmark::State &state)
{
    Frame f((int)state.range(0));
    for (auto _ : state) {
        TOLV_FFTProcExecutePSDEx(f.proc, f.input, f.psd, f.scratch);
        benchmark::DoNotOptimize(f.psd);
    }
}

void BM_ScalarLog10f(benchmark::State &state)
{
    Frame f((int)state.range(0));
    const int bins = f.n / 2 + 1;
    for (auto _ : state) {
        for (int i = 0; i < bins; i++)
            f.db[i] = 10.0f * log10f(f.psd[i]);
        benchmark::DoNotOptimize(f.db);
        benchmark::ClobberMemory();
    }
}

void BM_PSDtoDB(benchmark::State &state)
{
    Frame f((int)state.range(0));
    for (auto _ : state) {
        TOLV_PSDtoDB(f.n, f.psd, f.db, nullptr, 1.0, 120.0);
        benchmark::DoNotOptimize(f.db);
        benchmark::ClobberMemory();
    }
}

} // namespace

BENCHMARK(BM_BareR2C)->Arg(1024)->Arg(4096);
BENCHMARK(BM_FFTProcExecute)->Arg(1024)->Arg(4096);
BENCHMARK(BM_PSDWithScratch)->Arg(1024)->Arg(4096);
BENCHMARK(BM_ScalarLog10f)->Arg(1024)->Arg(4096);
BENCHMARK(BM_PSDtoDB)->Arg(1024)->Arg(4096);
