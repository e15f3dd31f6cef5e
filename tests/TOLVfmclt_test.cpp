/* Lapped transform and type IV sine transform: definitions in double, a
 * replay of every rounding step, streams on threads, degenerate sizes. */
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <thread>

#include "lanes.h"
#include "spectral_test_support.h"
#include "tolv.h"

namespace {

using spectral_test::GuardedFloats;
using tolv_test::UniformNoise;

/* The windowed modulated sum that defines bin k of the direct transform. */
std::pair<double, double> DirectSum(const std::vector<float> &x, int m, int k)
{
    double c = 0.0, d = 0.0;
    for (int n = 0; n < 2 * m; ++n) {
        const double h = -std::sin((n + 0.5) * M_PI / (2.0 * m)) * x[n];
        const double phase = (n + (m + 1) / 2.0) * (k + 0.5) * M_PI / m;
        c += h * std::cos(phase), d += h * std::sin(phase);
    }
    return {std::sqrt(2.0 / m) * c, -std::sqrt(2.0 / m) * d};
}

/* Per size, on noise and on noise near the smallest normal float: direct
 * and inverse equal a replay of their steps to the bit, at every vector
 * width; direct and sine
 * transforms their sums in double; the window's bin 0 is exp(-j pi / 4). */
TEST(FMCLT, DefinitionsAndEveryRoundingStep)
{
    for (int m : {1, 2, 3, 4, 5, 7, 8, 12, 64, 100, 512, 1000, 1023})
        for (float amplitude : {1.0f, 3e-38f}) {
            _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
            GuardedFloats replay(2 * m + 2, 0); /* transformed in place */
            float *b = replay.data;
            fftwf_complex *z = (fftwf_complex *)b;
            MutexLock(__FFTW_PlanLock);
            fftwf_plan fwd = fftwf_plan_dft_r2c_1d(2 * m, b, z, FFTW_ESTIMATE),
                       inv = fftwf_plan_dft_c2r_1d(2 * m, z, b, FFTW_ESTIMATE);
            MutexUnlock(__FFTW_PlanLock);
            std::vector<TOLV_COMPLEX> w(m + 1);
            TOLV_FMCLTFreqWindow(w.data(), m);
            ASSERT_TRUE(w[0].re == 0.70710677f && w[0].im == -0.70710677f);
            const auto x = UniformNoise(2 * m, 600 + m, amplitude);
            const double tol =
                8e-8 * (1.0 + std::log2(2.0 * m)) * tolv_test::Norm2(x) + 1e-43;
            std::vector<float> re(m), im(m), previous(x.begin(), x.begin() + m),
                next(x.begin() + m, x.end());
            TOLV_FMCLTDirect(proc, re.data(), im.data(), next.data(),
                             previous.data(), w.data());
            ASSERT_EQ(next, previous);
            std::copy(x.begin(), x.end(), b);
            fftwf_execute(fwd);
            const float s = (float)std::sqrt(1.0 / (2.0 * m)),
                        t = (float)std::sqrt(2.0 * m);
            for (int k = 0; k <= m; ++k) {
                const float ur = b[2 * k] * s, ui = b[2 * k + 1] * s;
                b[2 * k] = ur * w[k].re - ui * w[k].im;
                b[2 * k + 1] = w[k].re * ui + w[k].im * ur;
            }
            for (int k = 0; k < m; ++k) {
                ASSERT_TRUE(re[k] == b[2 * k + 2] - b[2 * k + 1] &&
                            im[k] == b[2 * k] + b[2 * k + 3])
                    << m;
                const auto [c, d] = DirectSum(x, m, k);
                ASSERT_TRUE(fabs(c - re[k]) <= tol && fabs(d - im[k]) <= tol);
            }

            const auto overlap = UniformNoise(m, 700 + m, amplitude);
            std::vector<float> out(m), ov = overlap;
            TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(), ov.data(),
                              w.data());
            const double end = 0.3535533905932738;
            b[0] = (float)((double)(re[0] + im[0]) * end) * t, b[1] = 0.0f;
            for (int k = 0; k + 1 < m; ++k) {
                const float c = re[k] + im[k + 1], a = im[k] - re[k + 1];
                b[2 * k + 2] = (w[k + 1].im * a + w[k + 1].re * c) * 0.25f * t;
                b[2 * k + 3] = (a * w[k + 1].re - w[k + 1].im * c) * 0.25f * t;
            }
            b[2 * m] = (float)((double)(re[m - 1] + im[m - 1]) * -end) * t;
            b[2 * m + 1] = 0.0f;
            fftwf_execute(inv);
            for (int k = 0; k < m; ++k)
                ASSERT_TRUE(out[k] == (float)(b[k] / (2.0 * m) + overlap[k]) &&
                            ov[k] == (float)(b[m + k] / (2.0 * m)))
                    << m;
            for (int level = 0; level < _TOLV_VectorLevel(); ++level) {
                _TOLV_CapVectorLevel(level); /* every narrower width */
                std::vector<float> r(m), i(m), o(m),
                    v = overlap, p(x.begin(), x.begin() + m);
                TOLV_FMCLTDirect(proc, r.data(), i.data(), next.data(),
                                 p.data(), w.data());
                TOLV_FMCLTInverse(proc, r.data(), i.data(), o.data(), v.data(),
                                  w.data());
                EXPECT_TRUE(r == re && i == im && o == out && v == ov) << m;
                _TOLV_CapVectorLevel(-1);
            }

            std::vector<float> block(x.begin(), x.begin() + m);
            TOLV_FMCLTCDTiv(proc, block.data());
            for (int k = 0; k < m; ++k) {
                double sum = 0.0;
                for (int j = 0; j < m; ++j)
                    sum += x[j] * std::sin(M_PI * (j + 0.5) * (k + 0.5) / m);
                ASSERT_NEAR(std::sqrt(2.0 / m) * sum, block[k], tol) << m;
            }
            EXPECT_EQ(1, TOLV_FMCLTProcDestroy(proc));
            MutexLock(__FFTW_PlanLock);
            fftwf_destroy_plan(fwd), fftwf_destroy_plan(inv);
            MutexUnlock(__FFTW_PlanLock);
        }
}

