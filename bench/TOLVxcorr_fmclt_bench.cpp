// Cost of the correlation and lapped-transform processors against the bare
// FFTW executes they are built on. Goals: a correlation of M = 4096 within
// 1.3 times its three transforms of 2 M; a direct plus inverse lapped
// transform of M = 512 within 1.5 times one forward and one inverse of 2 M.
#include <benchmark/benchmark.h>

#include <fftw3.h>

#include <cmath>
#include <vector>

#include "keel.h"
#include "tolv.h"

namespace {

// A broadband test signal: a few incommensurate tones, phase set by seed.
std::vector<float> tones(int n, unsigned seed)
{
    std::vector<float> v(n);
    for (int i = 0; i < n; ++i)
        v[i] = static_cast<float>(0.5 * sin(0.0123 * i * i / n + seed) +
                                  0.3 * sin(1.7 * i + 2.0 * seed) +
                                  0.2 * sin(2.9 * i));
    return v;
}

// Plans of length n with their aligned arrays, made as the library makes
// them (FFTW_ESTIMATE, under the planner lock).
struct BarePlans {
    explicit BarePlans(int n) : n(n)
    {
        real = static_cast<float *>(fftwf_malloc(n * sizeof(float)));
        real2 = static_cast<float *>(fftwf_malloc(n * sizeof(float)));
        out = static_cast<float *>(fftwf_malloc(n * sizeof(float)));
        spectrum = static_cast<fftwf_complex *>(
            fftwf_malloc((n / 2 + 1) * sizeof(fftwf_complex)));
        spectrum2 = static_cast<fftwf_complex *>(
            fftwf_malloc((n / 2 + 1) * sizeof(fftwf_complex)));
        auto x = tones(n, 1);
        std::copy(x.begin(), x.end(), real);
        std::copy(x.begin(), x.end(), real2);
        MutexLock(__FFTW_PlanLock);
        forward = fftwf_plan_dft_r2c_1d(n, real, spectrum, FFTW_ESTIMATE);
        inverse = fftwf_plan_dft_c2r_1d(n, spectrum, real, FFTW_ESTIMATE);
        MutexUnlock(__FFTW_PlanLock);
    }
    ~BarePlans()
    {
        MutexLock(__FFTW_PlanLock);
        fftwf_destroy_plan(forward);
        fftwf_destroy_plan(inverse);
        MutexUnlock(__FFTW_PlanLock);
        fftwf_free(real);
        fftwf_free(real2);
        fftwf_free(out);
        fftwf_free(spectrum);
        fftwf_free(spectrum2);
    }
    int n;
    float *real, *real2, *out; // inputs stay fixed; inverses land in out
    fftwf_complex *spectrum, *spectrum2;
    fftwf_plan forward, inverse;
};

typedef int (*XcorrForm)(_TOLV_XCORRPROC *, const float *, const float *,
                         float *);

void BM_Xcorr(benchmark::State &state, XcorrForm form)
{
    const int m = state.range(0);
    _TOLV_XCORRPROC *proc = TOLV_XcorrProcCreate(m, m);
    auto a = tones(m, 2), b = tones(m, 3);
    std::vector<float> result(2 * m - 1);
    for (auto _ : state) {
        form(proc, a.data(), b.data(), result.data());
        benchmark::DoNotOptimize(result.data());
    }
    TOLV_XcorrProcDestroy(proc);
}
BENCHMARK_CAPTURE(BM_Xcorr, Execute, TOLV_XcorrProcExecute)->Arg(4096);
BENCHMARK_CAPTURE(BM_Xcorr, Phat, TOLV_XcorrPhatProcess)->Arg(4096);

// The floor of a correlation: two forward transforms and one inverse of 2 M.
void BM_BareThreeTransforms(benchmark::State &state)
{
    BarePlans plans(2 * state.range(0));
    for (auto _ : state) {
        fftwf_execute_dft_r2c(plans.forward, plans.real, plans.spectrum);
        fftwf_execute_dft_r2c(plans.forward, plans.real2, plans.spectrum2);
        fftwf_execute_dft_c2r(plans.inverse, plans.spectrum2, plans.out);
        benchmark::DoNotOptimize(plans.out);
    }
}
BENCHMARK(BM_BareThreeTransforms)->Arg(4096);

void BM_FMCLTDirectInverse(benchmark::State &state)
{
    const int m = state.range(0);
    _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
    std::vector<TOLV_COMPLEX> window(m + 1);
    TOLV_FMCLTFreqWindow(window.data(), m);
    auto block = tones(m, 4);
    std::vector<float> previous(m, 0.0f), overlap(m, 0.0f), re(m), im(m),
        out(m);
    for (auto _ : state) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), block.data(),
                         previous.data(), window.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(),
                          overlap.data(), window.data());
        benchmark::DoNotOptimize(out.data());
    }
    TOLV_FMCLTProcDestroy(proc);
}
BENCHMARK(BM_FMCLTDirectInverse)->Arg(512);

// The floor of a lapped transform pair: one forward and one inverse of 2 M.
void BM_BareForwardInverse(benchmark::State &state)
{
    BarePlans plans(2 * state.range(0));
    for (auto _ : state) {
        fftwf_execute_dft_r2c(plans.forward, plans.real, plans.spectrum);
        fftwf_execute_dft_c2r(plans.inverse, plans.spectrum, plans.out);
        benchmark::DoNotOptimize(plans.out);
    }
}
BENCHMARK(BM_BareForwardInverse)->Arg(512);

// The same pair planned in place on one buffer of 2 M + 2 floats, as the
// lapped transform must run it: FFTW's in-place real transforms copy
// through a scratch row, which the out-of-place pair above does not.
void BM_BareInPlaceForwardInverse(benchmark::State &state)
{
    const int n = 2 * state.range(0);
    float *b = static_cast<float *>(fftwf_malloc((n + 2) * sizeof(float)));
    fftwf_complex *z = reinterpret_cast<fftwf_complex *>(b);
    const auto x = tones(n, 1);
    std::copy(x.begin(), x.end(), b);
    MutexLock(__FFTW_PlanLock);
    fftwf_plan forward = fftwf_plan_dft_r2c_1d(n, b, z, FFTW_ESTIMATE);
    fftwf_plan inverse = fftwf_plan_dft_c2r_1d(n, z, b, FFTW_ESTIMATE);
    MutexUnlock(__FFTW_PlanLock);
    for (auto _ : state) {
        fftwf_execute_dft_r2c(forward, b, z);
        fftwf_execute_dft_c2r(inverse, z, b);
        benchmark::DoNotOptimize(b);
    }
    MutexLock(__FFTW_PlanLock);
    fftwf_destroy_plan(forward);
    fftwf_destroy_plan(inverse);
    MutexUnlock(__FFTW_PlanLock);
    fftwf_free(b);
}
BENCHMARK(BM_BareInPlaceForwardInverse)->Arg(512);

} // namespace
