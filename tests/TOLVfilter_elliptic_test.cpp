/*
 * The elliptic prototype: the reference figures, the equiripple behaviour of
 * the designs in both bands, the low orders, the refusals and the odd
 * results at degenerate selectivities.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "TOLVfilter/design.h"
#include "filter_design_util.h"
#include "filter_test_util.h"

namespace {

const double kInf = HUGE_VAL;

struct Elliptic : RootLists {
    int ok;
    double ratio;
    Elliptic(double r, double Ap, double As, int N) : RootLists(N), ratio(r)
    {
        ok = _EllipticDesign(1.0, r, Ap, As, N, p(), z(), &gain);
    }
    double Db(double w) const
    {
        return ::Db(std::abs(RootResponse(*this, N, {0.0, w})));
    }
};

void ExpectNear(double got, double expect, double rel = 2e-14)
{
    EXPECT_NEAR(got, expect, rel * std::max(1.0, std::fabs(expect)));
}

/* The pole offset sigma0 and the constant W of a design, recovered from
 * its roots: a real pole lies at -sqrt(ratio) sigma0, and every pair obeys
 * |p|^2 d^2 / ratio = (sigma0 V)^2 + (Omega W)^2 with Omega the zero's
 * frequency in the scale where the edges' geometric mean is 1. */
double RecoverW(const Elliptic &e, double sigma0, int pair)
{
    const double k = 1.0 / e.ratio;
    const double Omega = std::sqrt(e.ratio) / std::abs(e.zeros[pair]);
    const double V = std::sqrt((1 - Omega * Omega / k) * (1 - k * Omega * Omega));
    const double d = 1 + sigma0 * sigma0 * Omega * Omega;
    const double b0 = std::norm(e.poles[pair]) / e.ratio;
    return std::sqrt(b0 * d * d - sigma0 * V * sigma0 * V) / Omega;
}

TEST(EllipticDesign, FifthOrderFigures)
{
    Elliptic e(1.5, 1.0, 40.0, 5);
    ASSERT_EQ(e.ok, 1);
    ExpectNear(_EllipticNome(1.0 / 1.5), 0.0366708360580363);
    ExpectNear(e.poles[0].real(), -0.228874845482843);
    ExpectNear(e.poles[0].imag(), 0.681678098042151);
    ExpectNear(e.poles[1].real(), -0.0665406934564246);
    ExpectNear(e.poles[1].imag(), 0.995253694297235);
    ExpectNear(e.poles[2].real(), -0.337846549651298);
    EXPECT_EQ(e.poles[2].imag(), 0.0);
    EXPECT_EQ(e.zeros[0].real(), 0.0);
    ExpectNear(e.zeros[0].imag(), 2.33187577211178);
    EXPECT_EQ(e.zeros[1].real(), 0.0);
    ExpectNear(e.zeros[1].imag(), 1.55740639082786);
    EXPECT_EQ(e.zeros[2], _ROOT(kInf, 0.0));
    EXPECT_NEAR(e.gain, 0.0131782456, 5e-11);

    const double sigma0 = -e.poles[2].real() / std::sqrt(1.5);
    ExpectNear(sigma0, 0.275850552668514);
    for (int pair = 0; pair < 2; pair++)
        EXPECT_NEAR(RecoverW(e, sigma0, pair), 1.08197020952348, 1e-12);

    EXPECT_NEAR(e.Db(0.0), 0.0, 1e-12);
    EXPECT_NEAR(e.Db(1.0), -1.000, 5e-4);
}

TEST(EllipticDesign, FourthOrderFigures)
{
    Elliptic e(1.5, 1.0, 40.0, 4);
    ASSERT_EQ(e.ok, 1);
    ExpectNear(e.poles[0].real(), -0.364996829209362);
    ExpectNear(e.poles[0].imag(), 0.480694176658241);
    ExpectNear(e.poles[1].real(), -0.104411593888309);
    ExpectNear(e.poles[1].imag(), 0.993938796280653);
    ExpectNear(e.zeros[0].imag(), 3.47840617429832);
    ExpectNear(e.zeros[1].imag(), 1.59234198972369);
    EXPECT_NEAR(e.gain, 0.0105705845, 5e-11);
    /* An even design has its ripple bottom at zero frequency. */
    EXPECT_NEAR(e.Db(0.0), -1.000, 5e-4);
    EXPECT_NEAR(e.Db(1.0), -1.000, 5e-4);
    /* Nothing is written past the pairs. */
    EXPECT_TRUE(IsAllOnes(e.poles[2]) && IsAllOnes(e.zeros[2]));
}