/* Each thread streams one size at length, then plans and streams 20 more
 * sizes, all at once through the one planner lock. */
TEST(FMCLT, StreamsReconstructOneBlockLateOnManyThreads)
{
    const int sizes[] = {4, 12, 64, 100, 1024};
    std::vector<double> worst(5, 0.0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 5; ++t)
        threads.emplace_back([t, &sizes, &worst] {
            const int m = sizes[t];
            worst[t] =
                spectral_test::StreamError(m, std::max(32, 65536 / m), 11u * m);
            for (int round = 0; round < 20; ++round)
                worst[t] = std::max(
                    worst[t],
                    spectral_test::StreamError(4 * (1 + (t * 7 + round) % 24),
                                               4, t * 100 + round));
        });
    for (auto &th : threads)
        th.join();
    for (double e : worst)
        EXPECT_LT(e, 1.5e-6);
}

/* A null processor, sizes below one and sizes whose 2 M passes 32 bits do
 * nothing and touch nothing, nor does a window of negative size; destroying
 * null gives 0. */
TEST(FMCLT, NullAndSizesWithoutATransformAreInert)
{
    for (int m : {-2, 0, -1, -8, 0x40000000, INT32_MAX, INT32_MIN}) {
        _TOLV_FMCLTPROC *proc = m == -2 ? nullptr : TOLV_FMCLTProcCreate(m);
        GuardedFloats re(0, 4), im(0, 4), data(0, 4), state(0, 4);
        TOLV_COMPLEX w[4] = {};
        TOLV_FMCLTDirect(proc, re.data, im.data, data.data, state.data, w);
        TOLV_FMCLTInverse(proc, re.data, im.data, data.data, state.data, w);
        TOLV_FMCLTCDTiv(proc, data.data);
        if (m < 0)
            TOLV_FMCLTFreqWindow((TOLV_COMPLEX *)state.data, m);
        EXPECT_EQ(0u, re.WrittenExtent() + im.WrittenExtent() +
                          data.WrittenExtent() + state.WrittenExtent());
        EXPECT_EQ(m != -2, TOLV_FMCLTProcDestroy(proc)) << m;
    }
}

} // namespace
