// Sample conversion, vector kernels and the recursive block filter.
#include "keel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kTiny = std::numeric_limits<float>::denorm_min();

TEST(KeelConvert, FloatToWord16RoundsToNearestEvenAndSaturates) {
  const struct {
    float x;
    int16_t expected;
  } cases[] = {
      {1.0f, 32767},          {-1.0f, -32768},         {0.5f, 16384},
      {-0.5f, -16384},        {0.0f, 0},               {-0.0f, 0},
      {1e-10f, 0},            {-1e-10f, 0},            {1.0f / 32768, 1},
      {0.5f / 32768, 0},      {1.5f / 32768, 2},       {2.5f / 32768, 2},
      {-1.5f / 32768, -2},    {-2.5f / 32768, -2},     {0.7f / 32768, 1},
      {32766.5f / 32768, 32766}, {32767.0f / 32768, 32767},
      {32767.5f / 32768, 32767}, {-32767.5f / 32768, -32768},
      {1.0000001f, 32767},    {2.0f, 32767},           {-2.0f, -32768},
      {1e30f, 32767},         {-1e30f, -32768},        {kInf, 32767},
      {-kInf, -32768},        {kNaN, 0},
  };
  for (const auto &c : cases) {
    int16_t out = 12345;
    KEELUTILS_ConvertIEEEFloatToWord16(&c.x, &out, 1);
    EXPECT_EQ(out, c.expected) << c.x;
  }
}

TEST(KeelConvert, EverySixteenBitValueSurvivesARoundTrip) {
  std::vector<int16_t> all(65536), back(65536, 0);
  std::vector<float> floats(65536);
  for (int i = 0; i < 65536; ++i)
    all[i] = static_cast<int16_t>(i - 32768);
  KEELUTILS_ConvertWord16ToIEEEFloat(all.data(), floats.data(), 65536);
  EXPECT_EQ(floats[0], -1.0f);
  EXPECT_EQ(floats[32768], 0.0f);
  EXPECT_EQ(floats[32768 + 16384], 0.5f);
  EXPECT_EQ(floats[65535], 32767.0f / 32768.0f);
  KEELUTILS_ConvertIEEEFloatToWord16(floats.data(), back.data(), 65536);
  EXPECT_EQ(back, all);
}

TEST(KeelConvert, CountsBelowOneTouchNothing) {
  const float in[2] = {0.5f, 0.5f};
  const int16_t words[2] = {100, 100};
  int16_t out[2] = {7, 7};
  float fout[2] = {7.0f, 7.0f};
  for (int count : {0, -1, -1000}) {
    KEELUTILS_ConvertIEEEFloatToWord16(in, out, count);
    KEELUTILS_ConvertWord16ToIEEEFloat(words, fout, count);
  }
  EXPECT_EQ(out[0], 7);
  EXPECT_EQ(fout[0], 7.0f);
}

TEST(KeelVector, MulScalarScalesInPlaceInFloat) {
  std::vector<float> v = {1.0f, -2.0f, 0.1f, 3e38f, 0.0f};
  FVectorMulScalar(v.data(), 4, 3.0f);  // the last sample is outside the count
  EXPECT_EQ(v[0], 3.0f);
  EXPECT_EQ(v[1], -6.0f);
  EXPECT_EQ(v[2], 0.1f * 3.0f);  // float product, not double
  EXPECT_EQ(v[3], kInf);          // overflows in float
  EXPECT_EQ(v[4], 0.0f);
  FVectorMulScalar(v.data(), 0, 0.0f);
  EXPECT_EQ(v[0], 3.0f);
}

