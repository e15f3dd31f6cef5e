/*
 * Cubic splines: the fit against exact cases (lines, cubics, Hermite pieces),
 * an independent double-precision solver on smooth data, the natural-end
 * threshold, extrapolation, and the log line for a table too short.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "keel.h"
#include "tolv.h"

namespace {

const float kNatural = 1e30f;

struct Table {
    std::vector<float> x, y, q;
};

Table Fit(std::vector<float> x, std::vector<float> y, float first, float last)
{
    Table t{std::move(x), std::move(y), {}};
    t.q.assign(t.x.size(), 12345.0f);
    TOLVSPLINE_Estimate(t.x.data(), t.y.data(), (int)t.x.size(), t.q.data(),
                        first, last);
    return t;
}

float At(const Table &t, float position)
{
    return TOLVSPLINE_Interpolate(t.x.data(), t.y.data(), t.q.data(),
                                  (int)t.x.size(), position);
}

/* Independent reference in double: the moment equations
 *   h[i-1] M[i-1] + 2 (h[i-1] + h[i]) M[i] + h[i] M[i+1] = 6 (s[i] - s[i-1])
 * with s[i] the slope of interval i, closed by M = 0 (natural) or by the end
 * slope (clamped), solved by dense Gaussian elimination with pivoting. */
std::vector<double> ReferenceMoments(const std::vector<double> &x,
                                     const std::vector<double> &y,
                                     bool naturalFirst, double first,
                                     bool naturalLast, double last)
{
    size_t n = x.size();
    std::vector<std::vector<double>> a(n, std::vector<double>(n + 1, 0.0));
    auto h = [&](size_t i) { return x[i + 1] - x[i]; };
    auto s = [&](size_t i) { return (y[i + 1] - y[i]) / h(i); };
    if (naturalFirst) {
        a[0][0] = 1.0;
    } else {
        a[0][0] = 2.0 * h(0);
        a[0][1] = h(0);
        a[0][n] = 6.0 * (s(0) - first);
    }
    for (size_t i = 1; i + 1 < n; i++) {
        a[i][i - 1] = h(i - 1);
        a[i][i] = 2.0 * (h(i - 1) + h(i));
        a[i][i + 1] = h(i);
        a[i][n] = 6.0 * (s(i) - s(i - 1));
    }
    if (naturalLast) {
        a[n - 1][n - 1] = 1.0;
    } else {
        a[n - 1][n - 2] = h(n - 2);
        a[n - 1][n - 1] = 2.0 * h(n - 2);
        a[n - 1][n] = 6.0 * (last - s(n - 2));
    }
    for (size_t c = 0; c < n; c++) {
        size_t pivot = c;
        for (size_t r = c + 1; r < n; r++)
            if (std::fabs(a[r][c]) > std::fabs(a[pivot][c]))
                pivot = r;
        std::swap(a[c], a[pivot]);
        for (size_t r = 0; r < n; r++) {
            if (r == c)
                continue;
            double f = a[r][c] / a[c][c];
            for (size_t k = c; k <= n; k++)
                a[r][k] -= f * a[c][k];
        }
    }
    std::vector<double> m(n);
    for (size_t i = 0; i < n; i++)
        m[i] = a[i][n] / a[i][i];
    return m;
}

/* The cubic of interval i (extended beyond it) in double. */
double Piece(const std::vector<double> &x, const std::vector<double> &y,
             const std::vector<double> &m, size_t i, double t)
{
    double h = x[i + 1] - x[i];
    double a = (x[i + 1] - t) / h, b = (t - x[i]) / h;
    return a * y[i] + b * y[i + 1] +
           ((a * a * a - a) * m[i] + (b * b * b - b) * m[i + 1]) * h * h / 6.0;
}

std::vector<double> Widen(const std::vector<float> &v)
{
    return std::vector<double>(v.begin(), v.end());
}

/* Value of the reference spline at t: the interval holding t, the first or
 * last one outside the table. */
double ReferenceAt(const std::vector<double> &x, const std::vector<double> &y,
                   const std::vector<double> &m, double t)
{
    size_t i = 0;
    while (i + 2 < x.size() && t >= x[i + 1])
        i++;
    return Piece(x, y, m, i, t);
}

