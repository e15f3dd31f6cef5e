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
        : forward(TOLV_FFTProcCreate(n)), inverse(TOLV_IFFTProcCreate(n)),
          spectrum(TOLV_CreateComplexVector(forward))
    {
    }
    ~Processors()
    {
        TOLV_DestroyComplexVector(spectrum);
        TOLV_FFTProcDestroy(forward);
        TOLV_FFTProcDestroy(inverse);
    }
    _TOLV_FFTPROC *forward;
    _TOLV_FFTPROC *inverse;
    TOLV_COMPLEX *spectrum;
};

/* Every length from 1 to 64, then odd sizes, primes and powers of two. */
std::vector<int> Lengths()
{
    std::vector<int> n;
    for (int i = 1; i <= 64; i++)
        n.push_back(i);
    for (int i : {100, 125, 243, 384, 512, 1000, 1021, 1024, 4095})
        n.push_back(i);
    return n;
}

/* The forward spectrum against a direct DFT in double (bins 0 to N / 2,
 * FFTW's gain), and the inverse back to the frame with and without
 * normalisation. */
TEST(FFTProcessor, MatchesDirectTransformAndRoundTrips)
{
    for (int n : Lengths()) {
        Processors p(n);
        const std::vector<float> frame = Noise(n, 1000 + n);
        std::vector<float> input = frame, back(n);
        ASSERT_EQ(n / 2 + 1, TOLV_FFTProcExecute(p.forward, input.data(),
                                                 p.spectrum));
        EXPECT_EQ(frame, input) << "forward transform touched its input";

        const double tolerance = 2e-6 * n * std::log2(2.0 * n);
        for (int k = 0; k <= n / 2; k++) {
            std::complex<double> sum = 0.0;
            for (int t = 0; t < n; t++)
                sum += (double)frame[t] *
                       std::polar(1.0, -2.0 * M_PI * (double)((long long)k * t % n) / n);
            ASSERT_NEAR(sum.real(), p.spectrum[k].re, tolerance) << n << " " << k;
            ASSERT_NEAR(sum.imag(), p.spectrum[k].im, tolerance) << n << " " << k;
        }

        /* The inverse may overwrite its input: restore it between runs. */
        const std::vector<TOLV_COMPLEX> saved(p.spectrum, p.spectrum + n / 2 + 1);
        for (bool normalize : {true, false}) {
            std::copy(saved.begin(), saved.end(), p.spectrum);
            ASSERT_EQ(n, TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum,
                                                back.data(), normalize));
            const float gain = normalize ? 1.0f : (float)n;
            for (int t = 0; t < n; t++)
                ASSERT_NEAR(gain * frame[t], back[t], 2e-6 * gain * std::log2(2.0 * n))
                    << "N=" << n << " t=" << t << " normalize=" << normalize;
        }
    }
}

TEST(FFTProcessor, NormalisationIsOneMultiplyByTheFloatReciprocal)
{
    const int n = 3; /* 1/3 is inexact: a division by 3 rounds otherwise */
    Processors p(n);
    std::vector<float> frame = {0.7f, -0.2f, 0.45f}, plain(n), scaled(n);
    TOLV_FFTProcExecute(p.forward, frame.data(), p.spectrum);
    const std::vector<TOLV_COMPLEX> saved(p.spectrum, p.spectrum + n);
    TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum, plain.data(), false);
    std::copy(saved.begin(), saved.end(), p.spectrum);
    TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum, scaled.data(), true);
    for (int t = 0; t < n; t++)
        EXPECT_EQ(Bits(plain[t] * (1.0f / 3.0f)), Bits(scaled[t]));
}

/* Bins equal |X|^2 of the transform to the bit, with the caller's scratch
 * and with the function's own; N / 8 + 1 rounds of four write exactly
 * 4 (N / 8 + 1) floats, no more (at N = 512: 260, 257 of them bins). */