TEST(KeelVector, SumOfSquaresWidensAndAddsInIndexOrder) {
  const float big = 134217728.0f;  // 2^27: its square 2^54 has an ulp of 4
  const float leading[] = {big, 1, 1, 1, 1};
  const float trailing[] = {1, 1, 1, 1, big};
  EXPECT_EQ(FVectorSumOfSquares(leading, 5), 18014398509481984.0);   // 2^54
  EXPECT_EQ(FVectorSumOfSquares(trailing, 5), 18014398509481988.0);  // 2^54 + 4
  const float huge[] = {3e20f, -3e20f};  // squares overflow float, not double
  EXPECT_EQ(FVectorSumOfSquares(huge, 2), 2.0 * (double(3e20f) * double(3e20f)));
  const float third[] = {0.1f, 0.2f, 0.3f};
  const double a = 0.1f, b = 0.2f, c = 0.3f;
  EXPECT_EQ(FVectorSumOfSquares(third, 3), a * a + b * b + c * c);
  EXPECT_EQ(FVectorSumOfSquares(third, 0), 0.0);
  EXPECT_EQ(FVectorSumOfSquares(third, -3), 0.0);
}

TEST(KeelVector, ArgAbsMaxFindsTheFirstLargestMagnitude) {
  const struct {
    std::vector<float> v;
    int count;
    int index;
    float peak;
  } cases[] = {
      {{1.0f}, 0, -1, 0.0f},
      {{1.0f}, -4, -1, 0.0f},
      {{-3.0f, 2.0f, 3.0f}, 3, 0, 3.0f},
      {{2.0f, -3.0f, 3.0f}, 3, 1, 3.0f},
      {{0.0f, -0.0f, 0.0f}, 3, 0, 0.0f},
      {{kNaN, 1.0f, -2.0f, kNaN}, 4, 2, 2.0f},
      {{kNaN, kNaN}, 2, 0, 0.0f},
      {{0.5f, -kInf, kInf}, 3, 1, kInf},
      {{kTiny, -2 * kTiny}, 2, 1, 2 * kTiny},  // subnormals count too
      {{1.0f, 2.0f, 9.0f}, 2, 1, 2.0f},  // the count bounds the search
  };
  for (const auto &c : cases) {
    float peak = -1.0f;
    EXPECT_EQ(FVectorArgAbsMax(c.v.data(), c.count, &peak), c.index) << c.count;
    EXPECT_EQ(peak, c.peak);
    EXPECT_EQ(FVectorAbsMax(c.v.data(), c.count), c.peak);
    EXPECT_EQ(FVectorArgAbsMax(c.v.data(), c.count, nullptr), c.index);
  }
}

// y[n] = b0 x[n] + ... - a1 y[n-1] - ..., evaluated from whole signals with
// the summation order the filter promises.
std::vector<double> referenceFilter(const std::vector<double> &a,
                                    const std::vector<double> &b,
                                    const std::vector<float> &x) {
  const int c = static_cast<int>(b.size());
  std::vector<double> y(x.size());
  for (int n = 0; n < static_cast<int>(x.size()); ++n) {
    double acc = b[0] * static_cast<double>(x[n]);
    for (int k = 1; k < c; ++k)
      acc += b[k] * (n - k >= 0 ? static_cast<double>(x[n - k]) : 0.0);
    for (int k = 1; k < c; ++k)
      acc -= a[k] * (n - k >= 0 ? y[n - k] : 0.0);
    y[n] = acc;
  }
  return y;
}

// A stable denominator from real poles inside |z| < 0.9, so long signals
// stay finite; a[0] is NaN to prove that it is never read.
void randomCoefficients(int c, std::mt19937 &rng, std::vector<double> &a,
                        std::vector<double> &b) {
  std::uniform_real_distribution<double> pole(-0.9, 0.9), gain(-1.0, 1.0);
  a.assign(1, 1.0);
  for (int k = 1; k < c; ++k) {
    const double p = pole(rng);
    a.push_back(0.0);
    for (int i = k; i >= 1; --i)
      a[i] -= p * a[i - 1];
  }
  a[0] = std::numeric_limits<double>::quiet_NaN();
  b.resize(c);
  for (double &value : b)
    value = gain(rng);
}

