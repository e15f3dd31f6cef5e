/*
 * Filter run-time: both forms against hand-worked outputs whose last bit
 * depends on the order of the arithmetic, against a plain double-precision
 * evaluation of the same difference equations, and the frame walk: blocks,
 * channels, strides and buffers shared between input and output.
 */
#include "TOLVfilter/filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "filter_test_util.h"

namespace {

const float e30 = std::ldexp(1.0f, -30);
const double e60 = std::ldexp(1.0, -60);

struct HandCase {
    const char *name;
    bool sections; // b holds biquad records, a is unused
    std::vector<double> b, a;
    std::vector<float> x, y;
};

const HandCase kHandCases[] = {
    {"PureGain", false, {3}, {2}, {1, -2, 0.5f}, {1.5f, -3, 0.75f}},
    {"A0ScalesB0Too", false, {2, 4}, {2, -1}, {1, 0, 0, 0},
     {1, 2.5f, 1.25f, 0.625f}},
    {"QuotientsInF64", false, {0.1}, {0.3}, {1}, {0.333333343f}},
    {"Fir", false, {1, 2, 3}, {1}, {1, 0, 0, 0}, {1, 2, 3, 0}},
    {"NumeratorLonger", false, {1, 0, 0, 1}, {1, -0.5}, {1, 0, 0, 0, 0},
     {1, 0.5f, 0.25f, 1.125f, 0.5625f}},
    {"DenominatorLonger", false, {1}, {1, 0, -0.5}, {1, 0, 0, 0, 0},
     {1, 0, 0.5f, 0, 0.25f}},
    // f32 sums with the w[n] term last: -1 + 2^-30 rounds away first.
    {"WnTermLast", false, {1, -1, e30}, {1}, {1, 1, 1}, {1, 0, 0}},
    {"FeedbackInTapOrder", false, {1}, {1, -1, e30}, {1, 0, -1},
     {1, 1, -e30}},
    {"OneSection", true, {-1, 0.5, 1, 2, 1}, {}, {1, 0, 0, 0, 0},
     {1, 3, 3.5f, 2, 0.25f}},
    {"NoSectionsCopies", true, {}, {}, {0.25f, -3, 7}, {0.25f, -3, 7}},
    {"StateKeptInF64", true, {-1, 0, 1, 0, 0}, {}, {1, e30, -1},
     {1, 1, e30}},
    {"F32BetweenSections", true, {0, 0, 1, e30, 0, 0, 0, 1, -1, 0}, {},
     {1, 1}, {1, 0}},
    // t = (v - a1 w1) - a2 w2 and y = (b1 w1 + b0 t) + b2 w2, where another
    // grouping would lose the 2^-60 term to cancellation.
    {"TGrouping", true, {-1, -e60, 1, 0, 0}, {}, {1, 0, -1},
     {1, 1, (float)e60}},
    {"YGrouping", true, {0, 0, 1, 1, e60}, {}, {1, 1, -1},
     {1, 2, (float)e60}},
};

class HandWorked : public ::testing::TestWithParam<HandCase> {};

TEST_P(HandWorked, ExactOutput)
{
    const HandCase &k = GetParam();
    FilterPtr f = k.sections ? Biquads(1, k.b) : Coefs(1, k.b, k.a);
    EXPECT_EQ(Bits(Filtered(f.get(), k.x)), Bits(k.y));
}

INSTANTIATE_TEST_SUITE_P(Filter, HandWorked, ::testing::ValuesIn(kHandCases),
                         [](const auto &info) { return info.param.name; });

/* Plain double evaluation, one channel at a time, with shifted histories. */
std::vector<double> ReferenceDF2(const std::vector<double> &b,
                                 const std::vector<double> &a,
                                 const std::vector<float> &x, int M, int c)
{
    std::vector<double> w(std::max(b.size(), a.size()), 0.0), y;
    for (size_t p = c; p < x.size(); p += M) {
        double wn = x[p];
        for (size_t k = 1; k < a.size(); k++)
            wn -= a[k] * w[k - 1];
        double yn = b[0] * wn;
        for (size_t k = 1; k < b.size(); k++)
            yn += b[k] * w[k - 1];
        w.insert(w.begin(), wn);
        w.pop_back();
        y.push_back(yn);
    }
    return y;
}

std::vector<double> ReferenceSOS(const std::vector<double> &q,
                                 const std::vector<float> &x, int M, int c)
{
    std::vector<double> y;
    for (size_t p = c; p < x.size(); p += M)
        y.push_back(x[p]);
    for (size_t s = 0; s < q.size() / 5; s++) {
        const double a[] = {1, q[5 * s], q[5 * s + 1]};
        const double b[] = {q[5 * s + 2], q[5 * s + 3], q[5 * s + 4]};
        double w1 = 0, w2 = 0;
        for (double &v : y) {
            const double w = v - a[1] * w1 - a[2] * w2;
            v = b[0] * w + b[1] * w1 + b[2] * w2;
            w2 = w1;
            w1 = w;
        }
    }
    return y;
}

class AgainstDouble : public ::testing::TestWithParam<int> {};

TEST_P(AgainstDouble, DirectForm)
{
    const int M = GetParam();
    // Two resonances at radius 0.9, multiplied out to order 4.
    const std::vector<double> a = Rounded({1, -0.9, 1.26, -0.729, 0.6561});
    const std::vector<double> b = Rounded({0.02, -0.01, 0.05, 0.1, 0.05});
    const std::vector<float> x = Noise(2000 * M, 7);
    FilterPtr f = Coefs(M, b, a);
    const std::vector<float> y = Filtered(f.get(), x);
    for (int c = 0; c < M; c++) {
        const std::vector<double> ref = ReferenceDF2(b, a, x, M, c);
        for (size_t n = 0; n < ref.size(); n++)
            ASSERT_NEAR(y[n * M + c], ref[n], 2e-5) << "channel " << c;
    }
}

TEST_P(AgainstDouble, Sections)
{
    const int M = GetParam();
    const std::vector<double> q = {-1.2, 0.81, 0.5, 0.3, 0.2,
                                   0.3,  0.81, 1.1, -0.4, 0.7,
                                   1.5,  0.81, 0.9, 0.0, -0.6};
    const std::vector<float> x = Noise(2000 * M, 8);
    FilterPtr f = Biquads(M, q);
    const std::vector<float> y = Filtered(f.get(), x);
    for (int c = 0; c < M; c++) {
        const std::vector<double> ref = ReferenceSOS(q, x, M, c);
        for (size_t n = 0; n < ref.size(); n++)
            ASSERT_NEAR(y[n * M + c], ref[n], 2e-5 * std::fabs(ref[n]) + 1e-6)
                << "channel " << c;
    }
}

INSTANTIATE_TEST_SUITE_P(Filter, AgainstDouble, ::testing::Values(1, 2, 3));

/* The walk, per form: blocks, channels, strides, shared buffers. */
struct Form {
    const char *name;
    FilterPtr (*make)(int M);
};

const Form kForms[] = {
    {"DirectForm",
     [](int M) {
         return Coefs(M, {0.2, -0.1, 0.3, 0.05}, {1.5, -0.9, 0.4, -0.1});
     }},
    {"Sections", [](int M) {
         return Biquads(M, {-1.2, 0.81, 0.5, 0.3, 0.2, 0.3, 0.81, 1.1, -0.4,
                            0.7});
     }},
};

class Walk : public ::testing::TestWithParam<Form> {};

/* Cut at any frame boundary, including empty blocks, a stream comes out
 * the same to the bit. */
TEST_P(Walk, BlockCutsDoNotShowInTheStream)
{
    for (int M : {1, 2, 3}) {
        const std::vector<float> x = Noise(1500 * M, 11);
        FilterPtr whole = GetParam().make(M);
        const std::vector<float> ref = Filtered(whole.get(), x);
        for (uint32_t seed : {1u, 2u, 3u}) {
            FilterPtr f = GetParam().make(M);
            std::vector<float> y(x.size(), NAN);
            size_t at = 0;
            while (at < x.size()) {
                seed = seed * 1103515245u + 12345u;
                const size_t frames = (seed >> 16) % 97;
                const size_t n = std::min(frames * M, x.size() - at);
                ASSERT_EQ(TOLV_Filter(f.get(), x.data() + at, y.data() + at,
                                      (uint32_t)n), 1);
                at += n;
            }
            ASSERT_EQ(Bits(y), Bits(ref)) << M << " channels, cuts " << seed;
        }
    }
}

/* Each channel of an interleaved block is filtered on its own, as a
 * one-channel filter would; such a filter can also take one channel of the
 * block in place through a stride, leaving the other one alone. */
TEST_P(Walk, ChannelsAreIndependent)
{
    const std::vector<float> x = Noise(2 * 800, 12);
    std::vector<float> left, right;
    for (size_t i = 0; i < x.size(); i += 2) {
        left.push_back(x[i]);
        right.push_back(x[i + 1]);
    }
    FilterPtr stereo = GetParam().make(2);
    const std::vector<float> y = Filtered(stereo.get(), x);
    const std::vector<float> yl = Filtered(GetParam().make(1).get(), left);
    const std::vector<float> yr = Filtered(GetParam().make(1).get(), right);
    for (size_t n = 0; n < yl.size(); n++) {
        ASSERT_EQ(Bits({y[2 * n]}), Bits({yl[n]}));
        ASSERT_EQ(Bits({y[2 * n + 1]}), Bits({yr[n]}));
    }
    std::vector<float> buf = x;
    FilterPtr mono = GetParam().make(1);
    EXPECT_EQ(TOLV_FilterEx(mono.get(), buf.data(), buf.data(),
                            (uint32_t)buf.size(), 1, 2), 1);
    for (size_t n = 0; n < yl.size(); n++) {
        ASSERT_EQ(Bits({buf[2 * n]}), Bits({x[2 * n]}));
        ASSERT_EQ(Bits({buf[2 * n + 1]}), Bits({yr[n]}));
    }
}

TEST_P(Walk, InputAndOutputMayBeOneBuffer)
{
    const std::vector<float> x = Noise(3 * 500, 13);
    const std::vector<float> ref = Filtered(GetParam().make(3).get(), x);
    std::vector<float> buf = x;
    FilterPtr f = GetParam().make(3);
    TOLV_Filter(f.get(), buf.data(), buf.data(), (uint32_t)buf.size());
    EXPECT_EQ(Bits(buf), Bits(ref));
}

/* Blocks the walk does not enter leave the output and the state as they
 * were; only whole frames are filtered. */
TEST_P(Walk, OnlyWholeFramesFromStartAreTouched)
{
    const int M = 2;
    const std::vector<float> x = Noise(21, 14);
    const std::vector<float> full = Filtered(GetParam().make(M).get(), x);
    struct Call {
        uint32_t count, start, step;
        size_t firstTouched, endTouched;
    } calls[] = {
        {1, 0, 2, 0, 0},           // shorter than a frame
        {21, 20, 2, 0, 0},         // start past the last frame
        {0xFFFFFFFFu, 0, 2, 0, 0}, // count - M is negative as signed
        {21, 0, 2, 0, 20},         // trailing half frame skipped
        {21, 19, 2, 19, 21},       // a frame may start at any element
        {21, 4, 2, 4, 20},
    };
    for (const Call &k : calls) {
        FilterPtr f = GetParam().make(M);
        std::vector<float> y(x.size(), -7.0f);
        EXPECT_EQ(TOLV_FilterEx(f.get(), x.data(), y.data(), k.count, k.start,
                                k.step), 1);
        std::vector<float> expect(x.size(), -7.0f);
        if (k.endTouched > 0) {
            // Starting late is a fresh filter on the later samples.
            std::vector<float> tail(x.begin() + k.firstTouched, x.end());
            const std::vector<float> yt = Filtered(GetParam().make(M).get(), tail);
            std::copy(yt.begin(), yt.begin() + (k.endTouched - k.firstTouched),
                      expect.begin() + k.firstTouched);
        }
        EXPECT_EQ(Bits(y), Bits(expect)) << k.count << " " << k.start;
        if (k.endTouched == 0) { // nothing ran: the state is still fresh
            EXPECT_EQ(Bits(Filtered(f.get(), x)), Bits(full));
        }
    }
}

TEST_P(Walk, NullArgumentsAreRefused)
{
    FilterPtr f = GetParam().make(1);
    std::vector<float> buf(4, 1.0f);
    EXPECT_EQ(TOLV_Filter(nullptr, buf.data(), buf.data(), 4), 0);
    EXPECT_EQ(TOLV_Filter(f.get(), nullptr, buf.data(), 4), 0);
    EXPECT_EQ(TOLV_Filter(f.get(), buf.data(), nullptr, 4), 0);
    EXPECT_EQ(TOLV_FilterEx(nullptr, buf.data(), buf.data(), 4, 0, 1), 0);
    EXPECT_EQ(TOLV_FilterEx(f.get(), nullptr, buf.data(), 4, 0, 1), 0);
    EXPECT_EQ(TOLV_FilterEx(f.get(), buf.data(), nullptr, 4, 0, 1), 0);
    EXPECT_EQ(buf, std::vector<float>(4, 1.0f));
}

INSTANTIATE_TEST_SUITE_P(Filter, Walk, ::testing::ValuesIn(kForms),
                         [](const auto &info) { return info.param.name; });

} // namespace
