#include <math.h>

#include <complex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TOLVfft/fftproc.h"
#include "keel.h"
#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;
using spectral_test::GuardedFloats;

namespace {

std::vector<float> Noise(int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> v(n);
    for (float &x : v)
        x = dist(rng);
    return v;
}

struct Processors {
    explicit Processors(int n)
        : forward(TOLV_FFTProcCreate(n)), inverse(TOLV_IFFTProcCreate(n))
    {
    }
    ~Processors()
    {
        TOLV_FFTProcDestroy(forward);
        TOLV_FFTProcDestroy(inverse);
    }
    _TOLV_FFTPROC *forward;
    _TOLV_FFTPROC *inverse;
};

const int kLengths[] = {1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,
                        12,  13,  14,  15,  16,  17,  18,  19,  20,  21,  22,
                        23,  24,  25,  26,  27,  28,  29,  30,  31,  32,  33,
                        34,  35,  36,  37,  38,  39,  40,  41,  42,  43,  44,
                        45,  46,  47,  48,  49,  50,  51,  52,  53,  54,  55,
                        56,  57,  58,  59,  60,  61,  62,  63,  64,  100, 125,
                        243, 384, 512, 1000, 1021, 1024, 4095};

TEST(FFTProcessor, BinCountsAndLength)
{
    const struct {
        int n, bins;
    } cases[] = {{1, 1}, {2, 2}, {8, 5}, {9, 5}, {512, 257}, {1023, 512}};
    for (const auto &c : cases) {
        Processors p(c.n);
        TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(p.forward);
        std::vector<float> frame(c.n, 0.25f), back(c.n);
        EXPECT_EQ(c.bins, TOLV_FFTProcExecute(p.forward, frame.data(), spectrum));
        EXPECT_EQ(c.n, TOLV_IFFTProcExecuteEx(p.inverse, spectrum, back.data(),
                                              true));
        TOLV_DestroyComplexVector(spectrum);
    }
}

/* The forward spectrum against a direct DFT in double, and the inverse back
 * to the frame, with and without normalisation. */
TEST(FFTProcessor, MatchesDirectTransformAndRoundTrips)
{
    for (int n : kLengths) {
        Processors p(n);
        ASSERT_NE(nullptr, p.forward);
        TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(p.forward);
        const std::vector<float> frame = Noise(n, 1000 + n);
        std::vector<float> input = frame;
        TOLV_FFTProcExecute(p.forward, input.data(), spectrum);
        EXPECT_EQ(frame, input) << "forward transform touched its input";

        const double tolerance = 2e-6 * n * std::log2(2.0 * n);
        for (int k = 0; k <= n / 2; k++) {
            std::complex<double> sum = 0.0;
            for (int t = 0; t < n; t++)
                sum += (double)frame[t] *
                       std::polar(1.0, -2.0 * M_PI * (double)((long long)k * t % n) / n);
            ASSERT_NEAR(sum.real(), spectrum[k].re, tolerance) << n << " " << k;
            ASSERT_NEAR(sum.imag(), spectrum[k].im, tolerance) << n << " " << k;
        }

        /* The inverse may overwrite its input: keep a copy for the second
         * inverse. */
        std::vector<TOLV_COMPLEX> saved(spectrum, spectrum + n / 2 + 1);
        std::vector<float> back(n);
        TOLV_IFFTProcExecuteEx(p.inverse, spectrum, back.data(), true);
        for (int t = 0; t < n; t++)
            ASSERT_NEAR(frame[t], back[t], 2e-6 * std::log2(2.0 * n))
                << "N=" << n << " t=" << t;

        std::copy(saved.begin(), saved.end(), spectrum);
        TOLV_IFFTProcExecuteEx(p.inverse, spectrum, back.data(), false);
        for (int t = 0; t < n; t++)
            ASSERT_NEAR(n * frame[t], back[t], 2e-6 * n * std::log2(2.0 * n))
                << "N=" << n << " t=" << t;
        TOLV_DestroyComplexVector(spectrum);
    }
}

TEST(FFTProcessor, NormalisationIsOneMultiplyByTheFloatReciprocal)
{
    const int n = 3; /* 1/3 is inexact: dividing by 3 would round otherwise */
    Processors p(n);
    TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(p.forward);
    std::vector<float> frame = {0.7f, -0.2f, 0.45f}, plain(n), scaled(n);
    TOLV_FFTProcExecute(p.forward, frame.data(), spectrum);
    std::vector<TOLV_COMPLEX> saved(spectrum, spectrum + n);
    TOLV_IFFTProcExecuteEx(p.inverse, spectrum, plain.data(), false);
    std::copy(saved.begin(), saved.end(), spectrum);
    TOLV_IFFTProcExecuteEx(p.inverse, spectrum, scaled.data(), true);
    for (int t = 0; t < n; t++)
        EXPECT_EQ(Bits(plain[t] * (1.0f / 3.0f)), Bits(scaled[t]));
    TOLV_DestroyComplexVector(spectrum);
}

TEST(PowerSpectrum, EqualsSquaredMagnitudeOfTheTransform)
{
    for (int n : kLengths) {
        Processors p(n);
        const std::vector<float> frame = Noise(n, 7 * n);
        TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(p.forward);
        TOLV_COMPLEX *scratch = TOLV_CreateComplexVector(p.forward);
        std::vector<float> input = frame;
        TOLV_FFTProcExecute(p.forward, input.data(), spectrum);

        GuardedFloats withScratch(n / 2 + 8), ownScratch(n / 2 + 8);
        EXPECT_EQ(n / 2 + 1, TOLV_FFTProcExecutePSDEx(p.forward, frame.data(),
                                                      withScratch.data(),
                                                      scratch));
        EXPECT_EQ(n / 2 + 1, TOLV_FFTProcExecutePSDEx(p.forward, frame.data(),
                                                      ownScratch.data(),
                                                      nullptr));
        for (int k = 0; k <= n / 2; k++) {
            const float re = spectrum[k].re, im = spectrum[k].im;
            const float expected = re * re + im * im;
            ASSERT_EQ(Bits(expected), Bits(withScratch[k])) << n << " " << k;
            ASSERT_EQ(Bits(expected), Bits(ownScratch[k])) << n << " " << k;
        }
        TOLV_DestroyComplexVector(spectrum);
        TOLV_DestroyComplexVector(scratch);
    }
}

/* Four bins a round, N / 8 + 1 rounds: not one float more. */
TEST(PowerSpectrum, WritesExactlyFourFloatsPerRound)
{
    for (int n : kLengths) {
        Processors p(n);
        const std::vector<float> frame = Noise(n, n);
        const size_t written = 4 * (size_t)(n / 8 + 1);
        for (bool own : {false, true}) {
            TOLV_COMPLEX *scratch =
                own ? nullptr : TOLV_CreateComplexVector(p.forward);
            GuardedFloats psd(written, 32);
            TOLV_FFTProcExecutePSDEx(p.forward, frame.data(), psd.data(),
                                     scratch);
            ASSERT_EQ(written, psd.WrittenExtent()) << "N=" << n;
            TOLV_DestroyComplexVector(scratch);
        }
    }
    /* The figure for N = 512: 260 floats, 257 of them bins. */
    EXPECT_EQ(260, 4 * (512 / 8 + 1));
}

TEST(PowerSpectrum, UnitImpulseIsFlat)
{
    Processors p(16);
    GuardedFloats frame(16, 0), psd(12, 16);
    for (int i = 0; i < 16; i++)
        frame[i] = i == 0 ? 1.0f : 0.0f;
    EXPECT_EQ(9, TOLV_FFTProcExecutePSDEx(p.forward, frame.data(), psd.data(),
                                          nullptr));
    for (int k = 0; k <= 8; k++)
        EXPECT_EQ(1.0f, psd[k]) << k;
    EXPECT_EQ(12u, psd.WrittenExtent());
}

TEST(ComplexVectors, NullHandling)
{
    EXPECT_EQ(nullptr, TOLV_CreateComplexVector(nullptr));
    EXPECT_EQ(0, TOLV_DestroyComplexVector(nullptr));
    EXPECT_EQ(0, TOLV_FFTProcDestroy(nullptr));
    Processors p(8);
    TOLV_COMPLEX *v = TOLV_CreateComplexVector(p.forward);
    ASSERT_NE(nullptr, v);
    EXPECT_EQ(0u, (uintptr_t)v % 16);
    EXPECT_EQ(1, TOLV_DestroyComplexVector(v));
}

/* FFTW refuses lengths of 0 or less with a null plan; the processor is made
 * and destroyed all the same. */
TEST(FFTProcessor, RefusedLengthsGiveANullPlan)
{
    for (int n : {0, -1, -64}) {
        _TOLV_FFTPROC *f = TOLV_FFTProcCreate(n);
        _TOLV_FFTPROC *i = TOLV_IFFTProcCreate(n);
        ASSERT_NE(nullptr, f);
        ASSERT_NE(nullptr, i);
        EXPECT_EQ(n, f->length);
        EXPECT_EQ(nullptr, f->plan);
        EXPECT_EQ(nullptr, i->plan);
        TOLV_COMPLEX *v = TOLV_CreateComplexVector(f);
        EXPECT_NE(nullptr, v);
        TOLV_DestroyComplexVector(v);
        EXPECT_EQ(1, TOLV_FFTProcDestroy(f));
        EXPECT_EQ(1, TOLV_FFTProcDestroy(i));
    }
}

struct Message {
    int level;
    int code;
    std::string text;
};

void Collect(int level, int code, const char *message, void *user)
{
    static_cast<std::vector<Message> *>(user)->push_back({level, code, message});
}

/* The in-place check reports a terminal error and the transform runs all
 * the same. */
TEST(FFTProcessor, SameBufferIsReportedThenExecuted)
{
    std::vector<Message> messages;
    KEELDEBUG_SetMessageHandler(Collect, &messages);
    Processors p(8);
    TOLV_COMPLEX *v = TOLV_CreateComplexVector(p.forward);
    float *asReal = (float *)v;
    for (int i = 0; i < 8; i++)
        asReal[i] = 1.0f;

    EXPECT_EQ(5, TOLV_FFTProcExecute(p.forward, asReal, v));
    EXPECT_EQ(8, TOLV_IFFTProcExecuteEx(p.inverse, v, asReal, true));
    TOLV_COMPLEX *other = TOLV_CreateComplexVector(p.forward);
    TOLV_FFTProcExecute(p.forward, asReal, other);
    KEELDEBUG_SetMessageHandler(nullptr, nullptr);

    ASSERT_EQ(2u, messages.size());
    EXPECT_EQ(3, messages[0].level);
    EXPECT_EQ(-1, messages[0].code);
    EXPECT_EQ("TOLV_FFTProcExecute: Input and output vectors must be different!",
              messages[0].text);
    EXPECT_EQ(3, messages[1].level);
    EXPECT_EQ(-1, messages[1].code);
    EXPECT_EQ("TOLV_IFFTProcExecute: Input and output vectors must be different!",
              messages[1].text);
    TOLV_DestroyComplexVector(v);
    TOLV_DestroyComplexVector(other);
}

/* One processor shared by several threads, each on its own buffers: every
 * thread must get, to the bit, what a lone thread gets. */
TEST(FFTProcessor, OneProcessorManyThreads)
{
    const int n = 1024, threads = 4, rounds = 200;
    Processors p(n);
    std::vector<std::vector<float>> frames;
    std::vector<std::vector<float>> expected;
    for (int t = 0; t < threads; t++) {
        frames.push_back(Noise(n, 50 + t));
        GuardedFloats psd(4 * (n / 8 + 1), 0);
        TOLV_FFTProcExecutePSDEx(p.forward, frames[t].data(), psd.data(),
                                 nullptr);
        expected.emplace_back(psd.data(), psd.data() + n / 2 + 1);
    }

    std::vector<int> mismatches(threads, 0);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; t++) {
        pool.emplace_back([&, t] {
            TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(p.forward);
            TOLV_COMPLEX *scratch = TOLV_CreateComplexVector(p.forward);
            GuardedFloats psd(4 * (n / 8 + 1), 0);
            std::vector<float> back(n), input = frames[t];
            for (int r = 0; r < rounds; r++) {
                TOLV_FFTProcExecutePSDEx(p.forward, frames[t].data(),
                                         psd.data(), (r & 1) ? scratch : nullptr);
                for (int k = 0; k <= n / 2; k++)
                    mismatches[t] += Bits(psd[k]) != Bits(expected[t][k]);
                TOLV_FFTProcExecute(p.forward, input.data(), spectrum);
                TOLV_IFFTProcExecuteEx(p.inverse, spectrum, back.data(), true);
                for (int i = 0; i < n; i++)
                    mismatches[t] += fabsf(back[i] - frames[t][i]) > 1e-5f;
            }
            TOLV_DestroyComplexVector(spectrum);
            TOLV_DestroyComplexVector(scratch);
        });
    }
    for (std::thread &th : pool)
        th.join();
    for (int t = 0; t < threads; t++)
        EXPECT_EQ(0, mismatches[t]) << "thread " << t;
}