TEST(KeelFilterBlock, ImpulseResponseOfAFirstOrderSection) {
  const double a[] = {1.0, -0.5}, b[] = {0.5, 0.5};
  double memA[3] = {0}, memB[3] = {0};
  const float x[5] = {1, 0, 0, 0, 0};
  double y[5];
  EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, memB, x, y, 5), 1);
  const double expected[5] = {0.5, 0.75, 0.375, 0.1875, 0.09375};
  for (int n = 0; n < 5; ++n)
    EXPECT_EQ(y[n], expected[n]) << n;
}

TEST(KeelFilterBlock, MatchesTheDifferenceEquationAcrossAnyBlockSplit) {
  std::mt19937 rng(20240611);
  std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
  std::vector<float> x(6000);
  for (float &s : x)
    s = sample(rng);
  // 1 to 11 coefficients as in resampler tables, and long filters too.
  std::vector<int> counts;
  for (int c = 1; c <= 11; ++c)
    counts.push_back(c);
  counts.insert(counts.end(), {40, 65, 66, 80});
  for (int c : counts) {
    std::vector<double> a, b;
    randomCoefficients(c, rng, a, b);
    const std::vector<double> expected = referenceFilter(a, b, x);

    // One call over the whole signal.
    std::vector<double> memA(c + 1, 0.0), memB(c + 1, 0.0);
    std::vector<double> whole(x.size());
    ASSERT_EQ(FilterBlockFloat(a.data(), b.data(), c, memA.data(), memB.data(), x.data(),
                               whole.data(), static_cast<int>(x.size())),
              1);
    ASSERT_EQ(std::memcmp(whole.data(), expected.data(), x.size() * sizeof(double)), 0)
        << "count " << c;

    // The same signal in random blocks, empty ones and long ones among
    // them. Each block writes into its own exactly-sized buffer, so overruns
    // show up.
    std::uniform_int_distribution<int> shortBlock(0, 40), longBlock(200, 700);
    auto blockSize = [&](std::mt19937 &g) {
      return g() % 4 == 0 ? longBlock(g) : shortBlock(g);
    };
    std::fill(memA.begin(), memA.end(), 0.0);
    std::fill(memB.begin(), memB.end(), 0.0);
    std::vector<double> pieces;
    size_t done = 0;
    int emptyBlocks = 0, blocks = 0;
    while (done < x.size()) {
      const int wanted = ++blocks % 5 == 0 ? 0 : blockSize(rng);
      const int n = std::min<int>(wanted, static_cast<int>(x.size() - done));
      emptyBlocks += n == 0;
      std::vector<float> in(x.begin() + done, x.begin() + done + n);
      std::vector<double> out(n);
      FilterBlockFloat(a.data(), b.data(), c, memA.data(), memB.data(), in.data(),
                       out.data(), n);
      pieces.insert(pieces.end(), out.begin(), out.end());
      done += n;
    }
    EXPECT_GT(emptyBlocks, 0);
    ASSERT_EQ(pieces.size(), x.size());
    EXPECT_EQ(std::memcmp(pieces.data(), expected.data(), x.size() * sizeof(double)), 0)
        << "count " << c;
  }
}

TEST(KeelFilterBlock, RefusalsAndEmptyBlocksLeaveTheStateAlone) {
  const double a[] = {1.0, -0.5}, b[] = {1.0, 1.0};
  double memA[3] = {0.25, 0.5, 0.75}, memB[3] = {1.25, 1.5, 1.75};
  const float x[1] = {1.0f};
  double y[1] = {-9.0};
  EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, memB, x, y, 0), 1);
  EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, memB, nullptr, nullptr, -5), 1);
  EXPECT_EQ(FilterBlockFloat(a, b, 0, memA, memB, x, y, 1), 0);
  EXPECT_EQ(FilterBlockFloat(nullptr, b, 2, memA, memB, x, y, 1), 0);
  EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, nullptr, x, y, 1), 0);
  EXPECT_EQ(y[0], -9.0);
  const double memAKept[3] = {0.25, 0.5, 0.75}, memBKept[3] = {1.25, 1.5, 1.75};
  EXPECT_EQ(std::memcmp(memA, memAKept, sizeof memA), 0);
  EXPECT_EQ(std::memcmp(memB, memBKept, sizeof memB), 0);
}

}  // namespace
