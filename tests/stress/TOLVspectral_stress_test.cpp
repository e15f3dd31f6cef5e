/*
 * Thread stress of the FFTW users, built only under ThreadSanitizer: host
 * threads create, run and destroy FFT and lapped-transform processors (and
 * share one FFT processor) while the background pass plans every table
 * length and saves the wisdom file, and another thread saves too. Results
 * are checked as well, so that a plan disturbed by a neighbour shows up
 * even where the sanitizer cannot look (inside FFTW).
 */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "TOLVfft/plan_service.h"
#include "fresh_process.h"
#include "spectral_test_support.h"

namespace {

/* Direct then inverse gives a stream of noise back one block late. */
bool LappedTransformReconstructs(int m, unsigned seed)
{
    _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
    std::vector<TOLV_COMPLEX> window(m + 1);
    TOLV_FMCLTFreqWindow(window.data(), m);
    std::vector<float> previous(m, 0.0f), overlap(m, 0.0f), re(m), im(m),
        out(m);
    const std::vector<float> x = tolv_test::UniformNoise(2 * m, seed);
    for (int b = 0; b < 2; b++) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), &x[b * m], previous.data(),
                         window.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(),
                          overlap.data(), window.data());
    }
    TOLV_FMCLTProcDestroy(proc);
    bool ok = true;
    for (int i = 0; i < m; i++)
        ok = ok && std::fabs(out[i] - x[i]) < 1e-5f;
    return ok;
}

TEST(SpectralStress, ProcessorsPlanAndRunWhileThePassPreparesPlans)
{
    const std::string folder = MakeTempFolder("stress");
    setenv("KEEL_DATA_PATH", folder.c_str(), 1);
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");
    _TOLV_FFTPROC *sharedFwd = TOLV_FFTProcCreate(512),
                  *sharedInv = TOLV_IFFTProcCreate(512);
    TOLV_OptimizeFFT(false);

    /* Each worker goes on until the pass has planned its last length, so
     * that the rounds overlap all of it, within a bound. */
    const int lengths[] = {16, 64, 100, 256, 480, 1024, 1000, 4096};
    std::atomic<int> failures{0}, roundsDuringPass{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < 4; w++)
        workers.emplace_back([&, w] {
            for (int r = 0;
                 r < 5000 && (r < 40 || _FFTW_PassLengthCount() < 11); r++) {
                if (r == 0)
                    TOLV_OptimizeFFT(false); /* a pass runs: starts nothing */
                const int before = _FFTW_PassLengthCount();
                const unsigned seed = 1000u * w + r;
                failures +=
                    !spectral_test::RoundTrips(lengths[(w + r) % 8], seed);
                failures +=
                    !spectral_test::RoundTrips(512, seed, sharedFwd, sharedInv);
                failures += !LappedTransformReconstructs(32 << (r % 3), seed);
                roundsDuringPass += before < 11 && _FFTW_PassLengthCount() > 0;
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
    TOLV_FFTProcDestroy(sharedInv), TOLV_FFTProcDestroy(sharedFwd);
}

} // namespace
