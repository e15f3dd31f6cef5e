/*
 * Thread stress of the FFTW users: host threads creating, executing and
 * destroying FFT, correlation and lapped-transform processors while the
 * background pass, with plan preparation on, plans every table length and
 * saves the wisdom file. Built and run only under ThreadSanitizer, which
 * turns any unordered access to shared state into a failure; the results
 * are checked as well, so a plan disturbed by a neighbour shows up even
 * where the sanitizer cannot look (inside FFTW).
 */
#include <fftw3.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "TOLVfft/plan_service.h"
#include "fresh_process.h"

namespace {

const int kWorkers = 4;
/* Rounds of each worker at least; they go on until the pass has planned its
 * last length, so that they overlap all of it, within a bound. */
const int kRounds = 40;
const int kMaxRounds = 5000;
const int kPassLengths = 11; /* every length up to 16384 */
/* Lengths of the pass's table and others the planner has to work out. */
const int kLengths[] = {16, 64, 100, 256, 480, 1024, 1000, 4096};

float *NewFloats(int n)
{
    float *p = (float *)fftwf_malloc(sizeof(float) * (size_t)n);
    for (int i = 0; i < n; i++)
        p[i] = 0.0f;
    return p;
}

/* A deterministic test signal of a worker and a round. */
void Fill(float *x, int n, unsigned seed)
{
    for (int i = 0; i < n; i++) {
        seed = seed * 1664525u + 1013904223u;
        x[i] = (float)(seed >> 8) / 8388608.0f - 1.0f;
    }
}

/* Forward then inverse without normalisation gives N times the frame. */
bool RoundTrip(_TOLV_FFTPROC *forward, _TOLV_FFTPROC *inverse, int n,
               unsigned seed)
{
    float *frame = NewFloats(n), *back = NewFloats(n);
    TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(forward);
    Fill(frame, n, seed);
    TOLV_FFTProcExecute(forward, frame, spectrum);
    TOLV_IFFTProcExecuteEx(inverse, spectrum, back, false);
    bool ok = true;
    for (int i = 0; i < n; i++)
        ok = ok && std::fabs(back[i] / n - frame[i]) < 1e-4f;
    TOLV_DestroyComplexVector(spectrum);
    fftwf_free(back);
    fftwf_free(frame);
    return ok;
}

/* The plain correlation of a signal with a copy delayed by `lag` peaks at
 * that lag. */
bool CorrelationFindsLag(int n, int lag, unsigned seed)
{
    std::vector<float> a(n), b(n, 0.0f);
    Fill(a.data(), n, seed);
    for (int i = lag; i < n; i++)
        b[i - lag] = a[i];
    _TOLV_XCORRPROC *proc = TOLV_XcorrProcCreate(n, n);
    const int length = TOLV_XcorrVectorLength(proc);
    std::vector<float> r(length);
    TOLV_XcorrProcExecute(proc, a.data(), b.data(), r.data());
    int best = 0;
    for (int i = 1; i < length; i++)
        if (r[i] > r[best])
            best = i;
    TOLV_XcorrPhatProcess(proc, a.data(), b.data(), r.data());
    TOLV_XcorrProcDestroy(proc);
    int coefLag = 0;
    TOLV_XcorrCoef(a.data(), n, b.data(), n, &coefLag);
    return best - (n - 1) == lag;
}

/* Direct then inverse gives the input back one block late. */
bool LappedTransformReconstructs(int m, unsigned seed)
{
    _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
    std::vector<TOLV_COMPLEX> window(m + 1);
    TOLV_FMCLTFreqWindow(window.data(), m);
    std::vector<float> previous(m, 0.0f), overlap(m, 0.0f), re(m), im(m);
    std::vector<float> input(3 * m), output(3 * m);
    Fill(input.data(), 3 * m, seed);
    for (int b = 0; b < 3; b++) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), &input[b * m],
                         previous.data(), window.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), &output[b * m],
                          overlap.data(), window.data());
    }
    float *block = NewFloats(m);
    Fill(block, m, seed);
    TOLV_FMCLTCDTiv(proc, block);
    fftwf_free(block);
    TOLV_FMCLTProcDestroy(proc);
    bool ok = true;
    for (int i = 0; i < 2 * m; i++)
        ok = ok && std::fabs(output[i + m] - input[i]) < 1e-4f;
    return ok;
}

TEST(SpectralStress, ProcessorsPlanAndRunWhileThePassPreparesPlans)
{
    const std::string folder = MakeTempFolder("stress");
    ASSERT_FALSE(folder.empty());
    setenv("KEEL_DATA_PATH", folder.c_str(), 1);
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");

    /* One processor shared by every worker: it keeps no state between
     * executions. */
    _TOLV_FFTPROC *sharedForward = TOLV_FFTProcCreate(512);
    _TOLV_FFTPROC *sharedInverse = TOLV_IFFTProcCreate(512);
    TOLV_OptimizeFFT(false);

    std::atomic<int> failures{0}, rounds{0}, roundsDuringPass{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; w++)
        workers.emplace_back([&, w] {
            for (int r = 0;
                 r < kMaxRounds &&
                 (r < kRounds || _FFTW_PassLengthCount() < kPassLengths);
                 r++) {
                rounds++;
                if (r == 0)
                    TOLV_OptimizeFFT(false); /* a pass runs: starts nothing */
                const int lengthsBefore = _FFTW_PassLengthCount();
                const unsigned seed = 1000u * w + r;
                const int n =
                    kLengths[(w + r) % (sizeof kLengths / sizeof *kLengths)];
                _TOLV_FFTPROC *forward = TOLV_FFTProcCreate(n);
                _TOLV_FFTPROC *inverse = TOLV_IFFTProcCreate(n);
                if (!RoundTrip(forward, inverse, n, seed))
                    failures++;
                TOLV_FFTProcDestroy(inverse);
                TOLV_FFTProcDestroy(forward);
                if (!RoundTrip(sharedForward, sharedInverse, 512, seed))
                    failures++;
                if (!CorrelationFindsLag(96 + 8 * (r % 16), w + r % 5, seed))
                    failures++;
                if (!LappedTransformReconstructs(32 << (r % 3), seed))
                    failures++;
                /* This round and the pass's planning overlapped in time. */
                if (lengthsBefore < kPassLengths && _FFTW_PassLengthCount() > 0)
                    roundsDuringPass++;
            }
        });
    /* The save a shutdown makes, from another thread in the middle of it
     * all. */
    workers.emplace_back([] {
        for (int i = 0; i < 5; i++)
            __FFTW_SaveWisdom();
    });
    for (std::thread &t : workers)
        t.join();
    TOLV_OptimizeFFT(true);

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(_FFTW_PassLengthCount(), kPassLengths);
    EXPECT_EQ(_FFTW_PassesStarted(), 1);
    /* The overlap the stress is about did happen. */
    EXPECT_GT(roundsDuringPass.load(), 0);
    printf("%d rounds, %d of them while the pass planned\n", rounds.load(),
           roundsDuringPass.load());
    struct stat st;
    ASSERT_EQ(stat((folder + "/brae.optimization").c_str(), &st), 0);
    EXPECT_GT(st.st_size, 0);
    TOLV_FFTProcDestroy(sharedInverse);
    TOLV_FFTProcDestroy(sharedForward);
}

} // namespace
