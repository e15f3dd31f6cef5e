#include <float.h>
#include <math.h>

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "TOLVfft/dbscale.h"
#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;
using spectral_test::FromBits;
using spectral_test::GuardedFloats;
using spectral_test::SameFloat;
using spectral_test::UlpDistance;

namespace {

/* Decibels of a list of linear values through the float path: N = 8 makes
 * H = 4 and g = 1/16 exactly, so P = 16 x gives x itself; the Nyquist slot
 * (index 4) of each block of four is left to the double path and skipped. */
std::vector<float> FloatPathDb(const std::vector<float> &values, double range)
{
    std::vector<float> out;
    GuardedFloats psd(8, 0), db(8, 0);
    for (size_t start = 0; start < values.size(); start += 4) {
        for (int i = 0; i < 5; i++)
            psd[i] = start + i < values.size() && i < 4
                         ? values[start + i] * 16.0f
                         : 1.0f;
        EXPECT_EQ(1, TOLV_PSDtoDB(8, psd.data(), db.data(), nullptr, 1.0,
                                  range));
        for (int i = 0; i < 4 && start + i < values.size(); i++)
            out.push_back(db[i]);
    }
    return out;
}

/* Hand-derived through the polynomial steps, one float rounding per
 * operation. 10 and 0.1 land one ulp short of +-10 dB and 100 two ulps
 * short of 20 dB; 2 and 0.5 show the factor one ulp below log10(e) (the
 * nearest float would give 0x4040A8C2). */
TEST(PSDtoDB, FloatPathBitsDerivedByHand)
{
    const struct {
        float x;
        uint32_t bits;
    } cases[] = {
        {1.0f, 0x00000000u},   {2.0f, 0x4040A8C0u},  {0.5f, 0xC040A8C0u},
        {0.75f, 0xBF9FEBECu},  {10.0f, 0x411FFFFFu}, {100.0f, 0x419FFFFFu},
        {1e-3f, 0xC1F00000u},  {3.0f, 0x4098ADC6u},  {1e6f, 0x42700000u},
        {0.1f, 0xC11FFFFFu},   {FLT_MIN, 0xC3BDA61Eu},
    };
    std::vector<float> values;
    for (const auto &c : cases)
        values.push_back(c.x);
    const std::vector<float> db = FloatPathDb(values, 1000.0);
    for (size_t i = 0; i < values.size(); i++)
        EXPECT_EQ(cases[i].bits, Bits(db[i]))
            << values[i] << " gave " << db[i] << " expected "
            << FromBits(cases[i].bits);
}

/* The Nyquist bin goes through the double log10: 100 gives exactly 20 dB
 * there, where the float path gives 20 less two ulps. */
TEST(PSDtoDB, NyquistBinTakesTheDoublePath)
{
    GuardedFloats psd(8, 0), db(8, 0);
    for (int i = 0; i < 5; i++)
        psd[i] = 1600.0f; /* x = 100 after g = 1/16 */
    TOLV_PSDtoDB(8, psd.data(), db.data(), nullptr, 1.0, 200.0);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(0x419FFFFFu, Bits(db[i])) << i;
    EXPECT_EQ(20.0f, db[4]);
    EXPECT_EQ(5u, db.WrittenExtent());
}

/* Against 10 log10(x) in double over the whole positive range; denormals are
 * raised to the smallest normal float first, and what is not greater than 0
 * (or NaN) takes the floor. */
TEST(PSDtoDB, FloatPathAgainstDoubleReference)
{
    std::vector<float> values;
    for (int e = -126; e <= 122; e++) /* x 16 must not overflow */
        for (float m : {1.0f, 1.0001f, 1.25f, 1.41421f, 1.41422f, 1.5f,
                        1.75f, 1.99999f})
            values.push_back(ldexpf(m, e));
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(0.5f, 2.0f);
    for (int i = 0; i < 4000; i++)
        values.push_back(unit(rng));
    const double range = 2000.0;
    const std::vector<float> db = FloatPathDb(values, range);
    int64_t worst = 0;
    for (size_t i = 0; i < values.size(); i++) {
        const double ref = 10.0 * log10((double)values[i]);
        /* Near 0 dB the error is absolute, a few ulps of the log. */
        const float scale = fabs(ref) > 1.0 ? (float)ref : 1.0f;
        const double ulp = ldexp(1.0, ilogbf(scale) - 23);
        const double errorUlps = fabs(db[i] - ref) / ulp;
        worst = std::max<int64_t>(worst, (int64_t)ceil(errorUlps));
        ASSERT_LE(errorUlps, 4.0) << values[i] << ": " << db[i] << " vs " << ref;
    }
    RecordProperty("worst_ulps", (int)worst);

    const float smallestNormalDb = FloatPathDb({FLT_MIN}, range)[0];
    const float odd[] = {0.0f, -0.0f, -1.0f, -FLT_MIN, NAN, -INFINITY,
                         FLT_TRUE_MIN, 1e-40f, 0.99f * FLT_MIN};
    const float expected[] = {-2000.0f, -2000.0f, -2000.0f,
                              -2000.0f, -2000.0f, -2000.0f,
                              smallestNormalDb, smallestNormalDb,
                              smallestNormalDb};
    const std::vector<float> got =
        FloatPathDb(std::vector<float>(odd, odd + 9), range);
    for (int i = 0; i < 9; i++)
        EXPECT_TRUE(SameFloat(expected[i], got[i])) << odd[i] << ": " << got[i];
    EXPECT_NEAR(10.0 * log10((double)FLT_MIN), smallestNormalDb, 1e-4);
}

/* Four lanes and eight give the same bits, weighted or not, over ordinary
 * and odd values, with a run that ends in a lone group of four. */
TEST(PSDtoDB, LaneWidthsAgreeToTheBit)
{
    if (_TOLV_DbWidestLanes() != 8)
        GTEST_SKIP() << "this processor has no eight-lane path";
    const int end = 4 * 1001;
    GuardedFloats psd(end, 0), curve(end, 0), four(end, 0), eight(end, 0);
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> mantissa(1.0f, 2.0f);
    std::uniform_int_distribution<int> exponent(-149, 127);
    const float odd[] = {0.0f, -0.0f, -3.0f, NAN, INFINITY, -INFINITY,
                         FLT_TRUE_MIN, FLT_MIN, FLT_MAX};
    for (int i = 0; i < end; i++) {
        psd[i] = i % 10 == 0 ? odd[(i / 10) % 9] : ldexpf(mantissa(rng), exponent(rng));
        curve[i] = mantissa(rng) - 0.5f;
    }
    for (const float *weights : {(const float *)nullptr, (const float *)curve.data()}) {
        for (float ref : {1.0f, 0.37f}) {
            const _TOLV_DbArgs four4 = {psd.data(), four.data(), weights,
                                        1.0f / 289.0f, ref, -150.0f};
            _TOLV_DbArgs eight8 = four4;
            eight8.db = eight.data();
            _TOLV_DbVector(four4, end, 4);
            _TOLV_DbVector(eight8, end, 8);
            for (int i = 0; i < end; i++)
                ASSERT_EQ(Bits(four[i]), Bits(eight[i])) << i << ": " << psd[i];
        }
    }
}

/* The floor applies to values that exist but are very small, in both paths. */
TEST(PSDtoDB, FloorAndZeroBins)
{
    GuardedFloats psd(8, 0), db(8, 0);
    for (int i = 0; i < 8; i++)
        psd[i] = 0.0f;
    psd[1] = 16e-12f; /* -120 dB, below a 60 dB range */
    psd[2] = 16e-3f;  /* -30 dB */
    EXPECT_EQ(1, TOLV_PSDtoDB(8, psd.data(), db.data(), nullptr, 1.0, 60.0));
    EXPECT_EQ(-60.0f, db[0]);
    EXPECT_EQ(-60.0f, db[1]);
    EXPECT_NEAR(-30.0f, db[2], 1e-5);
    EXPECT_EQ(-60.0f, db[3]);
    EXPECT_EQ(-60.0f, db[4]); /* zero in the double path */
    psd[4] = 16e-12f;
    TOLV_PSDtoDB(8, psd.data(), db.data(), nullptr, 1.0, 60.0);
    EXPECT_EQ(-60.0f, db[4]);
    psd[4] = 16e-3f;
    TOLV_PSDtoDB(8, psd.data(), db.data(), nullptr, 1.0, 60.0);
    EXPECT_EQ((float)(10.0 * log10((double)(16e-3f * (1.0f / 16.0f)))), db[4]);
}

/* The reference enters through its square root, and the curve through its
 * square. */
TEST(PSDtoDB, ReferenceAndCurve)
{
    const int n = 64, h = 32;
    GuardedFloats psd(h + 4, 0), plain(h + 4, 0), scaled(h + 4, 0),
        weighted(h + 4, 0), curve(h + 4, 0);
    for (int i = 0; i <= h; i++) {
        psd[i] = (float)(h * h) * (0.01f + i);
        curve[i] = 2.0f;
    }
    TOLV_PSDtoDB(n, psd.data(), plain.data(), nullptr, 1.0, 300.0);
    TOLV_PSDtoDB(n, psd.data(), scaled.data(), nullptr, 100.0, 300.0);
    TOLV_PSDtoDB(n, psd.data(), weighted.data(), curve.data(), 1.0, 300.0);
    for (int i = 0; i <= h; i++) {
        EXPECT_NEAR(10.0 * log10(0.01 + i), plain[i], 2e-5) << i;
        EXPECT_NEAR(plain[i] - 10.0, scaled[i], 2e-5) << i;
        EXPECT_NEAR(plain[i] + 10.0 * log10(4.0), weighted[i], 2e-5) << i;
    }

    /* A negative reference makes every x NaN, which ends at the floor in
     * both paths; a reference of 0 makes x infinite, and the double path
     * gives +inf. */
    TOLV_PSDtoDB(n, psd.data(), scaled.data(), nullptr, -1.0, 300.0);
    for (int i = 0; i <= h; i++)
        EXPECT_EQ(-300.0f, scaled[i]) << i;
    TOLV_PSDtoDB(n, psd.data(), scaled.data(), nullptr, 0.0, 300.0);
    EXPECT_EQ(INFINITY, scaled[h]);
}

/* Short frames: the one-sample tail at N = 1 and the single group at N = 2,
 * with the entries written counted against guard values. */
TEST(PSDtoDB, ShortFramesAndRefusals)
{
    GuardedFloats psd(8, 0), db(4, 16);
    for (int i = 0; i < 8; i++)
        psd[i] = 0.0f;
    psd[0] = 0.25f;
    /* N = 1: H = 0, g infinite, no group, one sample. */
    EXPECT_EQ(1, TOLV_PSDtoDB(1, psd.data(), db.data(), nullptr, 1.0, 90.0));
    EXPECT_EQ(INFINITY, db[0]);
    EXPECT_EQ(1u, db.WrittenExtent());
    psd[0] = 0.0f; /* 0 x inf = NaN: the floor */
    TOLV_PSDtoDB(1, psd.data(), db.data(), nullptr, 1.0, 90.0);
    EXPECT_EQ(-90.0f, db[0]);

    /* N = 2: H = 1, one group of four, then index 1 from the tail. */
    psd[0] = 1.0f;
    psd[1] = 0.01f;
    TOLV_PSDtoDB(2, psd.data(), db.data(), nullptr, 1.0, 90.0);
    EXPECT_EQ(0.0f, db[0]);
    EXPECT_EQ((float)(10.0 * log10((double)0.01f)), db[1]);
    EXPECT_EQ(-90.0f, db[2]);
    EXPECT_EQ(4u, db.WrittenExtent());

    /* N = 12: H = 6, two groups reach index 7; H comes from the tail. */
    GuardedFloats wide(8, 16);
    for (int i = 0; i < 8; i++)
        psd[i] = 36.0f;
    TOLV_PSDtoDB(12, psd.data(), wide.data(), nullptr, 1.0, 90.0);
    EXPECT_EQ(8u, wide.WrittenExtent());
    /* P x g is rounded in float before it is widened: 36 x (1/36) is then
     * exactly 1 and the bin exactly 0 dB (widening first gives 3.2e-8). */
    EXPECT_EQ(0.0f, wide[6]);

    GuardedFloats untouched(4, 0);
    EXPECT_EQ(0, TOLV_PSDtoDB(0, psd.data(), untouched.data(), nullptr, 1, 90));
    EXPECT_EQ(0, TOLV_PSDtoDB(-8, psd.data(), untouched.data(), nullptr, 1, 90));
    EXPECT_EQ(0, TOLV_PSDtoDB(8, nullptr, untouched.data(), nullptr, 1, 90));
    EXPECT_EQ(0, TOLV_PSDtoDB(8, psd.data(), nullptr, nullptr, 1, 90));
    EXPECT_EQ(0u, untouched.WrittenExtent());
}

/* A full-scale sine at a bin centre through a rectangular window: the PSD
 * peak is (N / 2)^2 and reads 0 dB at reference 1. */
TEST(PSDtoDB, FullScaleSineIsZeroDecibels)
{
    for (int n : {256, 1024, 4096}) {
        _TOLV_FFTPROC *proc = TOLV_FFTProcCreate(n);
        GuardedFloats frame(n, 0), window(n, 0), psd(4 * (n / 8 + 1), 0),
            db(4 * (n / 8 + 1), 0);
        ASSERT_EQ(1, TOLV_CreateWindow(0, window.data(), n));
        const int bin = n / 16;
        for (int t = 0; t < n; t++)
            frame[t] = (float)sin(2.0 * M_PI * bin * t / n);
        TOLV_ApplyWindow(window.data(), frame.data(), n);
        TOLV_FFTProcExecutePSDEx(proc, frame.data(), psd.data(), nullptr);
        EXPECT_NEAR((double)(n / 2) * (n / 2), psd[bin], 1e-4 * n * n);
        ASSERT_EQ(1, TOLV_PSDtoDB(n, psd.data(), db.data(), nullptr, 1.0, 120.0));
        EXPECT_NEAR(0.0, db[bin], 1e-4) << n;
        EXPECT_LT(db[bin + 3], -60.0f);
        TOLV_FFTProcDestroy(proc);
    }
}

TEST(PreEmphAdjust, CurveOfTheFirstOrderDifference)
{
    GuardedFloats curve(33, 8);
    EXPECT_EQ(1, TOLV_CreatePreEmphAdjust(curve.data(), 64, 0.0));
    for (int i = 0; i <= 32; i++)
        EXPECT_EQ(1.0f, curve[i]) << i;
    EXPECT_EQ(33u, curve.WrittenExtent());

    EXPECT_EQ(1, TOLV_CreatePreEmphAdjust(curve.data(), 64, 0.97));
    EXPECT_NEAR(0.03f, curve[0], 1e-7);
    EXPECT_EQ(1.97f, curve[32]);
    for (int i = 1; i <= 32; i++) {
        const double w = M_PI * i / 32;
        EXPECT_NEAR(sqrt(1.0 - 2.0 * 0.97 * cos(w) + 0.97 * 0.97), curve[i], 2e-7);
        EXPECT_GT(curve[i], curve[i - 1]);
    }

    /* Odd frames truncate H: N = 65 has the same 33 bins. */
    GuardedFloats odd(33, 8);
    TOLV_CreatePreEmphAdjust(odd.data(), 65, 0.97);
    EXPECT_EQ(33u, odd.WrittenExtent());
    EXPECT_EQ(Bits(curve[5]), Bits(odd[5]));
}

TEST(PreEmphAdjust, DegenerateLengths)
{
    for (int n : {0, 1, -1}) {
        GuardedFloats curve(1, 8);
        EXPECT_EQ(1, TOLV_CreatePreEmphAdjust(curve.data(), n, 0.5));
        EXPECT_TRUE(isnan(curve[0])) << n; /* 0 / 0 */
        EXPECT_EQ(1u, curve.WrittenExtent());
    }
    for (int n : {-2, -3, -100}) {
        GuardedFloats curve(0, 8);
        EXPECT_EQ(1, TOLV_CreatePreEmphAdjust(curve.data(), n, 0.5));
        EXPECT_EQ(0u, curve.WrittenExtent());
    }
}

} // namespace