TEST(SplineTest, TwoNaturalPointsGiveTheStraightLine)
{
    Table t = Fit({1.0f, 3.0f}, {2.0f, 6.0f}, kNatural, kNatural);
    EXPECT_EQ(t.q[0], 0.0f);
    EXPECT_EQ(t.q[1], 0.0f);
    for (float position : {1.0f, 1.5f, 2.0f, 2.75f, 3.0f, -4.0f, 10.0f})
        EXPECT_FLOAT_EQ(At(t, position), 2.0f * position) << position;
}

/* Clamped with the true end slopes, a spline through points of a cubic is
 * the cubic itself; with two points it is the Hermite piece. */
TEST(SplineTest, ClampedEndsReproduceACubic)
{
    auto f = [](double t) { return 0.25 * t * t * t - t * t + 0.5 * t + 2.0; };
    auto df = [](double t) { return 0.75 * t * t - 2.0 * t + 0.5; };
    const std::vector<std::vector<float>> knots = {
        {-2.0f, -1.25f, -0.5f, 0.0f, 0.75f, 1.0f, 2.5f, 3.0f}, {-2.0f, 3.0f}};
    for (const std::vector<float> &x : knots) {
        std::vector<float> y;
        for (float v : x)
            y.push_back((float)f(v));
        Table t = Fit(x, y, (float)df(x.front()), (float)df(x.back()));
        for (size_t i = 0; i < x.size(); i++)
            EXPECT_NEAR(t.q[i], 1.5 * x[i] - 2.0, 2e-4) << "second derivative " << i;
        for (double position = -2.5; position <= 3.5; position += 0.0625)
            EXPECT_NEAR(At(t, (float)position), f(position), 4e-5) << position;
    }
}

struct AgreementCase {
    const char *name;
    bool naturalFirst, naturalLast;
    float first, last;
};

class SplineAgreementTest : public ::testing::TestWithParam<AgreementCase> {};

