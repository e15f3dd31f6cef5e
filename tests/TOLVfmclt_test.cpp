// Modulated complex lapped transform and type IV sine transform: reference
// evaluations in double, reconstruction over streams, degenerate sizes.
#include <gtest/gtest.h>

#include <fftw3.h>

#include <climits>
#include <cmath>
#include <complex>
#include <iterator>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "keel.h"
#include "support/signal.h"
#include "tolv.h"

namespace {

using cd = std::complex<double>;
using tolv_test::Norm2;
using tolv_test::UniformNoise;

struct Proc {
    explicit Proc(int m) : p(TOLV_FMCLTProcCreate(m)) {}
    ~Proc() { TOLV_FMCLTProcDestroy(p); }
    _TOLV_FMCLTPROC *p;
};

// Arrays from fftwf_malloc, as FFTW's new-array execution requires.
struct AlignedFloats {
    explicit AlignedFloats(int n)
        : p(static_cast<float *>(fftwf_malloc((n + 1) * sizeof(float)))), n(n)
    {}
    ~AlignedFloats() { fftwf_free(p); }
    float *p;
    int n;
};

std::vector<TOLV_COMPLEX> freqWindow(int m)
{
    std::vector<TOLV_COMPLEX> w(m + 1);
    TOLV_FMCLTFreqWindow(w.data(), m);
    return w;
}

struct Frame {
    std::vector<double> re, im;
};

// The lapped transform by its definition: sine window h and the modulated
// cosine and sine kernels.
Frame definitionDirect(const std::vector<float> &x, int m)
{
    Frame f{std::vector<double>(m), std::vector<double>(m)};
    const double g = std::sqrt(2.0 / m);
    for (int k = 0; k < m; ++k) {
        double c = 0.0, s = 0.0;
        for (int n = 0; n < 2 * m; ++n) {
            const double h = -std::sin((n + 0.5) * M_PI / (2.0 * m));
            const double phase = (n + (m + 1) / 2.0) * (k + 0.5) * M_PI / m;
            c += h * x[n] * std::cos(phase);
            s += h * x[n] * std::sin(phase);
        }
        f.re[k] = g * c;
        f.im[k] = -g * s;
    }
    return f;
}

TEST(FMCLTWindow, FirstBinIsMinusAnEighthTurn)
{
    for (int m : {1, 4, 7, 1024}) {
        auto w = freqWindow(m);
        EXPECT_EQ(w[0].re, 0.70710677f) << m;
        EXPECT_EQ(w[0].im, -0.70710677f) << m;
    }
}

TEST(FMCLTWindow, NegativeSizeWritesNothing)
{
    TOLV_COMPLEX w[2] = {{5.0f, 6.0f}, {7.0f, 8.0f}};
    TOLV_FMCLTFreqWindow(w, -1);
    EXPECT_EQ(w[0].re, 5.0f);
    EXPECT_EQ(w[0].im, 6.0f);
    EXPECT_EQ(w[1].re, 7.0f);
}

// Runs one direct transform of [previous, next] and returns the frame.
void directOnce(const Proc &proc, const std::vector<TOLV_COMPLEX> &w,
                const std::vector<float> &x, int m, std::vector<float> &re,
                std::vector<float> &im)
{
    std::vector<float> previous(x.begin(), x.begin() + m);
    std::vector<float> next(x.begin() + m, x.end());
    re.assign(m, 0.0f);
    im.assign(m, 0.0f);
    TOLV_FMCLTDirect(proc.p, re.data(), im.data(), next.data(), previous.data(),
                     w.data());
    EXPECT_EQ(previous, next) << "the state must advance to the new block";
}

TEST(FMCLTDirect, EqualsTheWindowedModulatedSums)
{
    for (int m : {1, 2, 3, 4, 5, 8, 64, 256, 1024}) {
        Proc proc(m);
        auto w = freqWindow(m);
        auto x = UniformNoise(2 * m, 7 * m);
        std::vector<float> re, im;
        directOnce(proc, w, x, m, re, im);
        Frame def = definitionDirect(x, m);
        const double tol = 8e-8 * (1.0 + std::log2(2.0 * m)) * Norm2(x);
        for (int k = 0; k < m; ++k) {
            ASSERT_NEAR(re[k], def.re[k], tol) << "M=" << m << " k=" << k;
            ASSERT_NEAR(im[k], def.im[k], tol) << "M=" << m << " k=" << k;
        }
    }
}

// In-place transforms of FFTW made the way the processor makes them, so
// that the single-precision steps around them can be replayed to the bit.
struct ReplayPlans {
    explicit ReplayPlans(int m)
        : buf(static_cast<float *>(fftwf_malloc((2 * m + 2) * sizeof(float))))
    {
        auto *c = reinterpret_cast<fftwf_complex *>(buf);
        MutexLock(__FFTW_PlanLock);
        forward = fftwf_plan_dft_r2c_1d(2 * m, buf, c, FFTW_ESTIMATE);
        inverse = fftwf_plan_dft_c2r_1d(2 * m, c, buf, FFTW_ESTIMATE);
        sine = fftwf_plan_r2r_1d(m, buf, buf, FFTW_RODFT11, FFTW_ESTIMATE);
        MutexUnlock(__FFTW_PlanLock);
    }
    ~ReplayPlans()
    {
        MutexLock(__FFTW_PlanLock);
        fftwf_destroy_plan(forward);
        fftwf_destroy_plan(inverse);
        fftwf_destroy_plan(sine);
        MutexUnlock(__FFTW_PlanLock);
        fftwf_free(buf);
    }
    float *buf;
    fftwf_plan forward, inverse, sine;
};

TEST(FMCLTPrecision, EveryStepRoundsWhereItShould)
{
    // Gains rounded to float, products and sums in float, the end bins'
    // product and the final division in double: replayed one step at a
    // time, the results must agree to the last bit. Signals near the
    // smallest normal float check the overlap-add where float and double
    // rounding could part.
    const float amplitudes[] = {1.0f, 3e-38f};
    const int sizes[] = {1, 2, 3, 4, 5, 7, 8, 12, 64, 100, 512, 1000, 1023};
    for (size_t i = 0; i < 2 * std::size(sizes); ++i) {
        const int m = sizes[i / 2];
        const float amplitude = amplitudes[i % 2];
        Proc proc(m);
        ReplayPlans replay(m);
        float *b = replay.buf;
        auto w = freqWindow(m);
        auto x = UniformNoise(2 * m, 600 + m, amplitude);

        std::vector<float> re, im;
        directOnce(proc, w, x, m, re, im);
        std::copy(x.begin(), x.end(), b);
        fftwf_execute(replay.forward);
        const float s = static_cast<float>(std::sqrt(1.0 / (2.0 * m)));
        for (int k = 0; k <= m; ++k) {
            const float ur = b[2 * k] * s, ui = b[2 * k + 1] * s;
            b[2 * k] = ur * w[k].re - ui * w[k].im;
            b[2 * k + 1] = w[k].re * ui + w[k].im * ur;
        }
        for (int k = 0; k < m; ++k) {
            ASSERT_EQ(re[k], b[2 * k + 2] - b[2 * k + 1])
                << "M=" << m << " k=" << k;
            ASSERT_EQ(im[k], b[2 * k] + b[2 * k + 3])
                << "M=" << m << " k=" << k;
        }

        auto overlap = UniformNoise(m, 700 + m, amplitude);
        std::vector<float> out(m), ov = overlap;
        TOLV_FMCLTInverse(proc.p, re.data(), im.data(), out.data(), ov.data(),
                          w.data());
        const double end = 0.3535533905932738;
        const float t = static_cast<float>(std::sqrt(2.0 * m));
        b[0] = static_cast<float>(static_cast<double>(re[0] + im[0]) * end) * t;
        b[1] = 0.0f;
        for (int k = 0; k + 1 < m; ++k) {
            const float c = re[k] + im[k + 1], a = im[k] - re[k + 1];
            const float wr = w[k + 1].re, wi = w[k + 1].im;
            b[2 * k + 2] = (wi * a + wr * c) * 0.25f * t;
            b[2 * k + 3] = (a * wr - wi * c) * 0.25f * t;
        }
        b[2 * m] = static_cast<float>(
                       static_cast<double>(re[m - 1] + im[m - 1]) * -end) *
                   t;
        b[2 * m + 1] = 0.0f;
        fftwf_execute(replay.inverse);
        for (int k = 0; k < m; ++k) {
            ASSERT_EQ(out[k], static_cast<float>(b[k] / (2.0 * m) + overlap[k]))
                << "M=" << m << " k=" << k;
            ASSERT_EQ(ov[k], static_cast<float>(b[m + k] / (2.0 * m)))
                << "M=" << m << " k=" << k;
        }

        AlignedFloats block(m);
        std::copy(x.begin(), x.begin() + m, block.p);
        std::copy(x.begin(), x.begin() + m, b);
        TOLV_FMCLTCDTiv(proc.p, block.p);
        fftwf_execute(replay.sine);
        for (int k = 0; k < m; ++k)
            ASSERT_EQ(block.p[k], b[k] / t) << "M=" << m << " k=" << k;
    }
}

// Streams `blocks` blocks of noise through direct and inverse; returns the
// largest error of output b against input b - 1, and checks that the very
// first output (the block before the stream) is silence.
double streamError(_TOLV_FMCLTPROC *proc, int m, int blocks, unsigned seed)
{
    auto w = freqWindow(m);
    auto signal = UniformNoise(m * blocks, seed);
    std::vector<float> previous(m, 0.0f), overlap(m, 0.0f);
    std::vector<float> re(m), im(m), out(m);
    double worst = 0.0;
    for (int b = 0; b < blocks; ++b) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), &signal[b * m],
                         previous.data(), w.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(),
                          overlap.data(), w.data());
        for (int i = 0; i < m; ++i) {
            const double expected = b == 0 ? 0.0 : signal[(b - 1) * m + i];
            worst = std::max(worst, std::fabs(out[i] - expected));
        }
    }
    return worst;
}

