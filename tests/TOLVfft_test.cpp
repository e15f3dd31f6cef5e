/* FFT processors, power spectrum, complex product and decibel scale: bits
 * against scalar models, extents written against guard values. */
#include <float.h>

#include <gtest/gtest.h>

#include "TOLVfft/dbscale.h"
#include "TOLVfft/fftproc.h"
#include "lanes.h"
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

/* Per length: N / 2 + 1 bins; the PSD is |X|^2 to the bit with or without a
 * scratch and writes 4 (N / 8 + 1) floats, not one more; the inverse gives N
 * times the frame, normalised by the float reciprocal of N. */
TEST(FFTProcessor, PowerSpectrumRoundTripAndRefusals)
{
    for (int n : {1, 2, 3, 7, 8, 9, 16, 27, 100, 512, 1021}) {
        Processors p(n);
        const std::vector<float> frame = UniformNoise(n, 1000 + n);
        std::vector<float> input = frame, plain(n), scaled(n);
        ASSERT_EQ(n / 2 + 1,
                  TOLV_FFTProcExecute(p.forward, input.data(), p.spectrum));
        EXPECT_EQ(frame, input) << "forward transform touched its input";
        for (int level = _TOLV_VectorLevel(); level >= 0; level--)
            for (bool withScratch : {true, false}) {
                _TOLV_CapVectorLevel(level); /* every lane width */
                TOLV_COMPLEX *own =
                    withScratch ? TOLV_CreateComplexVector(p.forward) : nullptr;
                GuardedFloats psd(4 * (n / 8 + 1));
                EXPECT_EQ(n / 2 + 1,
                          TOLV_FFTProcExecutePSDEx(p.forward, frame.data(),
                                                   psd.data, own));
                ASSERT_EQ(4 * (n / 8 + 1), (int)psd.WrittenExtent()) << n;
                for (int k = 0; k <= n / 2; k++) {
                    const float re = p.spectrum[k].re, im = p.spectrum[k].im;
                    ASSERT_EQ(Bits(re * re + im * im), Bits(psd[k]))
                        << n << " " << k << " level " << level;
                }
                TOLV_DestroyComplexVector(own);
            }
        _TOLV_CapVectorLevel(-1);
        /* The inverse may overwrite its input: run on copies. */
        std::vector<TOLV_COMPLEX> s1(p.spectrum, p.spectrum + n / 2 + 1),
            s2 = s1;
        ASSERT_EQ(n, TOLV_IFFTProcExecuteEx(p.inverse, s1.data(), plain.data(),
                                            false));
        ASSERT_EQ(n, TOLV_IFFTProcExecuteEx(p.inverse, s2.data(), scaled.data(),
                                            true));
        for (int t = 0; t < n; t++) {
            ASSERT_NEAR(n * frame[t], plain[t], 2e-6 * n * std::log2(2.0 * n));
            ASSERT_EQ(Bits(plain[t] * (1.0f / (float)n)), Bits(scaled[t]));
        }
    }
    /* Null objects; N = 0 gives null plans; in place is reported, and runs. */
    Processors p(16), refused(0);
    EXPECT_TRUE(TOLV_CreateComplexVector(nullptr) == nullptr &&
                TOLV_DestroyComplexVector(nullptr) == 0 &&
                TOLV_FFTProcDestroy(nullptr) == 0);
    EXPECT_TRUE(refused.forward->plan == nullptr &&
                refused.inverse->plan == nullptr);

    tolv_test::Messages messages;
    float *asReal = (float *)p.spectrum;
    EXPECT_EQ(9, TOLV_FFTProcExecute(p.forward, asReal, p.spectrum));
    EXPECT_EQ(16, TOLV_IFFTProcExecuteEx(p.inverse, p.spectrum, asReal, true));
    const std::string tail = ": Input and output vectors must be different!\n";
    EXPECT_EQ("3 -1 TOLV_FFTProcExecute" + tail + "3 -1 TOLV_IFFTProcExecute" +
                  tail,
              messages.All());
}

/* (1 + 2i)(3 + 4i) = -5 + 10i; refusals write nothing; in place the
 * imaginary part sees the real part already stored. */
TEST(ComplexMultiply, ProductRefusalsAndStoreOrder)
{
    const TOLV_COMPLEX a[2] = {{1, 2}, {0.5f, -0.25f}},
                       b[2] = {{3, 4}, {-2, 8}};
    TOLV_COMPLEX c[2] = {}, untouched = {7, 7}, x = {1, 2}, y = {3, 4};
    EXPECT_EQ(1, TOLV_ComplexVectorMultiply(a, b, c, 2));
    EXPECT_TRUE(c[0].re == -5 && c[0].im == 10 && c[1].re == 1 &&
                c[1].im == 4.5f);
    EXPECT_TRUE(TOLV_ComplexVectorMultiply(a, b, &untouched, 0) == 1 &&
                TOLV_ComplexVectorMultiply(a, b, &untouched, -1) == 0 &&
                TOLV_ComplexVectorMultiply(nullptr, b, &untouched, 1) == 0 &&
                TOLV_ComplexVectorMultiply(a, nullptr, &untouched, 1) == 0 &&
                TOLV_ComplexVectorMultiply(a, b, nullptr, 1) == 0);
    EXPECT_TRUE(untouched.re == 7 && untouched.im == 7);
    TOLV_ComplexVectorMultiply(&x, &y, &x, 1);
    EXPECT_TRUE(x.re == -5 && x.im == 2 * 3 + 4 * -5);
}

