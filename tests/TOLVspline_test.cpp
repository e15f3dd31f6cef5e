#include <gtest/gtest.h>

#include <math.h>

#include "tolv.h"

#include "support/messages.h"

namespace {

const float kNatural = 1e30f;

struct Table {
    std::vector<float> x, y, q;
    float At(float p) const
    {
        return TOLVSPLINE_Interpolate(x.data(), y.data(), q.data(),
                                      (int)x.size(), p);
    }
};

Table Fit(const std::vector<float> &x, const std::vector<float> &y, float first,
          float last)
{
    Table t{x, y, std::vector<float>(x.size(), 12345.0f)};
    TOLVSPLINE_Estimate(t.x.data(), t.y.data(), (int)x.size(), t.q.data(),
                        first, last);
    return t;
}

/* Smooth data, natural and clamped ends in each combination: the second
 * derivatives M solve the moment equations (closed by M = 0 or the end slope)
 * and the value anywhere, beyond the ends too, is the cubic of its interval. */
TEST(Spline, SolvesTheMomentEquationsAndEvaluatesTheCubics)
{
    std::vector<float> x, y;
    for (int i = 0; i < 25; i++) {
        x.push_back(0.3f * i + 0.02f * (float)((i * 7) % 5));
        y.push_back((float)(sin(x.back()) + 0.3 * cos(2.5 * x.back())));
    }
    const size_t n = x.size();
    auto h = [&](size_t i) { return (double)x[i + 1] - x[i]; };
    auto s = [&](size_t i) { return ((double)y[i + 1] - y[i]) / h(i); };
    for (const auto &e : {std::make_pair(kNatural, kNatural),
                          {1, -0.5f},
                          {kNatural, 2},
                          {-1.5f, kNatural}}) {
        const Table t = Fit(x, y, e.first, e.second);
        const std::vector<double> m(t.q.begin(), t.q.end());
        std::vector<double> residual = {
            e.first == kNatural
                ? m[0]
                : 2 * h(0) * m[0] + h(0) * m[1] - 6 * (s(0) - e.first),
            e.second == kNatural ? m[n - 1]
                                 : h(n - 2) * (m[n - 2] + 2 * m[n - 1]) -
                                       6 * (e.second - s(n - 2))};
        for (size_t i = 1; i + 1 < n; i++)
            residual.push_back(h(i - 1) * m[i - 1] +
                               2 * (h(i - 1) + h(i)) * m[i] + h(i) * m[i + 1] -
                               6 * (s(i) - s(i - 1)));
        for (size_t i = 0; i < residual.size(); i++)
            EXPECT_NEAR(0.0, residual[i], 2e-5) << i;
        for (double p = x.front() - 1.5; p <= x.back() + 1.5; p += 0.01) {
            size_t i = 0;
            while (i + 2 < n && (float)p >= x[i + 1])
                i++;
            const double a = (x[i + 1] - p) / h(i), b = 1 - a;
            const double ref =
                a * y[i] + b * y[i + 1] +
                ((a * a * a - a) * m[i] + (b * b * b - b) * m[i + 1]) * h(i) *
                    h(i) / 6;
            ASSERT_NEAR(ref, t.At((float)p), 1e-5 * (1.0 + fabs(ref))) << p;
        }
    }
}

/* Exact cases: two natural points give the straight line, extrapolated
 * too; two points with the true end slopes give the cubic itself. */
TEST(Spline, LinesCubicsAndTheNaturalEndThreshold)
{
    const Table line = Fit({1, 3}, {2, 6}, kNatural, kNatural);
    EXPECT_EQ(std::vector<float>(2, 0.0f), line.q);
    for (float p : {1.0f, 2.75f, 3.0f, -4.0f, 10.0f})
        EXPECT_FLOAT_EQ(2.0f * p, line.At(p)) << p;
    auto f = [](double t) { return 0.25 * t * t * t - t * t + 0.5 * t + 2.0; };
    /* The end slopes are f'(-2) and f'(3). */
    const Table cubic = Fit({-2, 3}, {(float)f(-2), (float)f(3)}, 7.5f, 1.25f);
    EXPECT_TRUE(fabs(cubic.q[0] + 5.0) < 2e-4 && fabs(cubic.q[1] - 2.5) < 2e-4);
    for (double p = -2.5; p <= 3.5; p += 0.0625)
        EXPECT_NEAR(cubic.At((float)p), f(p), 4e-5) << p;
    /* The natural test is on the widened value: the float nearest 9.9e29 lies
   * above it and is natural; its neighbour below is a slope, as is NaN. */
    const float nearest = 9.9e29f, below = std::nextafter(nearest, 0.0f);
    ASSERT_TRUE((double)nearest > 9.9e29 && (double)below < 9.9e29);
    EXPECT_EQ((std::vector<float>{0, -3, 0}),
              Fit({0, 1, 2}, {0, 1, 0}, nearest, nearest).q);
    const Table clamped = Fit({0, 1, 2}, {0, 1, 0}, below, below);
    EXPECT_TRUE(fabs(clamped.q[0]) > 1e28f && fabs(clamped.q[2]) > 1e28f);
    EXPECT_TRUE(isnan(Fit({0, 1, 2}, {0, 1, 0}, NAN, kNatural).q[0]));
}

/* A knot belongs to the interval on its right (a doubled abscissa shows it);
 * a NaN position and a single knot read NaN; under two points only log. */
TEST(Spline, IntervalChoiceAndDegenerateTables)
{
    const Table step{{0, 1, 1, 2}, {0, 5, 7, 0}, {0, 0, 0, 0}},
        single{{1}, {2}, {0}};
    EXPECT_TRUE(step.At(1.0f) == 7 && step.At(0.5f) == 2.5f &&
                isnan(step.At(NAN)));
    EXPECT_TRUE(isnan(single.At(0.5f)));
    for (int n : {1, 0, -3}) {
        tolv_test::Messages messages;
        float x[2] = {0, 1}, y[2] = {1, 2}, q[2] = {7, 7};
        TOLVSPLINE_Estimate(x, y, n, q, kNatural, kNatural);
        EXPECT_EQ(messages.All(), std::to_string(KEEL_LEVEL_LOG) + " -1 " +
                                      "TOLVSPLINE_Estimate: Spline estimation "
                                      "must have 2 or more points\n");
        EXPECT_TRUE(q[0] == 7 && q[1] == 7);
    }
}

} // namespace
