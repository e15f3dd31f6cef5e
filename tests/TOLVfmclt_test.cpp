/* Lapped transform and type IV sine transform: definitions in double, a
 * replay of every rounding step, streams, degenerate sizes, threads. */
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <thread>

#include "spectral_test_support.h"
#include "tolv.h"

namespace {

using spectral_test::GuardedFloats;
using tolv_test::Norm2;
using tolv_test::UniformNoise;

std::vector<TOLV_COMPLEX> Window(int m)
{
    std::vector<TOLV_COMPLEX> w(m + 1);
    TOLV_FMCLTFreqWindow(w.data(), m);
    return w;
}

/* k = 0 is exp(-j pi / 4) at every size; a negative size writes nothing. */
TEST(FMCLTWindow, FirstBinIsMinusAnEighthTurn)
{
    for (int m : {1, 4, 7, 1024})
        EXPECT_TRUE(Window(m)[0].re == 0.70710677f &&
                    Window(m)[0].im == -0.70710677f)
            << m;
    TOLV_COMPLEX w[2] = {{5, 6}, {7, 8}};
    TOLV_FMCLTFreqWindow(w, -1);
    EXPECT_TRUE(w[0].re == 5 && w[0].im == 6 && w[1].re == 7);
}

/* Per size, on noise and on noise near the smallest normal float (where the
 * overlap-add's float and double roundings could part): the direct
 * transform and the inverse equal a replay of their float and double
 * steps to the bit; the direct transform is the windowed
 * modulated sum of its definition, the sine transform the type IV sine sum
 * and its own inverse; the previous block advances to the new one. */
TEST(FMCLT, DefinitionsAndEveryRoundingStep)
{
    for (int m : {1, 2, 3, 4, 5, 7, 8, 12, 64, 100, 512, 1000, 1023})
        for (float amplitude : {1.0f, 3e-38f}) {
            _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
            /* In-place transforms made as the processor makes them. */
            GuardedFloats replay(2 * m + 2, 0);
            float *b = replay.data;
            fftwf_complex *z = (fftwf_complex *)b;
            MutexLock(__FFTW_PlanLock);
            fftwf_plan forward =
                           fftwf_plan_dft_r2c_1d(2 * m, b, z, FFTW_ESTIMATE),
                       inverse =
                           fftwf_plan_dft_c2r_1d(2 * m, z, b, FFTW_ESTIMATE);
            MutexUnlock(__FFTW_PlanLock);
            const std::vector<TOLV_COMPLEX> w = Window(m);
            const std::vector<float> x =
                UniformNoise(2 * m, 600 + m, amplitude);
            const double tol =
                8e-8 * (1.0 + std::log2(2.0 * m)) * Norm2(x) + 1e-43;
            std::vector<float> re(m), im(m), previous(x.begin(), x.begin() + m),
                next(x.begin() + m, x.end());
            TOLV_FMCLTDirect(proc, re.data(), im.data(), next.data(),
                             previous.data(), w.data());
            ASSERT_EQ(next, previous);
            std::copy(x.begin(), x.end(), b);
            fftwf_execute(forward);
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
                    << m << " " << k;
                double c = 0.0, d = 0.0;
                for (int n = 0; n < 2 * m; ++n) {
                    const double h =
                        -std::sin((n + 0.5) * M_PI / (2.0 * m)) * x[n];
                    const double phase =
                        (n + (m + 1) / 2.0) * (k + 0.5) * M_PI / m;
                    c += h * std::cos(phase), d += h * std::sin(phase);
                }
                ASSERT_NEAR(std::sqrt(2.0 / m) * c, re[k], tol)
                    << m << " " << k;
                ASSERT_NEAR(-std::sqrt(2.0 / m) * d, im[k], tol)
                    << m << " " << k;
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
            b[2 * m] = (float)((double)(re[m - 1] + im[m - 1]) * -end) * t,
                  b[2 * m + 1] = 0.0f;
            fftwf_execute(inverse);
            for (int k = 0; k < m; ++k)
                ASSERT_TRUE(out[k] == (float)(b[k] / (2.0 * m) + overlap[k]) &&
                            ov[k] == (float)(b[m + k] / (2.0 * m)))
                    << m << " " << k;

            GuardedFloats block(m, 0);
            std::copy(x.begin(), x.begin() + m, block.data);
            TOLV_FMCLTCDTiv(proc, block.data);
            for (int k = 0; k < m; ++k) {
                double sum = 0.0;
                for (int j = 0; j < m; ++j)
                    sum += x[j] * std::sin(M_PI * (j + 0.5) * (k + 0.5) / m);
                ASSERT_NEAR(std::sqrt(2.0 / m) * sum, block[k], tol)
                    << m << " " << k;
            }
            TOLV_FMCLTCDTiv(proc, block.data);
            for (int k = 0; k < m; ++k)
                ASSERT_NEAR(x[k], block[k], 2.0 * tol) << m << " " << k;
            EXPECT_EQ(1, TOLV_FMCLTProcDestroy(proc));
            MutexLock(__FFTW_PlanLock);
            fftwf_destroy_plan(forward), fftwf_destroy_plan(inverse);
            MutexUnlock(__FFTW_PlanLock);
        }
}

/* Direct then inverse over a stream of noise gives each block back one call
 * late (measured worst errors 3e-7 to 5.4e-7); the first output, the block
 * before the stream, is silence. */
double StreamError(_TOLV_FMCLTPROC *proc, int m, int blocks, unsigned seed)
{
    const auto w = Window(m);
    const auto signal = UniformNoise(m * blocks, seed);
    std::vector<float> previous(m, 0.0f), overlap(m, 0.0f), re(m), im(m),
        out(m);
    double worst = 0.0;
    for (int b = 0; b < blocks; ++b) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), &signal[b * m],
                         previous.data(), w.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(),
                          overlap.data(), w.data());
        for (int i = 0; i < m; ++i)
            worst = std::max(
                worst, (double)std::fabs(out[i] -
                                         (b ? signal[(b - 1) * m + i] : 0.0f)));
    }
    return worst;
}