TEST(PowerSpectrum, SquaredMagnitudeAndExtentWritten)
{
    for (int n : Lengths()) {
        Processors p(n);
        const std::vector<float> frame = Noise(n, 7 * n);
        std::vector<float> input = frame;
        TOLV_FFTProcExecute(p.forward, input.data(), p.spectrum);
        TOLV_COMPLEX *scratch = TOLV_CreateComplexVector(p.forward);
        const size_t written = 4 * (size_t)(n / 8 + 1);
        for (TOLV_COMPLEX *s : {scratch, (TOLV_COMPLEX *)nullptr}) {
            GuardedFloats psd(written, 32);
            EXPECT_EQ(n / 2 + 1, TOLV_FFTProcExecutePSDEx(p.forward, frame.data(),
                                                          psd.data(), s));
            ASSERT_EQ(written, psd.WrittenExtent()) << "N=" << n;
            for (int k = 0; k <= n / 2; k++) {
                const float re = p.spectrum[k].re, im = p.spectrum[k].im;
                ASSERT_EQ(Bits(re * re + im * im), Bits(psd[k])) << n << " " << k;
            }
        }
        TOLV_DestroyComplexVector(scratch);
    }
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

/* Null objects are refused; FFTW refuses lengths of 0 or less with a null
 * plan, and such a processor is still made and destroyed. */
TEST(FFTProcessor, NullObjectsAndRefusedLengths)
{
    EXPECT_EQ(nullptr, TOLV_CreateComplexVector(nullptr));
    EXPECT_EQ(0, TOLV_DestroyComplexVector(nullptr));
    EXPECT_EQ(0, TOLV_FFTProcDestroy(nullptr));
    for (int n : {0, -1, -64}) {
        Processors p(n);
        ASSERT_NE(nullptr, p.forward);
        EXPECT_EQ(n, p.forward->length);
        EXPECT_EQ(nullptr, p.forward->plan);
        EXPECT_EQ(nullptr, p.inverse->plan);
        EXPECT_NE(nullptr, p.spectrum);
    }
    Processors p(8);
    EXPECT_EQ(0u, (uintptr_t)p.spectrum % 16);
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
 * the same; separate buffers report nothing. */
TEST(FFTProcessor, SameBufferIsReportedThenExecuted)
{
    std::vector<Message> messages;
    KEELDEBUG_SetMessageHandler(Collect, &messages);
    Processors p(8);
    float *asReal = (float *)p.spectrum;
    for (int i = 0; i < 8; i++)
        asReal[i] = 1.0f;
    EXPECT_EQ(5, TOLV_FFTProcExecute(p.forward, asReal, p.spectrum));
    EXPECT_EQ(8, TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum, asReal, true));
    std::vector<float> frame(8, 1.0f);
    TOLV_FFTProcExecute(p.forward, frame.data(), p.spectrum);
    KEELDEBUG_SetMessageHandler(nullptr, nullptr);

    ASSERT_EQ(2u, messages.size());
    const char *const texts[2] = {
        "TOLV_FFTProcExecute: Input and output vectors must be different!",
        "TOLV_IFFTProcExecute: Input and output vectors must be different!"};
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(3, messages[i].level);
        EXPECT_EQ(-1, messages[i].code);
        EXPECT_EQ(texts[i], messages[i].text);
    }
}

/* One processor pair shared by several threads, each on its own buffers:
 * every thread gets, to the bit, what a lone thread gets. */
TEST(FFTProcessor, OneProcessorManyThreads)
{
    const int n = 1024, threads = 4, rounds = 200, extent = 4 * (n / 8 + 1);
    Processors p(n);
    std::vector<std::vector<float>> frames, expected;
    for (int t = 0; t < threads; t++) {
        frames.push_back(Noise(n, 50 + t));
        GuardedFloats psd(extent, 0);
        TOLV_FFTProcExecutePSDEx(p.forward, frames[t].data(), psd.data(), nullptr);
        expected.emplace_back(psd.data(), psd.data() + n / 2 + 1);
    }
    std::vector<int> mismatches(threads, 0);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; t++) {
        pool.emplace_back([&, t] {
            TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(p.forward);
            TOLV_COMPLEX *scratch = TOLV_CreateComplexVector(p.forward);
            GuardedFloats psd(extent, 0);
            std::vector<float> back(n), input = frames[t];
            for (int r = 0; r < rounds; r++) {
                TOLV_FFTProcExecutePSDEx(p.forward, frames[t].data(), psd.data(),
                                         (r & 1) ? scratch : nullptr);
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

    TOLV_COMPLEX untouched = {7.0f, 7.0f};
    EXPECT_EQ(1, TOLV_ComplexVectorMultiply(a, b, &untouched, 0));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, b, &untouched, -1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(nullptr, b, &untouched, 1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, nullptr, &untouched, 1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, b, nullptr, 1));
    EXPECT_EQ(7.0f, untouched.re);
    EXPECT_EQ(7.0f, untouched.im);

    /* The real part is stored before the imaginary part is formed from
     * factors read again: in place, the imaginary part sees the new real
     * part. */
    TOLV_COMPLEX x = {1.0f, 2.0f}, y = {3.0f, 4.0f};
    TOLV_ComplexVectorMultiply(&x, &y, &x, 1);
    EXPECT_EQ(-5.0f, x.re);
    EXPECT_EQ(2.0f * 3.0f + 4.0f * -5.0f, x.im);
    x = {1.0f, 2.0f};
    TOLV_ComplexVectorMultiply(&x, &y, &y, 1);
    EXPECT_EQ(-5.0f, y.re);
    EXPECT_EQ(2.0f * -5.0f + 4.0f * 1.0f, y.im);
}

} // namespace