/* Processors created and destroyed from several threads at once all plan
 * under the one lock and all work. */
TEST(FFTProcessor, ConcurrentCreation)
{
    std::vector<std::thread> pool;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; t++) {
        pool.emplace_back([&, t] {
            for (int r = 0; r < 25; r++) {
                const int n = 16 + 8 * r + t;
                Processors p(n);
                GuardedFloats frame(n, 0), psd(4 * (n / 8 + 1), 0);
                for (int i = 0; i < n; i++)
                    frame[i] = i == 0 ? 2.0f : 0.0f;
                TOLV_FFTProcExecutePSDEx(p.forward, frame.data(), psd.data(),
                                         nullptr);
                for (int k = 0; k <= n / 2; k++)
                    failures[t] += fabsf(psd[k] - 4.0f) > 1e-5f;
            }
        });
    }
    for (std::thread &th : pool)
        th.join();
    for (int t = 0; t < 4; t++)
        EXPECT_EQ(0, failures[t]);
}

TEST(ComplexMultiply, ProductAndRefusals)
{
    const TOLV_COMPLEX a[2] = {{1.0f, 2.0f}, {0.5f, -0.25f}};
    const TOLV_COMPLEX b[2] = {{3.0f, 4.0f}, {-2.0f, 8.0f}};
    TOLV_COMPLEX c[2] = {{9.0f, 9.0f}, {9.0f, 9.0f}};
    EXPECT_EQ(1, TOLV_ComplexVectorMultiply(a, b, c, 2));
    EXPECT_EQ(-5.0f, c[0].re);
    EXPECT_EQ(10.0f, c[0].im);
    EXPECT_EQ(1.0f, c[1].re);
    EXPECT_EQ(4.5f, c[1].im);

    TOLV_COMPLEX untouched[1] = {{7.0f, 7.0f}};
    EXPECT_EQ(1, TOLV_ComplexVectorMultiply(a, b, untouched, 0));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, b, untouched, -1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(nullptr, b, untouched, 1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, nullptr, untouched, 1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, b, nullptr, 1));
    EXPECT_EQ(7.0f, untouched[0].re);
    EXPECT_EQ(7.0f, untouched[0].im);
}

/* The real part is stored before the imaginary part is formed from factors
 * read again: in place, the imaginary part sees the new real part. */
TEST(ComplexMultiply, StoreOrderShowsInPlace)
{
    TOLV_COMPLEX a = {1.0f, 2.0f}, b = {3.0f, 4.0f};
    TOLV_ComplexVectorMultiply(&a, &b, &a, 1);
    EXPECT_EQ(-5.0f, a.re);
    EXPECT_EQ(2.0f * 3.0f + 4.0f * -5.0f, a.im);

    TOLV_COMPLEX c = {1.0f, 2.0f}, d = {3.0f, 4.0f};
    TOLV_ComplexVectorMultiply(&c, &d, &d, 1);
    EXPECT_EQ(-5.0f, d.re);
    EXPECT_EQ(2.0f * -5.0f + 4.0f * 1.0f, d.im);
}

} // namespace
