/*
 * Thread stress of the FFTW users, built only under ThreadSanitizer: host
 * threads create, execute and destroy FFT, correlation and lapped-transform
 * processors (and share one FFT processor) while the background pass plans
 * every table length and saves the wisdom file, and another thread saves
 * too. The results are checked as well, so a plan disturbed by a neighbour
 * shows up even where the sanitizer cannot look (inside FFTW).
 */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "TOLVfft/plan_service.h"
#include "fresh_process.h"
#include "spectral_test_support.h"

namespace {

using spectral_test::GuardedFloats;
using tolv_test::UniformNoise;

/* Forward then inverse without normalisation gives N times the frame. */
bool RoundTrip(_TOLV_FFTPROC *forward, _TOLV_FFTPROC *inverse, int n,
               unsigned seed)
{
    const std::vector<float> frame = UniformNoise(n, seed);
    GuardedFloats back(n, 0);
    TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(forward);
    TOLV_FFTProcExecute(forward, const_cast<float *>(frame.data()), spectrum);
    TOLV_IFFTProcExecuteEx(inverse, spectrum, back.data, false);
    TOLV_DestroyComplexVector(spectrum);
    for (int i = 0; i < n; i++)
        if (std::fabs(back[i] / n - frame[i]) > 1e-4f)
            return false;
    return true;
}

/* One round of a worker: its own FFT processors, the shared ones, a
 * correlation of a delayed copy (peak at minus the delay, also through the
 * coefficient) and a lapped-transform stream one block late. */
bool Round(_TOLV_FFTPROC *sharedForward, _TOLV_FFTPROC *sharedInverse, int w,
           int r)
{
    const unsigned seed = 1000u * w + r;
    static const int lengths[] = {16, 64, 100, 256, 480, 1024, 1000, 4096};
    const int n = lengths[(w + r) % 8];
    _TOLV_FFTPROC *forward = TOLV_FFTProcCreate(n),
                  *inverse = TOLV_IFFTProcCreate(n);
    bool ok = RoundTrip(forward, inverse, n, seed) &&
              RoundTrip(sharedForward, sharedInverse, 512, seed);
    TOLV_FFTProcDestroy(inverse), TOLV_FFTProcDestroy(forward);

    const int m = 96 + 8 * (r % 16), lag = w + r % 5;
    const std::vector<float> a = UniformNoise(m + lag, seed),
                             b(a.begin() + lag, a.end());
    _TOLV_XCORRPROC *x = TOLV_XcorrProcCreate(m, m);
    std::vector<float> c(TOLV_XcorrVectorLength(x));
    TOLV_XcorrPhatProcess(x, a.data(), b.data(), c.data());
    TOLV_XcorrProcExecute(x, a.data(), b.data(), c.data());
    TOLV_XcorrProcDestroy(x);
    int coefLag = 0;
    TOLV_XcorrCoef(a.data(), m, b.data(), m, &coefLag);
    ok = ok &&
         std::max_element(c.begin(), c.end()) - c.begin() == m - 1 + lag &&
         coefLag == lag;

    const int size = 32 << (r % 3);
    _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(size);
    std::vector<TOLV_COMPLEX> window(size + 1);
    TOLV_FMCLTFreqWindow(window.data(), size);
    std::vector<float> previous(size, 0.0f), overlap(size, 0.0f), re(size),
        im(size), out(size);
    const std::vector<float> input = UniformNoise(2 * size, seed);
    for (int blk = 0; blk < 2; blk++) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), &input[blk * size],
                         previous.data(), window.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(),
                          overlap.data(), window.data());
    }
    TOLV_FMCLTProcDestroy(proc);
    for (int i = 0; i < size; i++)
        ok = ok && std::fabs(out[i] - input[i]) < 1e-4f;
    return ok;
}

TEST(SpectralStress, ProcessorsPlanAndRunWhileThePassPreparesPlans)
{
    const std::string folder = MakeTempFolder("stress");
    setenv("KEEL_DATA_PATH", folder.c_str(), 1);
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");
    _TOLV_FFTPROC *sharedForward = TOLV_FFTProcCreate(512),
                  *sharedInverse = TOLV_IFFTProcCreate(512);
    TOLV_OptimizeFFT(false);

    /* Each worker goes on until the pass has planned its last length, so
     * that the rounds overlap all of it, within a bound. */
    std::atomic<int> failures{0}, roundsDuringPass{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < 4; w++)
        workers.emplace_back([&, w] {
            for (int r = 0;
                 r < 5000 && (r < 40 || _FFTW_PassLengthCount() < 11); r++) {
                if (r == 0)
                    TOLV_OptimizeFFT(false); /* a pass runs: starts nothing */
                const int lengthsBefore = _FFTW_PassLengthCount();
                failures += !Round(sharedForward, sharedInverse, w, r);
                roundsDuringPass +=
                    lengthsBefore < 11 && _FFTW_PassLengthCount() > 0;
            }
        });
    workers.emplace_back([] {
        for (int i = 0; i < 5; i++)
            __FFTW_SaveWisdom();
    });
    for (std::thread &t : workers)
        t.join();
    TOLV_OptimizeFFT(true);
    EXPECT_EQ(0, failures.load());
    EXPECT_TRUE(_FFTW_PassLengthCount() == 11 && _FFTW_PassesStarted() == 1);
    EXPECT_GT(roundsDuringPass.load(), 0); /* the overlap did happen */
    struct stat st;
    EXPECT_TRUE(stat((folder + "/brae.optimization").c_str(), &st) == 0 &&
                st.st_size > 0);
    TOLV_FFTProcDestroy(sharedInverse), TOLV_FFTProcDestroy(sharedForward);
}

} // namespace