/* Local maxima and minima of a sampled curve, with both ends. */
std::vector<double> Extremes(const std::vector<double> &v)
{
    std::vector<double> x = {v.front()};
    for (size_t i = 1; i + 1 < v.size(); i++)
        if ((v[i] > v[i - 1] && v[i] >= v[i + 1]) ||
            (v[i] < v[i - 1] && v[i] <= v[i + 1]))
            x.push_back(v[i]);
    x.push_back(v.back());
    return x;
}

TEST(EllipticDesign, RippleIsEqualInBothBands)
{
    /* The closed form truncates its series, so the ripple is equal to a
     * thousandth of a dB rather than to rounding. */
    struct Case {
        double ratio, Ap;
        int N;
    } cases[] = {{1.5, 1.0, 5}, {1.5, 1.0, 4}, {1.2, 0.5, 6}, {2.0, 0.1, 3},
                 {1.1, 2.0, 7}};
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.ratio << " " << c.Ap << " " << c.N);
        Elliptic e(c.ratio, c.Ap, 40.0, c.N);
        ASSERT_EQ(e.ok, 1);
        /* Passband: between 0 and -Ap dB, touching both N + 1 times. */
        std::vector<double> pass;
        for (int i = 0; i <= 40000; i++)
            pass.push_back(e.Db(i / 40000.0));
        const std::vector<double> px = Extremes(pass);
        EXPECT_EQ((int)px.size(), c.N + 1);
        for (size_t i = 0; i < px.size(); i++) {
            const bool top = (c.N - (int)i) % 2 == 1;
            EXPECT_NEAR(px[i], top ? 0.0 : -c.Ap, 1e-3) << i;
        }
        EXPECT_LE(*std::max_element(pass.begin(), pass.end()), 1e-3);
        EXPECT_GE(*std::min_element(pass.begin(), pass.end()), -c.Ap - 1e-3);
        /* Stopband: every peak of the response is at the same loss: the
         * edge, one between each two zeros, and beyond the last zero one
         * more for an odd order, the level at infinite frequency (K) for
         * an even one. */
        std::vector<double> stop;
        for (int i = 0; i <= 100000; i++)
            stop.push_back(e.Db(c.ratio * std::pow(100.0, i / 100000.0)));
        std::vector<double> peaks = {stop.front()};
        for (size_t i = 1; i + 1 < stop.size(); i++)
            if (stop[i] > stop[i - 1] && stop[i] >= stop[i + 1])
                peaks.push_back(stop[i]);
        if (c.N % 2 == 0)
            peaks.push_back(Db(e.gain));
        EXPECT_EQ((int)peaks.size(), c.N / 2 + 1);
        for (double pk : peaks)
            EXPECT_NEAR(pk, peaks[0], 1e-3);
        EXPECT_LE(*std::max_element(stop.begin(), stop.end()), peaks[0] + 1e-3);
    }
}

TEST(EllipticDesign, OrderFromTheEstimateMeetsAs)
{
    for (double As : {30.0, 40.0, 60.0, 80.0}) {
        const int N = _EllipticOrder(1.0, 1.5, 1.0, As);
        Elliptic e(1.5, 1.0, As, N);
        Elliptic lower(1.5, 1.0, As, N - 1);
        EXPECT_LE(e.Db(1.5), -As) << As;
        EXPECT_GT(lower.Db(1.5), -As) << As;
    }
}

TEST(EllipticDesign, LowOrders)
{
    /* Order 1: one real pole, K its magnitude, the zero at infinity. The
     * loss at the edge is what the formulas give, not Ap. */
    Elliptic one(3.0, 3.0, 40.0, 1);
    ASSERT_EQ(one.ok, 1);
    EXPECT_EQ(one.poles[0].imag(), 0.0);
    EXPECT_LT(one.poles[0].real(), 0.0);
    EXPECT_EQ(one.gain, -one.poles[0].real());
    EXPECT_EQ(one.zeros[0], _ROOT(kInf, 0.0));
    EXPECT_NEAR(-one.Db(1.0), 2.75, 0.005);
    EXPECT_GT(std::fabs(-one.Db(1.0) - 3.0), 0.2);

    /* Order 2: one pair, and the gain starts at the ripple bottom. */
    Elliptic two(1.5, 2.0, 40.0, 2);
    ASSERT_EQ(two.ok, 1);
    EXPECT_NE(two.poles[0].imag(), 0.0);
    EXPECT_TRUE(IsAllOnes(two.poles[1]));
    EXPECT_NEAR(std::abs(RootResponse(two, 2, 0.0)), std::pow(10.0, -0.1), 1e-14);
}