TEST(FMCLT, StreamsReconstructOneBlockLate)
{
    for (int m : {4, 12, 64, 100, 1024}) {
        _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
        EXPECT_LT(StreamError(proc, m, std::max(32, 65536 / m), 11u * m),
                  1.5e-6)
            << m;
        TOLV_FMCLTProcDestroy(proc);
    }
}

/* Processors planned at once on several threads, through the one planner
 * lock, all transform correctly. */
TEST(FMCLT, ProcessorsBuiltOnManyThreadsAllWork)
{
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &failures] {
            for (int round = 0; round < 20; ++round) {
                const int m = 4 * (1 + (t * 7 + round) % 24);
                _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
                failures[t] +=
                    StreamError(proc, m, 4, t * 100 + round) > 1.5e-6;
                TOLV_FMCLTProcDestroy(proc);
            }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(std::vector<int>(4, 0), failures);
}

/* A null processor, sizes below one and sizes whose 2 M passes 32 bits do
 * nothing and touch nothing; destroying null gives 0. */
TEST(FMCLT, NullAndSizesWithoutATransformAreInert)
{
    for (int m : {-2, 0, -1, -8, 0x40000000, INT32_MAX, INT32_MIN}) {
        _TOLV_FMCLTPROC *proc = m == -2 ? nullptr : TOLV_FMCLTProcCreate(m);
        GuardedFloats re(0, 4), im(0, 4), data(0, 4), state(0, 4);
        TOLV_COMPLEX w[4] = {};
        TOLV_FMCLTDirect(proc, re.data, im.data, data.data, state.data, w);
        TOLV_FMCLTInverse(proc, re.data, im.data, data.data, state.data, w);
        TOLV_FMCLTCDTiv(proc, data.data);
        EXPECT_EQ(0u, re.WrittenExtent() + im.WrittenExtent() +
                          data.WrittenExtent() + state.WrittenExtent());
        EXPECT_EQ(m != -2, TOLV_FMCLTProcDestroy(proc)) << m;
    }
}

} // namespace