TEST(FMCLTStream, ReconstructsOneBlockLateForMultiplesOfFour)
{
    // Measured worst errors on unit-range noise: 3.0e-7 at M = 4 and 8,
    // 4.2e-7 at 64, 4.8e-7 at 256, 5.4e-7 at 1024.
    for (int m : {4, 8, 64, 256, 1024}) {
        Proc proc(m);
        const int blocks = std::max(32, 65536 / m);
        const double worst = streamError(proc.p, m, blocks, 11u * m);
        EXPECT_LT(worst, 1.5e-6) << "M=" << m;
        RecordProperty("worst_error_M" + std::to_string(m),
                       std::to_string(worst));
    }
}

TEST(FMCLTSine, MatchesTheTypeIVSineSumAndIsItsOwnInverse)
{
    for (int m : {1, 2, 3, 5, 8, 17, 64, 256, 1000}) {
        Proc proc(m);
        AlignedFloats block(m);
        auto x = UniformNoise(m, 900 + m);
        std::copy(x.begin(), x.end(), block.p);
        TOLV_FMCLTCDTiv(proc.p, block.p);
        const double tol = 8e-8 * (1.0 + std::log2(2.0 * m)) * Norm2(x);
        for (int k = 0; k < m; ++k) {
            double sum = 0.0;
            for (int j = 0; j < m; ++j)
                sum += x[j] * std::sin(M_PI * (j + 0.5) * (k + 0.5) / m);
            ASSERT_NEAR(block.p[k], std::sqrt(2.0 / m) * sum, tol)
                << "M=" << m << " k=" << k;
        }
        TOLV_FMCLTCDTiv(proc.p, block.p);
        for (int k = 0; k < m; ++k)
            ASSERT_NEAR(block.p[k], x[k], 2.0 * tol) << "M=" << m << " k=" << k;
    }
}

