#include <thread>

#include <gtest/gtest.h>

#include "TOLVfft/fftproc.h"
#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;
using spectral_test::GuardedFloats;
using tolv_test::UniformNoise;

namespace {

struct Processors {
    explicit Processors(int n)
        : forward(TOLV_FFTProcCreate(n)), inverse(TOLV_IFFTProcCreate(n)),
          spectrum(TOLV_CreateComplexVector(forward))
    {}
    ~Processors()
    {
        TOLV_DestroyComplexVector(spectrum);
        TOLV_FFTProcDestroy(forward);
        TOLV_FFTProcDestroy(inverse);
    }
    _TOLV_FFTPROC *forward, *inverse;
    TOLV_COMPLEX *spectrum;
};

/* Per length: the PSD is |X|^2 to the bit, with a caller's scratch or its
 * own, and writes 4 (N / 8 + 1) floats (260 at 512), not one more; the
 * inverse gives N times the frame (FFTW's gain), and normalising multiplies
 * that by the float reciprocal of N. */
TEST(FFTProcessor, PowerSpectrumAndRoundTrip)
{
    for (int n : {1, 2, 3, 7, 8, 9, 16, 27, 100, 512, 1021}) {
        Processors p(n);
        const std::vector<float> frame = UniformNoise(n, 1000 + n);
        std::vector<float> input = frame, plain(n), scaled(n);
        ASSERT_EQ(n / 2 + 1,
                  TOLV_FFTProcExecute(p.forward, input.data(), p.spectrum));
        EXPECT_EQ(frame, input) << "forward transform touched its input";
        for (bool withScratch : {true, false}) {
            TOLV_COMPLEX *own =
                withScratch ? TOLV_CreateComplexVector(p.forward) : nullptr;
            GuardedFloats psd(4 * (n / 8 + 1));
            EXPECT_EQ(n / 2 + 1, TOLV_FFTProcExecutePSDEx(
                                     p.forward, frame.data(), psd.data, own));
            ASSERT_EQ(4 * (n / 8 + 1), (int)psd.WrittenExtent()) << n;
            for (int k = 0; k <= n / 2; k++) {
                const float re = p.spectrum[k].re, im = p.spectrum[k].im;
                ASSERT_EQ(Bits(re * re + im * im), Bits(psd[k]))
                    << n << " " << k;
            }
            TOLV_DestroyComplexVector(own);
        }
        /* The inverse may overwrite its input: restore it between runs. */
        const std::vector<TOLV_COMPLEX> saved(p.spectrum,
                                              p.spectrum + n / 2 + 1);
        ASSERT_EQ(n, TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum, plain.data(),
                                            false));
        std::copy(saved.begin(), saved.end(), p.spectrum);
        ASSERT_EQ(n, TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum,
                                            scaled.data(), true));
        for (int t = 0; t < n; t++) {
            ASSERT_NEAR(n * frame[t], plain[t], 2e-6 * n * std::log2(2.0 * n))
                << n << " " << t;
            ASSERT_EQ(Bits(plain[t] * (1.0f / (float)n)), Bits(scaled[t]));
        }
    }
}

TEST(FFTProcessor, ImpulseNullObjectsAndInPlaceReport)
{
    Processors p(16);
    GuardedFloats impulse(16, 0), psd(12);
    std::fill(impulse.data, impulse.data + 16, 0.0f);
    impulse[0] = 1.0f;
    EXPECT_EQ(9, TOLV_FFTProcExecutePSDEx(p.forward, impulse.data, psd.data,
                                          nullptr));
    EXPECT_EQ(std::vector<float>(9, 1.0f),
              std::vector<float>(psd.data, psd.data + 9));
    EXPECT_EQ(12u, psd.WrittenExtent());

    EXPECT_EQ(nullptr, TOLV_CreateComplexVector(nullptr));
    EXPECT_EQ(0, TOLV_DestroyComplexVector(nullptr));
    EXPECT_EQ(0, TOLV_FFTProcDestroy(nullptr));
    Processors refused(0); /* FFTW refuses: a null plan, destroyed cleanly */
    EXPECT_TRUE(refused.forward->plan == nullptr &&
                refused.inverse->plan == nullptr);

    /* In place is reported as terminal, and the transform runs anyway. */
    spectral_test::Messages messages;
    float *asReal = (float *)p.spectrum;
    EXPECT_EQ(9, TOLV_FFTProcExecute(p.forward, asReal, p.spectrum));
    EXPECT_EQ(16, TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum, asReal, true));
    EXPECT_EQ((std::vector<std::string>{"3 -1 TOLV_FFTProcExecute: Input and "
                                        "output vectors must be different!",
                                        "3 -1 TOLV_IFFTProcExecute: Input and "
                                        "output vectors must be different!"}),
              messages.lines);
}

/* One processor, threads on their own buffers: each gets what one call gets. */
TEST(FFTProcessor, OneProcessorManyThreads)
{
    const int n = 1024;
    Processors p(n);
    GuardedFloats expected(4 * (n / 8 + 1), 0);
    const std::vector<float> frame = UniformNoise(n, 50);
    TOLV_FFTProcExecutePSDEx(p.forward, frame.data(), expected.data, nullptr);
    std::vector<int> mismatches(4, 0);
    auto run = [&](int t) {
        GuardedFloats psd(4 * (n / 8 + 1), 0);
        for (int r = 0; r < 50; r++) {
            TOLV_FFTProcExecutePSDEx(p.forward, frame.data(), psd.data,
                                     nullptr);
            mismatches[t] +=
                memcmp(psd.data, expected.data, 4 * (n / 2 + 1)) != 0;
        }
    };
    std::thread a(run, 0), b(run, 1), c(run, 2), d(run, 3);
    a.join(), b.join(), c.join(), d.join();
    EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}

/* (1 + 2i)(3 + 4i) = -5 + 10i; refusals write nothing; the real part is
 * stored before the imaginary part reads the factors again, so in place
 * the imaginary part sees the new real part. */
TEST(ComplexMultiply, ProductRefusalsAndStoreOrder)
{
    const TOLV_COMPLEX a[2] = {{1, 2}, {0.5f, -0.25f}},
                       b[2] = {{3, 4}, {-2, 8}};
    TOLV_COMPLEX c[2] = {}, untouched = {7, 7}, x = {1, 2}, y = {3, 4};
    EXPECT_EQ(1, TOLV_ComplexVectorMultiply(a, b, c, 2));
    EXPECT_TRUE(c[0].re == -5 && c[0].im == 10 && c[1].re == 1 &&
                c[1].im == 4.5f);
    EXPECT_EQ(1, TOLV_ComplexVectorMultiply(a, b, &untouched, 0));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, b, &untouched, -1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(nullptr, b, &untouched, 1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, nullptr, &untouched, 1));
    EXPECT_EQ(0, TOLV_ComplexVectorMultiply(a, b, nullptr, 1));
    EXPECT_TRUE(untouched.re == 7 && untouched.im == 7);
    TOLV_ComplexVectorMultiply(&x, &y, &x, 1);
    EXPECT_TRUE(x.re == -5 && x.im == 2 * 3 + 4 * -5);
}

} // namespace