TEST_P(SplineAgreementTest, MatchesDoublePrecisionSplineOnSmoothData)
{
    const AgreementCase &c = GetParam();
    std::vector<float> x, y;
    for (int i = 0; i < 25; i++) {
        float xi = 0.3f * i + 0.02f * (float)((i * 7) % 5);
        x.push_back(xi);
        y.push_back((float)(std::sin(xi) + 0.3 * std::cos(2.5 * xi)));
    }
    float first = c.naturalFirst ? kNatural : c.first;
    float last = c.naturalLast ? kNatural : c.last;
    Table t = Fit(x, y, first, last);
    std::vector<double> xd = Widen(x), yd = Widen(y);
    std::vector<double> m =
        ReferenceMoments(xd, yd, c.naturalFirst, first, c.naturalLast, last);
    for (size_t i = 0; i < x.size(); i++) {
        EXPECT_NEAR(t.q[i], m[i], 2e-4 * (1.0 + std::fabs(m[i]))) << "knot " << i;
        EXPECT_NEAR(At(t, x[i]), y[i], 4e-6f) << "knot " << i;
    }
    /* Natural ends are exact; clamped ends have the slope asked for:
     * S'(x0) = s0 - h (2 M0 + M1) / 6 and S'(xn) = s + h (M[n-2] + 2 M[n-1]) / 6. */
    size_t n = x.size();
    double h0 = xd[1] - xd[0], hn = xd[n - 1] - xd[n - 2];
    if (c.naturalFirst)
        EXPECT_EQ(t.q[0], 0.0f);
    else
        EXPECT_NEAR((yd[1] - yd[0]) / h0 - h0 * (2.0 * t.q[0] + t.q[1]) / 6.0, first, 1e-4);
    if (c.naturalLast)
        EXPECT_EQ(t.q[n - 1], 0.0f);
    else
        EXPECT_NEAR((yd[n - 1] - yd[n - 2]) / hn + hn * (t.q[n - 2] + 2.0 * t.q[n - 1]) / 6.0,
                    last, 1e-4);
    /* Inside the table, then beyond both ends, where the first and last
     * cubics run on unclamped. */
    for (double p = x.front() - 1.5; p <= x.back() + 1.5; p += 0.01) {
        double expected = ReferenceAt(xd, yd, m, p);
        EXPECT_NEAR(At(t, (float)p), expected, 1e-5 * (1.0 + std::fabs(expected)))
            << p;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Ends, SplineAgreementTest,
    ::testing::Values(AgreementCase{"natural", true, true, 0, 0},
                      AgreementCase{"clamped", false, false, 1.0f, -0.5f},
                      AgreementCase{"naturalThenClamped", true, false, 0, 2.0f},
                      AgreementCase{"clampedThenNatural", false, true, -1.5f, 0}),
    [](const ::testing::TestParamInfo<AgreementCase> &info) {
        return std::string(info.param.name);
    });

/* The natural threshold is tested on the widened value: the f32 nearest to
 * 9.9e29 lies just above it, its neighbour below is a (huge) slope. */
TEST(SplineTest, NaturalThresholdIsJustBelowTheNearestFloat)
{
    float nearest = 9.9e29f;
    ASSERT_GT((double)nearest, 9.9e29);
    float below = std::nextafter(nearest, 0.0f);
    ASSERT_LT((double)below, 9.9e29);
    std::vector<float> x = {0.0f, 1.0f, 2.0f}, y = {0.0f, 1.0f, 0.0f};

    Table natural = Fit(x, y, nearest, nearest);
    EXPECT_EQ(natural.q[0], 0.0f);
    EXPECT_EQ(natural.q[2], 0.0f);
    EXPECT_FLOAT_EQ(natural.q[1], -3.0f);

    Table clamped = Fit(x, y, below, below);
    EXPECT_GT(std::fabs(clamped.q[0]), 1e28f);
    EXPECT_GT(std::fabs(clamped.q[2]), 1e28f);
}

TEST(SplineTest, NaNSlopeIsASlopeNotANaturalEnd)
{
    Table t = Fit({0.0f, 1.0f, 2.0f}, {0.0f, 1.0f, 0.0f}, NAN, kNatural);
    EXPECT_TRUE(std::isnan(t.q[0]));
}

/* A doubled abscissa makes a step: the knot itself belongs to the interval
 * on its right, so it reads the right-hand ordinate. A NaN reads NaN. */
TEST(SplineTest, KnotBelongsToTheIntervalOnItsRight)
{
    Table t{{0.0f, 1.0f, 1.0f, 2.0f}, {0.0f, 5.0f, 7.0f, 0.0f}, {0.0f, 0.0f, 0.0f, 0.0f}};
    EXPECT_EQ(At(t, 1.0f), 7.0f);
    EXPECT_EQ(At(t, 0.5f), 2.5f);
    EXPECT_TRUE(std::isnan(At(t, NAN)));
}

TEST(SplineTest, SingleKnotInterpolatesToNaN)
{
    float x = 1.0f, y = 2.0f, q = 0.0f;
    EXPECT_TRUE(std::isnan(TOLVSPLINE_Interpolate(&x, &y, &q, 1, 0.5f)));
    EXPECT_TRUE(std::isnan(TOLVSPLINE_Interpolate(&x, &y, &q, 0, 0.5f)));
}

struct Messages {
    std::vector<std::string> texts;
    std::vector<int> levels, codes;
};

void Capture(int level, int code, const char *message, void *user)
{
    Messages *m = static_cast<Messages *>(user);
    m->texts.push_back(message);
    m->levels.push_back(level);
    m->codes.push_back(code);
}

TEST(SplineTest, FewerThanTwoPointsOnlyLogs)
{
    for (int n : {1, 0, -3}) {
        Messages m;
        KEELDEBUG_SetMessageHandler(Capture, &m);
        float x[2] = {0.0f, 1.0f}, y[2] = {1.0f, 2.0f};
        float q[2] = {7.0f, 7.0f};
        TOLVSPLINE_Estimate(x, y, n, q, kNatural, kNatural);
        KEELDEBUG_SetMessageHandler(nullptr, nullptr);
        ASSERT_EQ(m.texts.size(), 1u) << n;
        EXPECT_EQ(m.texts[0],
                  "TOLVSPLINE_Estimate: Spline estimation must have 2 or more points");
        EXPECT_EQ(m.levels[0], KEEL_LEVEL_LOG);
        EXPECT_EQ(m.codes[0], -1);
        EXPECT_EQ(q[0], 7.0f);
        EXPECT_EQ(q[1], 7.0f);
    }
}

} // namespace
