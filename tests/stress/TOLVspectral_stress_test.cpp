/* Thread stress of the FFTW users, built only under ThreadSanitizer: host
 * threads create, run and destroy FFT and lapped-transform processors (and
 * share one FFT processor) while the background pass plans every table
 * length and saves, and another thread saves too. Results are checked, so
 * that a plan disturbed inside FFTW, where the sanitizer cannot look, shows. */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "TOLVfft/plan_service.h"
#include "fresh_process.h"
#include "spectral_test_support.h"

namespace {

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
                failures +=
                    spectral_test::StreamError(32 << (r % 3), 2, seed) > 1e-5;
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