TEST(EllipticDesign, RefusalsWriteNothing)
{
    const double args[][3] = {{-1.0, 1.0, 40.0}, {0.0, 1.0, 40.0},
                              {1.5, 0.0, 40.0},  {1.5, -1.0, 40.0},
                              {1.5, 1.0, 0.0},   {1.5, 1.0, -1.0},
                              {NAN, 1.0, 40.0},  {1.5, NAN, 40.0}};
    MessageLog log;
    for (const auto &a : args) {
        RootLists r(3);
        r.gain = 5.0;
        EXPECT_EQ(_EllipticDesign(1.0, a[0], a[1], a[2], 3, r.p(), r.z(), &r.gain),
                  0);
        EXPECT_EQ(r.gain, 5.0);
        EXPECT_TRUE(IsAllOnes(r.poles[0]) && IsAllOnes(r.zeros[0]));
    }
    EXPECT_TRUE(log.entries.empty());
}

TEST(EllipticDesign, AsOnlyHasToBePositive)
{
    Elliptic a(1.5, 1.0, 1e-3, 5), b(1.5, 1.0, 200.0, 5);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(a.poles[i], b.poles[i]);
        EXPECT_EQ(a.zeros[i], b.zeros[i]);
    }
    EXPECT_EQ(a.gain, b.gain);
}

TEST(EllipticDesign, SelectivityBelowOneGivesNaNAndSucceeds)
{
    Elliptic e(0.8, 1.0, 40.0, 4);
    EXPECT_EQ(e.ok, 1);
    EXPECT_TRUE(std::isnan(e.poles[0].real()));
    EXPECT_TRUE(std::isnan(e.zeros[1].imag()));
    EXPECT_TRUE(std::isnan(e.gain));
}

TEST(EllipticDesign, HugeSelectivityDrivesTheNomeToZero)
{
    Elliptic e(1e300, 1.0, 40.0, 3);
    EXPECT_EQ(e.ok, 1);
    EXPECT_EQ(_EllipticNome(1e-300), 0.0);
    /* sigma0 and Omega are 0: the real pole sits at 0, the zeros at an
     * infinite frequency. */
    EXPECT_EQ(e.poles[1].real(), 0.0);
    EXPECT_TRUE(std::isinf(e.zeros[0].imag()));
}

/* The cosine-type sum divides by its old value with its sign, so a sum
 * that starts negative stops after its second term. For sigma0 it always
 * does; with a small Ap and a selectivity near 1 the later terms would
 * matter, and the design must not take them. */
TEST(EllipticDesign, PoleOffsetSumStopsAfterTwoTerms)
{
    const int N = 3;
    const double ratio = 1.05, Ap = 0.01;
    Elliptic e(ratio, Ap, 40.0, N);
    ASSERT_EQ(e.ok, 1);
    const double k = 1 / ratio, kc = std::sqrt(1 - k * k), s = std::sqrt(kc);
    const double q0 = 0.5 * (1 - s) / (1 + s);
    const double q = q0 + 2 * std::pow(q0, 5) + 15 * std::pow(q0, 9) +
                     150 * std::pow(q0, 13);
    const double ep = std::pow(10.0, 0.05 * Ap);
    const double L = std::log((ep + 1) / (ep - 1)) / (2 * N);
    double S = 0;
    for (int m = 0; m < 30; m++)
        S += ((m & 1) ? -1 : 1) * std::pow(q, m * (m + 1.0)) * std::sinh((2 * m + 1) * L);
    const double twoTerms = -q * std::cosh(2 * L) + std::pow(q, 4) * std::cosh(4 * L);
    double converged = 0;
    for (int m = 1; m < 30; m++)
        converged += ((m & 1) ? -1 : 1) * std::pow(q, (double)m * m) * std::cosh(2 * m * L);
    auto sigma = [&](double U) {
        return std::fabs(S * 2 * std::pow(q, 0.25) / (1 + 2 * U));
    };
    const double got = -e.poles[1].real() / std::sqrt(ratio);
    EXPECT_NEAR(got, sigma(twoTerms), 1e-12 * sigma(twoTerms));
    EXPECT_GT(std::fabs(got - sigma(converged)), 1e-6 * got);
}

} // namespace