/* Decibels through the float path at four lanes and at the widest, which
 * agree to the bit; buffers only 16-byte aligned, as promised. */
std::vector<float> FloatPathDb(const std::vector<float> &x,
                               const float *curve = nullptr, float ref = 1)
{
    const int n = x.size(), end = (n + 3) / 4 * 4;
    GuardedFloats in(end + 4, 0), four(end + 4, 0), wide(end + 4, 0);
    std::copy(x.begin(), x.end(), in.data + 4);
    _TOLV_DbArgs args = {in.data + 4, four.data + 4, curve, 1, ref, -2000};
    _TOLV_DbVector(args, end, 4);
    args.db = wide.data + 4;
    for (int lanes = 8; lanes <= _TOLV_DbWidestLanes(); lanes *= 2) {
        _TOLV_DbVector(args, end, lanes);
        EXPECT_EQ(0, memcmp(four.data, wide.data, 4 * (end + 4))) << lanes;
    }
    EXPECT_EQ(end + 4u, four.WrittenExtent());
    return std::vector<float>(four.data + 4, four.data + 4 + n);
}

/* Bits derived by hand through the polynomial steps (10 one ulp short of
 * 10 dB; 2 shows the factor one ulp below log10(e)); then 10 log10(x) in
 * double within 4 ulps across the float range; zero, negatives and NaN take
 * the floor, denormals read as the smallest normal. */
TEST(PSDtoDB, FloatPathBitsAndDoubleReference)
{
#if defined(__x86_64__)
    ASSERT_EQ(__builtin_cpu_supports("avx512f") ? 16
              : __builtin_cpu_supports("avx2")  ? 8
                                                : 4,
              _TOLV_DbWidestLanes());
#else
    ASSERT_EQ(4, _TOLV_DbWidestLanes()); /* no wider path off x86 */
#endif
    // clang-format off
    const std::vector<float> hand = {1, 2, 0.5f, 0.75f, 10, 100, 1e-3f, 3, 1e6f, 0.1f, FLT_MIN};
    const std::vector<uint32_t> bits = {0x00000000, 0x4040A8C0, 0xC040A8C0, 0xBF9FEBEC, 0x411FFFFF, 0x419FFFFF,
                                        0xC1F00000, 0x4098ADC6, 0x42700000, 0xC11FFFFF, 0xC3BDA61E};
    // clang-format on
    const std::vector<float> handDb = FloatPathDb(hand);
    EXPECT_EQ(0, memcmp(bits.data(), handDb.data(), 4 * bits.size()));

    std::vector<float> x;
    for (int e = -126; e <= 125; e += 3)
        for (float m :
             {1.0f, 1.0001f, 1.25f, 1.41421f, 1.41422f, 1.5f, 1.99999f})
            x.push_back(ldexpf(m, e));
    const std::vector<float> db = FloatPathDb(x);
    for (size_t i = 0; i < x.size(); i++) {
        const double ref = 10.0 * log10((double)x[i]);
        const double ulp =
            ldexp(1.0, ilogbf(fabs(ref) > 1.0 ? (float)ref : 1.0f) - 23);
        ASSERT_LE(fabs(db[i] - ref), 4 * ulp) << x[i] << ": " << db[i];
    }
    std::vector<float> curve(x.size() + 16), odd = x;
    for (size_t i = 0; i < curve.size(); i++)
        curve[i] = 0.5f + fmodf(0.618034f * i, 1.0f);
    odd.insert(odd.end(), {INFINITY, FLT_MAX, -0.0f, NAN, -3});
    FloatPathDb(odd, curve.data(), 0.37f); /* the lanes agree, weighted too */
    EXPECT_EQ(
        (std::vector<float>{-2000, -2000, -2000, -2000, -2000, db[0], db[0]}),
        FloatPathDb({0.0f, -0.0f, -1.0f, NAN, -INFINITY, FLT_TRUE_MIN,
                     0.99f * FLT_MIN}));
}

/* A flat spectrum per frame length: bin 0 from the float path, bin H in
 * double; reference through its square root, curve through its square (16
 * and 2 cancel); zero, tiny and NaN end at the floor; 0 dB at range 0 reads
 * the floor itself, -0, at Nyquist; N = 1 has an infinite g; at N = 12,
 * 36 x (1/36) rounds to 1 in float first. Extents against guard values. */