TEST(FMCLTBadInput, NullProcessorDoesNothing)
{
    const int m = 4;
    auto w = freqWindow(m);
    std::vector<float> re(m, 7.0f), im(m, 7.0f), next(m, 1.0f),
        previous(m, 2.0f), out(m, 7.0f), overlap(m, 3.0f);
    TOLV_FMCLTDirect(nullptr, re.data(), im.data(), next.data(),
                     previous.data(), w.data());
    TOLV_FMCLTInverse(nullptr, re.data(), im.data(), out.data(), overlap.data(),
                      w.data());
    AlignedFloats block(m);
    std::fill(block.p, block.p + m, 9.0f);
    TOLV_FMCLTCDTiv(nullptr, block.p);
    EXPECT_EQ(re, std::vector<float>(m, 7.0f));
    EXPECT_EQ(im, std::vector<float>(m, 7.0f));
    EXPECT_EQ(previous, std::vector<float>(m, 2.0f));
    EXPECT_EQ(out, std::vector<float>(m, 7.0f));
    EXPECT_EQ(overlap, std::vector<float>(m, 3.0f));
    EXPECT_EQ(block.p[0], 9.0f);
    EXPECT_EQ(TOLV_FMCLTProcDestroy(nullptr), 0);
}

// Sizes below one, and sizes whose 2 M does not fit in 32 bits, give a
// processor with no plans.
TEST(FMCLTBadInput, SizesWithoutATransformAreInertAndMemorySafe)
{
    for (int m : {0, -1, -8, 0x40000000, INT32_MAX, INT32_MIN}) {
        _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
        ASSERT_NE(proc, nullptr);
        float re[2] = {7.0f, 7.0f}, im[2] = {7.0f, 7.0f},
              data[2] = {1.0f, 1.0f};
        float state[2] = {2.0f, 2.0f};
        TOLV_COMPLEX w[2] = {};
        TOLV_FMCLTDirect(proc, re, im, data, state, w);
        TOLV_FMCLTInverse(proc, re, im, data, state, w);
        TOLV_FMCLTCDTiv(proc, data);
        EXPECT_EQ(re[0], 7.0f);
        EXPECT_EQ(data[0], 1.0f);
        EXPECT_EQ(state[0], 2.0f);
        EXPECT_EQ(TOLV_FMCLTProcDestroy(proc), 1);
    }
}

TEST(FMCLTPlanning, ProcessorsBuiltOnManyThreadsAllWork)
{
    // Planning goes through the library's one planner lock; processors made
    // at the same time on several threads must all transform correctly.
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &failures] {
            for (int round = 0; round < 20; ++round) {
                const int m = 4 * (1 + (t * 7 + round) % 24);
                _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
                if (streamError(proc, m, 4, t * 100 + round) > 1.5e-6)
                    ++failures[t];
                TOLV_FMCLTProcDestroy(proc);
            }
        });
    }
    for (auto &th : threads)
        th.join();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(failures[t], 0) << "thread " << t;
}

} // namespace
