/*
 * Design stages on their own: order estimates, the Butterworth and
 * Chebyshev prototypes, the bilinear step and the lowpass/highpass z-plane
 * transformation, and the pairing of roots into sections. Prototypes are
 * checked against the textbook magnitude formulas, evaluated here in double.
 */
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "TOLVfilter/design.h"
#include "TOLVfilter/filter.h"
#include "filter_design_util.h"
#include "filter_test_util.h"

namespace {

const double kInf = HUGE_VAL;

/* ---- Order estimates ---------------------------------------------------- */

struct OrderCase {
    const char *name;
    double ratio, Ap, As;
    int butter, cheby, ellip;
};

TEST(DesignOrder, EstimatesOfTheFourApproximations)
{
    const OrderCase cases[] = {
        /* The reference design. */
        {"ratio 1.5, Ap 1, As 40", 1.5, 1.0, 40.0, 14, 7, 5},
        /* A loss ratio D of 1 gives a zero quotient: truncation plus one. */
        {"D = 1", 2.0, 3.0, 3.0, 1, 1, 1},
        /* A passband loss above the stopband loss: the Butterworth quotient
         * is negative and truncates toward zero; the Chebyshev one takes
         * acosh below 1, a NaN. */
        {"D below 1", 2.0, 6.0, 3.0, 1, INT_MIN + 1, 1},
        {"wide transition", 4.0, 0.5, 60.0, 6, 5, 4},
    };
    for (const OrderCase &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(_ButterworthOrder(1.0, c.ratio, c.Ap, c.As), c.butter);
        EXPECT_EQ(_ChebyshevOrder(1.0, c.ratio, c.Ap, c.As), c.cheby);
        EXPECT_EQ(_ChebyshevIIOrder(1.0, c.ratio, c.Ap, c.As), c.cheby);
        EXPECT_EQ(_EllipticOrder(1.0, c.ratio, c.Ap, c.As), c.ellip);
    }
}

TEST(DesignOrder, EstimatesMeetTheLossesTheyWereAskedFor)
{
    /* The Butterworth order is the least one whose loss at the stop edge
     * reaches As; one less misses it. */
    const double ratio = 1.3, Ap = 0.5, As = 50.0;
    const int N = _ButterworthOrder(1.0, ratio, Ap, As);
    const double e2 = std::pow(10.0, Ap / 10.0) - 1.0;
    auto lossAt = [&](int n) {
        return 10.0 * std::log10(1.0 + e2 * std::pow(ratio, 2.0 * n));
    };
    EXPECT_GE(lossAt(N), As);
    EXPECT_LT(lossAt(N - 1), As);
    /* The same for Chebyshev. */
    const int C = _ChebyshevOrder(1.0, ratio, Ap, As);
    auto chebLoss = [&](int n) {
        const double t = ChebyshevT(n, ratio);
        return 10.0 * std::log10(1.0 + e2 * t * t);
    };
    EXPECT_GE(chebLoss(C), As);
    EXPECT_LT(chebLoss(C - 1), As);
}

TEST(DesignOrder, NonPositiveArgumentsGiveMinusOne)
{
    const double bad[][3] = {{0.0, 1.0, 40.0}, {-1.0, 1.0, 40.0},
                             {1.5, 0.0, 40.0}, {1.5, -3.0, 40.0},
                             {1.5, 1.0, 0.0},  {1.5, 1.0, -1.0}};
    for (const auto &b : bad) {
        SCOPED_TRACE(testing::Message() << b[0] << " " << b[1] << " " << b[2]);
        EXPECT_EQ(_ButterworthOrder(1.0, b[0], b[1], b[2]), -1);
        EXPECT_EQ(_ChebyshevOrder(1.0, b[0], b[1], b[2]), -1);
        EXPECT_EQ(_ChebyshevIIOrder(1.0, b[0], b[1], b[2]), -1);
    }
}

TEST(DesignOrder, DegenerateQuotientsConvertToTheMostNegativeInteger)
{
    /* ratio 1 divides by log10(1) = acosh(1) = 0. */
    EXPECT_EQ(_ButterworthOrder(1.0, 1.0, 1.0, 40.0), INT_MIN + 1);
    EXPECT_EQ(_ChebyshevOrder(1.0, 1.0, 1.0, 40.0), INT_MIN + 1);
    EXPECT_EQ(_ChebyshevIIOrder(1.0, 1.0, 1.0, 40.0), INT_MIN + 1);
    /* A NaN passes the argument test and converts alike. */
    EXPECT_EQ(_ButterworthOrder(1.0, NAN, 1.0, 40.0), INT_MIN + 1);
    EXPECT_EQ(_ChebyshevOrder(1.0, 1.5, NAN, 40.0), INT_MIN + 1);
    /* The elliptic estimate below ratio 1 takes the root of a negative
     * number; the 1 is added before the conversion. */
    EXPECT_EQ(_EllipticOrder(1.0, 0.5, 1.0, 40.0), INT_MIN);
}

TEST(DesignOrder, EllipticEstimateAcceptsAMissingStopband)
{
    /* ratio -1: k^2 = 1, so the nome is the series at q0 = 0.5. */
    const double q = _EllipticNome(1.0 / -1.0);
    EXPECT_NEAR(q, 0.6101074, 5e-8);
    EXPECT_DOUBLE_EQ(q, 0.5 + 2 * std::pow(0.5, 5) + 15 * std::pow(0.5, 9) +
                            150 * std::pow(0.5, 13));
    const int N = _EllipticOrder(1.0, -1.0, 1.0, 40.0);
    const double D = (std::pow(10.0, 4.0) - 1.0) / (std::pow(10.0, 0.1) - 1.0);
    EXPECT_GT(N, 0);
    EXPECT_EQ(N, (int)(1.0 + std::log10(16.0 * D) / std::log10(1.0 / q)));
}

/* ---- Butterworth and Chebyshev prototypes -------------------------------- */

/* Runs a design into fresh lists; the design's result is kept in `ok`. */
struct Designed : RootLists {
    int ok;
    Designed(_PROTOTYPE_DESIGN design, double ratio, double Ap, double As,
             int N)
        : RootLists(N)
    {
        ok = design(1.0, ratio, Ap, As, N, p(), z(), &gain);
    }
    double LossDb(double w) const
    {
        return -Db(std::abs(RootResponse(*this, N, {0.0, w})));
    }
};

void ExpectRoot(const _ROOT &got, double re, double im, double tol = 2e-14)
{
    EXPECT_NEAR(got.real(), re, tol * std::max(1.0, std::fabs(re)));
    EXPECT_NEAR(got.imag(), im, tol * std::max(1.0, std::fabs(im)));
}

TEST(DesignPrototype, ButterworthThirdOrderFigures)
{
    Designed d(_ButterworthDesign, -1.0, 1.0, -1.0, 3);
    ASSERT_EQ(d.ok, 1);
    ExpectRoot(d.poles[0], -0.626288203315583, 1.08476298832362);
    ExpectRoot(d.poles[1], -1.25257640663117, 0.0);
    EXPECT_NEAR(d.gain, 1.96522681520218, 2e-14);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(d.zeros[i], _ROOT(kInf, 0.0));
    /* The ripple factor is carried as a float: the edge loss is that of the
     * narrowed eps exactly, which differs from Ap itself in the 8th digit. */
    const float eps = 0.5088471174240112f;
    EXPECT_EQ((double)eps, 0.5088471174240112);
    EXPECT_NEAR(d.LossDb(1.0), 10.0 * std::log10(1.0 + (double)eps * eps),
                1e-13);
    EXPECT_GT(std::fabs(d.LossDb(1.0) - 1.0), 1e-9);
}

TEST(DesignPrototype, ChebyshevThirdOrderFigures)
{
    Designed d(_ChebyshevDesign, -1.0, 1.0, -1.0, 3);
    ASSERT_EQ(d.ok, 1);
    /* Right half plane, on purpose. */
    ExpectRoot(d.poles[0], 0.24708530247119, 0.965998674994867);
    ExpectRoot(d.poles[1], 0.49417060494238, 0.0);
    EXPECT_NEAR(d.gain, 0.491306682090068, 2e-14);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(d.zeros[i], _ROOT(kInf, 0.0));
}

TEST(DesignPrototype, ButterworthPolesLieOnACircleAndMatchTheFormula)
{
    for (double Ap : {0.5, 1.0, 3.0}) {
        for (int N = 1; N <= 9; N++) {
            SCOPED_TRACE(testing::Message() << "Ap " << Ap << " N " << N);
            Designed d(_ButterworthDesign, -1.0, Ap, -1.0, N);
            ASSERT_EQ(d.ok, 1);
            const double eps = (float)std::sqrt(std::pow(10.0, Ap / 10) - 1);
            const double R = std::pow(eps, -1.0 / N);
            for (const _ROOT &p : Unpack(d.poles, N)) {
                EXPECT_NEAR(std::abs(p), R, 1e-14 * R);
                EXPECT_LT(p.real(), 0.0);
            }
            EXPECT_NEAR(std::abs(RootResponse(d, N, 0.0)), 1.0, 1e-13);
            for (double w : {0.25, 0.8, 1.0, 1.7, 4.0}) {
                const double expect =
                    10 * std::log10(1 + eps * eps * std::pow(w, 2.0 * N));
                EXPECT_NEAR(d.LossDb(w), expect, 1e-11 * std::max(1.0, expect));
            }
        }
    }
}

TEST(DesignPrototype, ChebyshevMatchesTheRipplePolynomial)
{
    for (double Ap : {0.25, 1.0, 3.0}) {
        for (int N = 1; N <= 8; N++) {
            SCOPED_TRACE(testing::Message() << "Ap " << Ap << " N " << N);
            Designed d(_ChebyshevDesign, -1.0, Ap, -1.0, N);
            ASSERT_EQ(d.ok, 1);
            const double e2 = std::pow(10.0, Ap / 10) - 1;
            for (const _ROOT &p : Unpack(d.poles, N))
                EXPECT_GT(p.real(), 0.0);
            /* w = 0 included: an even order starts at the ripple bottom. */
            for (double w : {0.0, 0.3, 0.77, 1.0, 1.4, 3.0}) {
                const double t = ChebyshevT(N, w);
                const double expect = 10 * std::log10(1 + e2 * t * t);
                EXPECT_NEAR(d.LossDb(w), expect, 1e-10 * std::max(1.0, expect));
            }
        }
    }
}

TEST(DesignPrototype, FirstOrderPrototypes)
{
    const double eps = std::sqrt(std::pow(10.0, 0.3) - 1);
    Designed b(_ButterworthDesign, -1.0, 3.0, -1.0, 1);
    const double R = 1.0 / (double)(float)eps;
    EXPECT_NEAR(b.poles[0].real(), -R, 1e-15 * R);
    EXPECT_EQ(b.poles[0].imag(), 0.0);
    EXPECT_NEAR(b.gain, R, 1e-15 * R);
    Designed c(_ChebyshevDesign, -1.0, 3.0, -1.0, 1);
    EXPECT_NEAR(c.poles[0].real(), 1.0 / eps, 1e-15 / eps);
    EXPECT_NEAR(c.gain, 1.0 / eps, 1e-15 / eps);
}

TEST(DesignPrototype, ChebyshevIIFigures)
{
    Designed d(_ChebyshevIIDesign, 1.5, 1.0, 40.0, 3);
    ASSERT_EQ(d.ok, 1);
    ExpectRoot(d.poles[0], -0.241723508400091, 0.443899726439577);
    ExpectRoot(d.poles[1], 0.528449266968946, 0.0);
    ExpectRoot(d.zeros[0], 0.0, 1.73205080756888);
    EXPECT_EQ(d.zeros[1], _ROOT(kInf, 0.0));
    EXPECT_NEAR(d.gain, 0.0450022501687641, 1e-15);
    EXPECT_NEAR(d.LossDb(1.5), 40.0, 1e-11);
}

TEST(DesignPrototype, ChebyshevIIMatchesTheInverseRipplePolynomial)
{
    /* |H|^2 = T^2 / (E^2 + T^2) with T = T_N(ratio / w) and a loss of As at
     * the stop edge. */
    for (int N = 1; N <= 8; N++) {
        SCOPED_TRACE(N);
        const double ratio = 1.8, As = 35.0;
        Designed d(_ChebyshevIIDesign, ratio, 0.5, As, N);
        ASSERT_EQ(d.ok, 1);
        const double E2 = std::pow(10.0, As / 10) - 1;
        for (double w : {0.1, 0.5, 1.0, 1.8, 2.5, 7.0}) {
            const double t = ChebyshevT(N, ratio / w);
            const double expect = -10 * std::log10(t * t / (E2 + t * t));
            EXPECT_NEAR(d.LossDb(w), expect, 1e-10 * std::max(1.0, expect));
        }
        EXPECT_NEAR(std::abs(RootResponse(d, N, 0.0)), 1.0, 1e-12);
    }
}

TEST(DesignPrototype, ChebyshevIIStopEdgeFromAsAlone)
{
    /* Without a stop edge the edge is the one at which order N and Ap give
     * exactly As. */
    const double Ap = 1.0, As = 40.0;
    const int N = 4;
    Designed d(_ChebyshevIIDesign, -1.0, Ap, As, N);
    ASSERT_EQ(d.ok, 1);
    const double D = (std::pow(10.0, As / 10) - 1) / (std::pow(10.0, Ap / 10) - 1);
    const double ratio = std::cosh(std::acosh(std::sqrt(D)) / N);
    EXPECT_NEAR(d.LossDb(ratio), As, 1e-10);
    EXPECT_NEAR(std::abs(d.zeros[0]), ratio / std::cos(M_PI / 8), 1e-13);
}

TEST(DesignPrototype, ChebyshevIIStopLossFromTheEdgeAlone)
{
    /* Without As the loss at the stop edge is T^2 (10 L) + 1 dB, with
     * T = T_N(ratio) and L = log10(10^(Ap/10) - 1), as the formula stands. */
    const double ratio = 1.5, Ap = 4.0;
    const int N = 3;
    Designed d(_ChebyshevIIDesign, ratio, Ap, -1.0, N);
    ASSERT_EQ(d.ok, 1);
    const double T = ChebyshevT(N, ratio);
    const double L = std::log10(std::pow(10.0, Ap / 10) - 1);
    EXPECT_NEAR(d.LossDb(ratio), T * T * (10 * L) + 1, 1e-9);
    /* Below about 3.01 dB, L is negative and everything turns NaN, while
     * the design still succeeds. */
    Designed nan(_ChebyshevIIDesign, ratio, 1.0, 0.0, N);
    EXPECT_EQ(nan.ok, 1);
    EXPECT_TRUE(std::isnan(nan.poles[0].real()));
    EXPECT_TRUE(std::isnan(nan.poles[1].real()));
    EXPECT_TRUE(std::isnan(nan.gain));
}

TEST(DesignPrototype, ChebyshevIINeedsAStopEdgeOrAs)
{
    MessageLog log;
    Designed d(_ChebyshevIIDesign, -1.0, 1.0, 0.0, 3);
    EXPECT_EQ(d.ok, 0);
    ASSERT_EQ(log.entries.size(), 1u);
    EXPECT_EQ(log.entries[0].level, KEEL_LEVEL_ERROR);
    EXPECT_EQ(log.entries[0].code, -1);
    EXPECT_EQ(log.entries[0].text,
              "TOLV_CreateFilter: Type II Chebyshev filters require fstop or As");
    EXPECT_TRUE(IsAllOnes(d.poles[0]) && IsAllOnes(d.zeros[0]));
}

TEST(DesignPrototype, ChebyshevIIEvenOrderWritesOnlyThePairs)
{
    Designed d(_ChebyshevIIDesign, 1.5, 1.0, 40.0, 4);
    ASSERT_EQ(d.ok, 1);
    for (int i = 0; i < 2; i++) {
        EXPECT_NE(d.poles[i].imag(), 0.0);
        EXPECT_NE(d.zeros[i].imag(), 0.0);
    }
    for (int i = 2; i < 4; i++) {
        EXPECT_TRUE(IsAllOnes(d.poles[i]));
        EXPECT_TRUE(IsAllOnes(d.zeros[i]));
    }
}

TEST(DesignPrototype, RefusedArgumentsWriteNothing)
{
    struct Refusal {
        _PROTOTYPE_DESIGN design;
        double Ap;
        int N;
    } refusals[] = {
        {_ButterworthDesign, 0.0, 3},  {_ButterworthDesign, -1.0, 3},
        {_ButterworthDesign, 1.0, 0},  {_ButterworthDesign, 1.0, -2},
        {_ChebyshevDesign, 0.0, 3},    {_ChebyshevDesign, 1.0, 0},
        {_ChebyshevIIDesign, -0.5, 3}, {_ChebyshevIIDesign, 1.0, 0},
    };
    MessageLog log;
    for (const Refusal &r : refusals) {
        RootLists lists(3);
        lists.gain = 42.0;
        EXPECT_EQ(r.design(1.0, 1.5, r.Ap, 40.0, r.N, lists.p(), lists.z(),
                           &lists.gain),
                  0);
        EXPECT_EQ(lists.gain, 42.0);
        for (int i = 0; i < 3; i++)
            EXPECT_TRUE(IsAllOnes(lists.poles[i]) && IsAllOnes(lists.zeros[i]));
    }
    EXPECT_TRUE(log.entries.empty());
}

/* ---- Bilinear step and lowpass/highpass transformation ------------------- */

TEST(DesignBilinear, MapsTheFrequencyAxisWithItsTangent)
{
    /* The digital prototype at angle theta equals the analog one at
     * s = j tan(theta / 2), for every approximation. */
    struct Proto {
        _PROTOTYPE_DESIGN design;
        double ratio, As;
        int N;
    } protos[] = {{_ButterworthDesign, -1, -1, 5}, {_ChebyshevDesign, -1, -1, 4},
                  {_ChebyshevIIDesign, 1.5, 40, 5}, {_EllipticDesign, 1.5, 40, 4}};
    for (const Proto &pr : protos) {
        Designed analog(pr.design, pr.ratio, 1.0, pr.As, pr.N);
        Designed digital(pr.design, pr.ratio, 1.0, pr.As, pr.N);
        _BilinearPrototype(pr.N, digital.p(), digital.z(), &digital.gain);
        for (double theta : {0.0, 0.4, M_PI / 2, 2.0, 3.0}) {
            const double ha =
                std::abs(RootResponse(analog, pr.N, {0.0, std::tan(theta / 2)}));
            const double hd =
                std::abs(RootResponse(digital, pr.N, std::polar(1.0, theta)));
            EXPECT_NEAR(hd, ha, 1e-12) << theta;
        }
    }
}

TEST(DesignBilinear, RootsAtInfinityAndUnwrittenEntriesGoToMinusOne)
{
    RootLists r(4);
    r.poles[0] = {-0.5, 0.5};
    r.poles[1] = {-2.0, 0.0};
    r.poles[2] = {-1.0, 0.0};
    r.zeros[0] = {kInf, 0.0};
    r.zeros[1] = {0.0, 2.0};
    /* zeros[2] and zeros[3] stay NaN: roots at infinity as well. */
    r.gain = 3.0;
    _BilinearPrototype(4, r.p(), r.z(), &r.gain);
    ExpectRoot(r.poles[0], 0.2, 0.4);      /* (0.5 + 0.5j) / (1.5 - 0.5j) */
    ExpectRoot(r.poles[1], -1.0 / 3.0, 0.0);
    ExpectRoot(r.poles[2], 0.0, 0.0);
    EXPECT_EQ(r.zeros[0], _ROOT(-1.0, 0.0));
    ExpectRoot(r.zeros[1], -0.6, 0.8);
    EXPECT_EQ(r.zeros[2], _ROOT(-1.0, 0.0));
    EXPECT_TRUE(IsAllOnes(r.zeros[3]));   /* the count was reached */
    EXPECT_TRUE(IsAllOnes(r.poles[3]));
    /* H(s) = 3 (s^2 + 4) / ((s^2 + s + 0.5)(s + 2)(s + 1)) has 12 at s = 0. */
    EXPECT_NEAR(RootResponse(r, 4, 1.0).real(), 12.0, 1e-13);
}

/* Magnitude of a whole lowpass or highpass design at angle w, computed in
 * the test: the prototype at the tangent-warped frequency. */
struct LowHighCase {
    const char *name;
    _PROTOTYPE_DESIGN design;
    double ratio, Ap, As;
    int N;
    bool highpass;
    float fpass;
};

TEST(DesignLowHigh, ResponseIsThePrototypeOnTheWarpedAxis)
{
    const LowHighCase cases[] = {
        {"butter lp", _ButterworthDesign, -1, 3, -1, 5, false, 0.2f},
        {"cheby lp", _ChebyshevDesign, -1, 1, -1, 5, false, 0.35f},
        {"cheby2 lp", _ChebyshevIIDesign, 1.5, 1, 40, 5, false, 0.7f},
        {"ellip lp", _EllipticDesign, 1.2, 0.5, 40, 6, false, 0.05f},
        {"ellip hp", _EllipticDesign, 1.5, 1, 40, 5, true, 0.3f},
    };
    for (const LowHighCase &c : cases) {
        SCOPED_TRACE(c.name);
        Designed analog(c.design, c.ratio, c.Ap, c.As, c.N);
        Designed d(c.design, c.ratio, c.Ap, c.As, c.N);
        _BilinearPrototype(c.N, d.p(), d.z(), &d.gain);
        _TransformLowHigh(c.highpass, c.fpass, c.N, d.p(), d.z(), &d.gain);
        for (const _ROOT &p : Unpack(d.poles, c.N))
            EXPECT_LT(std::abs(p), 1.0);
        const double te = std::tan(M_PI * (double)c.fpass / 2);
        for (double w : {0.05, 0.5, 1.0, M_PI * c.fpass, 2.0, 3.0}) {
            const double tw = std::tan(w / 2);
            const double W = c.highpass ? te / tw : tw / te;
            const double expect = std::abs(RootResponse(analog, c.N, {0.0, W}));
            const double got = std::abs(RootResponse(d, c.N, std::polar(1.0, w)));
            EXPECT_NEAR(got, expect, 1e-9 * std::max(expect, 1e-3)) << w;
        }
    }
}

/* ---- Roots to biquads ----------------------------------------------------- */

TEST(DesignSections, ThirdOrderButterworthExample)
{
    Designed d(_ButterworthDesign, -1, 3.0, -1, 3);
    _BilinearPrototype(3, d.p(), d.z(), &d.gain);
    _TransformLowHigh(false, 0.3f, 3, d.p(), d.z(), &d.gain);
    std::vector<double> q(10, 7.0);
    const double g = std::pow(d.gain, 0.5);
    ASSERT_EQ(_PairRootsIntoSections(3, d.p(), d.z(), g, q.data()), 1);
    const _ROOT p = d.poles[0];
    EXPECT_EQ(q[0], p.real() * -2.0);
    EXPECT_EQ(q[1], p.real() * p.real() + p.imag() * p.imag());
    EXPECT_EQ(q[2], g);
    EXPECT_DOUBLE_EQ(q[3], 2 * g);
    EXPECT_DOUBLE_EQ(q[4], g);
    EXPECT_EQ(q[5], -d.poles[1].real());
    EXPECT_EQ(q[6], 0.0);
    EXPECT_EQ(q[7], g);
    EXPECT_DOUBLE_EQ(q[8], g);
    EXPECT_EQ(q[9], 0.0);
    /* The cascade is the filter of the roots: DC gain 1, -3 dB at 0.3. */
    EXPECT_NEAR(std::abs(SectionResponse(q.data(), 2, 0.0)), 1.0, 1e-12);
    EXPECT_NEAR(Db(std::abs(SectionResponse(q.data(), 2, 0.3 * M_PI))), -3.0,
                0.011);
}

TEST(DesignSections, RealPairsAndComplexEntries)
{
    const std::vector<_ROOT> poles = {{0.5, 0.0}, {-0.25, -0.0}, {0.1, 0.7}};
    const std::vector<_ROOT> zeros = {{0.3, 0.4}, {1.0, 0.0}, {-1.0, 0.0}};
    double q[10];
    ASSERT_EQ(_PairRootsIntoSections(4, poles.data(), zeros.data(), 2.0, q), 1);
    /* Section 1: the two real poles, the complex zero. Section 2: the
     * complex pole, the two real zeros. -0.0 is real. */
    const double expect[10] = {-0.25, -0.125, 2.0, -1.2, 0.5,
                               -0.2,  0.5,    2.0, 0.0,  -2.0};
    for (int i = 0; i < 10; i++)
        EXPECT_DOUBLE_EQ(q[i], expect[i]) << i;
}

TEST(DesignSections, UnpairedRootsAreReported)
{
    const _ROOT nan = {NAN, NAN};
    struct Case {
        const char *name;
        int N;
        std::vector<_ROOT> poles, zeros;
        const char *message;
    } cases[] = {
        /* A real pole of an odd order in front of the complex ones. */
        {"real pole first", 3, {{0.5, 0}, {0.1, 0.5}}, {{-1, 0}, {-1, 0}, {-1, 0}},
         "_MakeFilterFromRoots: Unpaired real poles"},
        /* The last written pole has no partner; the NaN behind it is not
         * real. */
        {"lone real pole", 2, {{0.5, 0}, nan}, {{-1, 0}, {-1, 0}},
         "_MakeFilterFromRoots: Unpaired real poles"},
        {"real zero before complex", 4, {{0.1, 0.5}, {0.2, 0.3}},
         {{1, 0}, {0.3, 0.4}, {-1, 0}, {-1, 0}},
         "_MakeFilterFromRoots: Unpaired real zeros"},
        {"complex last pole", 3, {{0.1, 0.5}, {0.2, 0.3}},
         {{-1, 0}, {-1, 0}, {-1, 0}}, "_MakeFilterFromRoots: Unpaired imaginary root"},
        {"missing last zero", 3, {{0.1, 0.5}, {0.2, 0}}, {{0.3, 0.4}, nan},
         "_MakeFilterFromRoots: Unpaired imaginary root"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        MessageLog log;
        std::vector<double> q(5 * ((c.N + 1) / 2));
        EXPECT_EQ(_PairRootsIntoSections(c.N, c.poles.data(), c.zeros.data(),
                                         1.0, q.data()),
                  0);
        ASSERT_EQ(log.entries.size(), 1u);
        EXPECT_EQ(log.entries[0].level, KEEL_LEVEL_ERROR);
        EXPECT_EQ(log.entries[0].code, -1);
        EXPECT_EQ(log.entries[0].text, c.message);
    }
    /* The same real pole at the end of the list pairs. */
    const std::vector<_ROOT> poles = {{0.1, 0.5}, {0.5, 0}};
    const std::vector<_ROOT> zeros = {{-1, 0}, {-1, 0}, {-1, 0}};
    double q[10];
    EXPECT_EQ(_PairRootsIntoSections(3, poles.data(), zeros.data(), 1.0, q), 1);
}

TEST(DesignSections, FilterObjectSpreadsTheGainEvenly)
{
    const std::vector<_ROOT> poles = {{0.1, 0.5}, {0.2, 0.3}, {0.5, 0}};
    const std::vector<_ROOT> zeros = {{-1, 0}, {-1, 0}, {0.0, 1.0}, {-1, 0}};
    _TOLV_FILTER *f = _MakeFilterFromRoots(5, poles.data(), zeros.data(), 0.5,
                                           4.0f, 3, 2);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->filterFn, &_DFIISOSfilter);
    EXPECT_EQ(f->resetFn, &_DFIISOSreset);
    EXPECT_EQ(f->copyMemFn, &_DFIISOScopyMem);
    EXPECT_EQ(f->filterType, 2);
    EXPECT_EQ(f->numChannels, 3);
    const _DFIISOSstate *st = (const _DFIISOSstate *)f->stateData;
    EXPECT_EQ(st->numSections, 3);
    EXPECT_EQ(st->allocatedSections, 0);
    EXPECT_EQ(st->head, 0);
    const double g = std::pow(2.0, 1.0 / 3.0);
    for (int s = 0; s < 3; s++)
        EXPECT_EQ(st->sections[5 * s + 2], g);
    for (int i = 0; i < 4 * 3 * 3; i++)
        EXPECT_EQ(st->memory[i], 0.0);
    TOLV_DestroyFilter(f);

    /* First order: one section, and the plain product as its gain. */
    const _ROOT p1 = {0.5, 0}, z1 = {-1, 0};
    f = _MakeFilterFromRoots(1, &p1, &z1, 0.25, 2.0f, 1, 0);
    ASSERT_NE(f, nullptr);
    st = (const _DFIISOSstate *)f->stateData;
    ASSERT_EQ(st->numSections, 1);
    const double expect[5] = {-0.5, 0.0, 0.5, 0.5, 0.0};
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(st->sections[i], expect[i]);
    TOLV_DestroyFilter(f);

    /* Roots that do not pair give no object. */
    MessageLog log;
    const _ROOT bad[2] = {{0.5, 0}, {0.1, 0.1}};
    EXPECT_EQ(_MakeFilterFromRoots(3, bad, zeros.data(), 1.0, 1.0f, 1, 0),
              nullptr);
    EXPECT_EQ(log.entries.size(), 1u);
}

} // namespace