TEST(PSDtoDB, PathsAndShortFrames)
{
    const float atOneHundredth = FloatPathDb({0.01f})[0];
    // clang-format off
    const struct { int n; float p; bool curve; double reference, range; float first, nyquist; size_t extent; } rows[] = {
        {8, 1600, false, 1, 60, 0x1.3ffffep4f, 20, 5}, {8, 1600, true, 16, 60, 0x1.3ffffep4f, 20, 5},
        {8, 1600, false, -1, 60, -60, -60, 5}, {8, 0, false, 1, 60, -60, -60, 5}, {8, 16e-7f, false, 1, 60, -60, -60, 5},
        {8, 16, false, 1, 0, 0, -0.0f, 5}, {1, 0.25f, false, 1, 90, INFINITY, INFINITY, 1},
        {2, 0.01f, false, 1, 90, atOneHundredth, (float)(10 * log10((double)0.01f)), 4}, {12, 36, false, 1, 90, 0, 0, 8}};
    // clang-format on
    GuardedFloats psd(8, 0), curve(8, 0), db(8), none(4, 0);
    std::fill(curve.data, curve.data + 8, 2.0f);
    for (const auto &r : rows) {
        std::fill(psd.data, psd.data + 8, r.p);
        std::fill(db.data, db.data + db.size, GuardedFloats::kMarker);
        const float *c = r.curve ? curve.data : nullptr;
        EXPECT_TRUE(TOLV_PSDtoDB(r.n, psd.data, db.data, c, r.reference,
                                 r.range) == 1 &&
                    r.first == db[0] && Bits(r.nyquist) == Bits(db[r.n / 2]) &&
                    r.extent == db.WrittenExtent())
            << r.n << " " << r.p << ": " << db[0] << " " << db[r.n / 2];
    }
    TOLV_PSDtoDB(8, psd.data, db.data, nullptr, 0.0, 90.0); /* r infinite */
    EXPECT_EQ(INFINITY, db[4]);
    EXPECT_TRUE(TOLV_PSDtoDB(0, psd.data, none.data, nullptr, 1, 90) == 0 &&
                TOLV_PSDtoDB(-8, psd.data, none.data, nullptr, 1, 90) == 0 &&
                TOLV_PSDtoDB(8, nullptr, none.data, nullptr, 1, 90) == 0 &&
                TOLV_PSDtoDB(8, psd.data, nullptr, nullptr, 1, 90) == 0);
    EXPECT_EQ(0u, none.WrittenExtent());
}

/* A full-scale sine at a bin centre (rectangular window) peaks at
 * (N / 2)^2, the forward gain, which reads 0 dB at reference 1. */
TEST(PSDtoDB, FullScaleSineIsZeroDecibels)
{
    Processors p(1024);
    std::vector<float> frame(1024), psd(516), db(516);
    for (int t = 0; t < 1024; t++)
        frame[t] = (float)sin(2.0 * M_PI * 64 * t / 1024);
    TOLV_FFTProcExecutePSDEx(p.forward, frame.data(), psd.data(), nullptr);
    TOLV_PSDtoDB(1024, psd.data(), db.data(), nullptr, 1.0, 120.0);
    EXPECT_TRUE(fabs(psd[64] - 512.0 * 512.0) < 100 && fabs(db[64]) < 1e-4);
}

/* |1 - a e^-jw|: 1 for a = 0; 0.03, sqrt(1 + a^2) mid-band and 1.97 for
 * 0.97; odd N truncates H; N of 0 or 1 gives one NaN, below -1 nothing. */
TEST(PreEmphAdjust, CurveAndDegenerateLengths)
{
    GuardedFloats curve(33, 8), odd(33, 8), flat(33, 8);
    TOLV_CreatePreEmphAdjust(flat.data, 64, 0.0);
    EXPECT_EQ(std::vector<float>(33, 1.0f),
              std::vector<float>(&flat[0], &flat[33]));
    TOLV_CreatePreEmphAdjust(curve.data, 64, 0.97);
    EXPECT_TRUE(fabsf(curve[0] - 0.03f) < 1e-7 &&
                curve[16] == (float)sqrt(1 + 0.97 * 0.97) &&
                curve[32] == 1.97f);
    TOLV_CreatePreEmphAdjust(odd.data, 65, 0.97);
    EXPECT_EQ(0, memcmp(curve.data, odd.data, 4 * (33 + 8)));
    for (int n : {0, 1, -1, -2, -100}) {
        GuardedFloats c(0, 8);
        EXPECT_EQ(1, TOLV_CreatePreEmphAdjust(c.data, n, 0.5));
        EXPECT_EQ(n > -2 ? 1u : 0u, c.WrittenExtent()) << n;
        EXPECT_TRUE(n < -1 || isnan(c[0])) << n;
    }
}

} // namespace
