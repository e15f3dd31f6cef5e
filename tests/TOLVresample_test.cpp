// Sample-rate conversion: grid and prototype figures, configuration keys,
// refusals, the stored low-passes of the hold, streaming against direct
// models under random block splits, the flush, and bad objects.
#include "TOLVresample/resample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "lanes.h"
#include "support/messages.h"
#include "support/signal.h"

namespace {

using tolv_test::UniformNoise;
using Floats = std::vector<float>;
using Ints = std::vector<int64_t>;

class ResampleTest : public ::testing::Test {
  protected:
    tolv_test::Messages messages;
    void TearDown() override { KEELSETTINGS_Clear(); }
};

#define Poly(r) static_cast<_TOLV_POLYPHASE *>((r)->impl)
#define Zoh(r)  static_cast<_TOLV_ZOH *>((r)->impl)
// Ticks that n input frames make on the grid: those with m M < n L.
int64_t TicksOf(int64_t n, int64_t up, int64_t down)
{
    return (n * up + down - 1) / down;
}

// Block sizes about the line's length K (a block's first K - 1 frames reach
// into the line, which is caught up by a jump), 0, 1, long, any below 4 K.
std::vector<int> RandomSplit(unsigned seed, int K)
{
    std::mt19937 rng(seed);
    const int near[] = {0, 1, 2, K - 1, K, K + 1, 2 * K - 1, 2 * K + 1, 997};
    std::vector<int> sizes(101);
    for (int &n : sizes)
        n = rng() % 3 ? near[rng() % 9] : int(rng() % (4 * K));
    return sizes;
}

// Feeds x in blocks of the sizes, cycled; after(frames fed) follows each.
Floats RunBlocks(_TOLV_RESAMPLE *r, const Floats &x,
                 const std::vector<int> &sizes,
                 const std::function<void(size_t)> &after = {})
{
    Floats out, block;
    for (size_t pos = 0, k = 0, n; pos < x.size(); pos += n, k++) {
        n = std::min<size_t>(size_t(sizes[k % sizes.size()]), x.size() - pos);
        block.assign(n * 16 + 1, 0.0f);
        int got = TOLV_Resample(r, x.data() + pos, block.data(), int(n));
        out.insert(out.end(), block.begin(), block.begin() + std::max(got, 0));
        if (after)
            after(pos + n);
    }
    return out;
}

// Appends a flush of at most maxFrames to y; nothing is written past it.
size_t Flush(_TOLV_RESAMPLE *r, int maxFrames, Floats &y)
{
    Floats tail(size_t(Poly(r)->flushRemaining) + 1, -7.0f);
    const int got = TOLV_ResampleFlushBuffersEx(r, tail.data(), maxFrames);
    EXPECT_EQ(tail[size_t(got)], -7.0f);
    y.insert(y.end(), tail.begin(), tail.begin() + got);
    return size_t(got);
}

// Polyphase as a plain convolution: tick m, of frame n = floor(m M / L) and
// phase m M - n L, sums x[n - t] row[t] in age order (x is 0 outside the
// stream; a flushed tick's running sum is f32). Ticks [first, first + count).
Floats ModelTicks(const _TOLV_POLYPHASE *s, const Floats &x, int64_t first,
                  int64_t count)
{
    Floats out;
    for (int64_t m = first, size = int64_t(x.size()); m < first + count; m++) {
        const int64_t n = m * s->down / s->up;
        const double *row = s->phaseFilters[m * s->down - n * s->up];
        double sum = 0.0;
        float fsum = 0.0f;
        for (int64_t t = 0; t < s->tapsPerPhase; t++) {
            double v = n - t >= 0 && n - t < size ? double(x[n - t]) : 0.0;
            sum += v * row[t];
            fsum = float(double(fsum) + v * row[t]);
        }
        out.push_back(n >= size ? fsum : float(sum));
    }
    return out;
}

// The line after n frames is where pushing them one by one leaves it: newest
// at writeIndex = -n mod K, age t at (writeIndex + t) mod K.
bool LineAfter(const _TOLV_POLYPHASE *s, const Floats &x, size_t n)
{
    const int64_t K = s->tapsPerPhase, w = (K - int64_t(n) % K) % K;
    bool same = s->writeIndex == w;
    for (int64_t t = 0; t < K && same; t++)
        same = s->delayLine[(w + t) % K] ==
               (int64_t(n) > t ? double(x[n - 1 - size_t(t)]) : 0.0);
    return same;
}

// Set-up by rates and text: L and M, the prototype length N, taps per phase K
// (hold: the stored filter's count), delay D, ticks dropped, and any report.
// The text is lowered; unknown types take the hold silently; the order
// defaults to the setting (7 here); only 256 bytes count: ",order=12" ending at
// byte 255 is read, at 256 cut to order 1, later unseen. Rates below 1: an
// error, no object. Orders below 1 or whose length 2 max(L, M) order wraps: a
// terminal report, no state. Hold pairs outside the table: reported, made.
// The prototype is symmetric with an unwindowed centre and zeros past N.
TEST_F(ResampleTest, SetUpByRatesAndText)
{
    KEELSETTINGS_SetValueEx(nullptr, "libtolv.resample.polyphase.order=%d", 7);
    auto order12At = [](size_t end) {
        return std::string(end - 8, 'x') + ",order=12";
    };
    struct Row {
        int in, out;
        std::string config;
        int level = 0, kind = 0, L = 0, M = 0, N = 0, K = 0, D = 0, skip = 0;
    };
    // clang-format off
    std::vector<Row> rows = {
        {44100, 48000, "order=30", 0, 0, 160, 147, 9600, 61, 33, 33},
        {8000, 16000, "order=30", 0, 0, 2, 1, 120, 61, 60, 60},
        {48000, 44100, "order=30", 0, 0, 147, 160, 9600, 66, 30, 30},
        {48000, 48000, "order=30", 0, 0, 1, 1, 60, 61, 30, 30},
        {16000, 8000, "order=4", 0, 0, 1, 2, 16, 17, 4, 4},
        {8000, 24000, "order=2", 0, 0, 3, 1, 12, 5, 6, 6},
        {44100, 48000, "order=1", 0, 0, 160, 147, 320, 3, 1, 1},
        {8000, 16000, "ORDER=5, DelayCompensation=false", 0, 0, 2, 1, 20, 11, 10, 0},
        {8000, 16000, "delaycompensation=no", 0, 0, 2, 1, 28, 15, 14, 0},
        {8000, 16000, order12At(255), 0, 0, 2, 1, 48, 25, 24, 24},
        {8000, 16000, order12At(256), 0, 0, 2, 1, 4, 3, 2, 2},
        {8000, 16000, "type=ZOH", 0, 1, 2, 1, 0, 10, 0, 0},
        {16000, 8000, "type=polyphaser", 0, 1, 1, 2, 0, 10, 0, 0},
        {8000, 16000, "type=zoh, order=0", 0, 1, 2, 1, 0, 10, 0, 0},
        {44100, 48000, "type=" + std::string(400, 'z'), 0, 1, 160, 147, 0, 7, 0, 0},
        {48000, 48000, "type=zoh", 3, 1, 1, 1, 0, 0, 0, 0},
        {12000, 8000, "type=zoh", 3, 1, 2, 3, 0, 0, 0, 0},
        {7, 3, "type=zoh", 3, 1, 3, 7, 0, 0, 0, 0},
        {0, 48000, "", 2}, {48000, 0, "type=zoh", 2}, {-1, 8000, "", 2}, {44100, 48000, "order=0", 3},
        {8000, 16000, "ORDER=-2147483648", 3}, {8000, 24000, "order=715827882", 3},
        {8000, 24000, "order=536870912", 3}, {8000, 24000, "order=2147483647", 3}, {44100, 48000, "order=6710887", 3}};
    for (std::string same : {std::string("\1"), std::string(), std::string("TYPE=PolyPhase"), std::string("type=poly"),
                             order12At(262), std::string(100000, 'q'), std::string(300, '[') + "type=zoh",
                             std::string("\xff\xfe order\x01=\x7f", 12)})
        rows.push_back({8000, 16000, same, 0, 0, 2, 1, 28, 15, 14, 14});
    for (const Row &c : rows) {
        const std::string rates = std::to_string(c.in) + " to " + std::to_string(c.out);
        SCOPED_TRACE(rates + ", " + c.config.substr(0, 30));
        messages.Clear();
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(c.in, c.out, c.config == "\1" ? nullptr : c.config.c_str());
        const std::string said = c.kind ? "TOLV_ZOHResampleInit: Unsuported sample rate convertion: " + rates
                                        : "TOLV_ResampleInit: Parametros invalidos";
        EXPECT_EQ(messages.All(), c.level ? std::to_string(c.level) + " -1 " + said + "\n" : "");
        if (c.level == 2 || (c.level == 3 && c.kind == 0)) {
            EXPECT_TRUE(c.level == 2 ? !r : r->kind == 0 && !r->impl);
            free(r);
            continue;
        }
        ASSERT_EQ(r->kind, uint32_t(c.kind));
        if (c.kind == 1) {
            const _TOLV_ZOH *z = Zoh(r);
            EXPECT_EQ((Ints{z->up, z->down, z->coefficientCount, !z->aCoeffs, !z->bCoeffs}),
                      (Ints{c.L, c.M, c.K, !c.K, !c.K}));
        } else {
            const _TOLV_POLYPHASE *s = Poly(r);
            EXPECT_EQ((Ints{s->up, s->down, s->tapsPerPhase, s->flushRemaining, s->skipRemaining}),
                      (Ints{c.L, c.M, c.K, c.D, c.skip}));
            auto h = [&](int64_t i) { return s->phaseFilters[i % c.L][i / c.L]; };
            EXPECT_EQ(h(c.N / 2), c.L > c.M ? 0.95 : double(float(c.L) / float(c.M)) * 0.95);
            EXPECT_NE(h(c.N - 1), 0.0);
            for (int64_t i = 0; i < int64_t(c.K) * c.L; i++)
                ASSERT_EQ(h(i), i > c.N ? 0.0 : h(c.N - i)) << i;
        }
        EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
    }
    // clang-format on
    // Taps of small designs worked out apart from the library: the Blackman
    // window over N + 1, the sinc cut at 0.95 of the lower Nyquist, the gain L.
    const char *o30 = "order=30";
    // clang-format off
    for (auto [in, out, config, tap, value] : std::vector<std::tuple<int, int, const char *, int, double>>{
            {44100, 48000, o30, 1, 4.0899045702395215e-10}, {44100, 48000, o30, 2400, 0.005100565034417265},
            {44100, 48000, o30, 4799, 0.9499445348134091}, {8000, 16000, o30, 0, 0.0},
            {16000, 8000, "order=4", 1, -0.0004995612800651153}, {16000, 8000, "order=4", 2, 0.0013939645511713392},
            {16000, 8000, "order=4", 7, 0.27949279886498046}, {8000, 24000, "order=2", 1, -0.00419082305821628},
            {8000, 24000, "order=2", 2, -0.01908947722492065}, {8000, 24000, "order=2", 5, 0.6438191630554142},
            {44100, 48000, "order=1", 1, 1.931259123232007e-06}, {44100, 48000, "order=1", 2, 8.59274642327148e-06},
            {44100, 48000, "order=1", 159, 0.949609213678235}}) {
        // clang-format on
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, config);
        const _TOLV_POLYPHASE *s = Poly(r);
        EXPECT_NEAR(s->phaseFilters[tap % s->up][tap / s->up], value, 1e-15)
            << in << " to " << out << ", tap " << tap;
        TOLV_ResampleDestroy(r);
    }
}

// The 15 stored tables in row order with their pairs: the sum of (k + 1) c[k]
// of the published lists, the trailing 0.0, 1 dB of ripple to the passband
// edge and 60 dB from the stopband edge (edges quoted to four places). Both
// directions of a pair take its first row: 16000 to 8000 has 10 coefficients.
struct StoredTable {
    int count;
    double pass, stop, aSum, bSum;
    std::vector<std::pair<int, int>> pairs;
};
// clang-format off
const StoredTable kTables[] = {
    {7, 0.8728, 0.9048, 104.5489764868563, 102.28499174050472, {{48000, 44100}}},
    {9, 0.6893, 0.7145, 68.80667664646623, 77.5579166483181, {{44100, 32000}, {22050, 16000}, {11025, 8000}}},
    {9, 0.6546, 0.6816, 45.006870281339815, 52.6230682906224, {{32000, 22050}, {16000, 11025}}},
    {9, 0.6333, 0.6613, 34.266105506804905, 41.05274887779574, {{48000, 32000}}},
    {10, 0.4750, 0.4930, 3.018343543708839, 6.333884791156886, {{96000, 48000}, {32000, 16000}, {16000, 8000}, {44100, 22050}, {22050, 11025}}},
    {10, 0.4364, 0.4542, 1.2605005236171496, 3.087058280117967, {{96000, 44100}, {48000, 22050}}},
    {10, 0.3447, 0.3608, 0.08023955620012435, 0.4107813954685631, {{44100, 16000}, {22050, 8000}}},
    {10, 0.3273, 0.3430, 0.03772634770369887, 0.2633491379699909, {{32000, 11025}}},
    {10, 0.3166, 0.3320, 0.02155547555448134, 0.19812081847390728, {{96000, 32000}, {48000, 16000}}},
    {10, 0.2375, 0.2500, -0.003874251586672983, 0.016394801890807074, {{32000, 8000}, {44100, 11025}}},
    {11, 0.2182, 0.2249, 0.0002524710008504627, 0.005276813058348682, {{96000, 22050}, {48000, 11025}}},
    {11, 0.1723, 0.1778, -0.0001376831536141765, 0.0005312291581507193, {{44100, 8000}}},
    {11, 0.1583, 0.1634, -8.989687595395424e-05, 0.0002321432131500295, {{96000, 16000}, {48000, 8000}}},
    {11, 0.1091, 0.1127, -6.558834234837718e-06, 6.002587652209623e-06, {{96000, 11025}}},
    {11, 0.0791, 0.0818, -4.926937542393262e-07, 2.5338762856159935e-07, {{96000, 8000}}}};
// clang-format on

TEST_F(ResampleTest, StoredFiltersRowsAndEdges)
{
    ASSERT_EQ(FilterSetRows, 28);
    int row = 0;
    for (const StoredTable &t : kTables) {
        SCOPED_TRACE(row);
        const double *a = FilterSet[row].a, *b = FilterSet[row].b;
        double aSum = 0.0, bSum = 0.0;
        for (int k = 0; k < t.count; k++)
            aSum += (k + 1) * a[k], bSum += (k + 1) * b[k];
        EXPECT_TRUE(aSum == t.aSum && bSum == t.bSum && a[0] == 1.0 &&
                    a[t.count] == 0.0 && b[t.count] == 0.0);
        auto gainDb = [&](double f) {
            std::complex<double> z = std::polar(1.0, -M_PI * f), zk = 1.0,
                                 num = 0.0, den = 0.0;
            for (int k = 0; k < t.count; k++, zk *= z)
                num += b[k] * zk, den += a[k] * zk;
            return 20.0 * std::log10(std::abs(num / den));
        };
        for (int i = 0; i <= 2000; i++) {
            double pass = gainDb(t.pass * i / 2000),
                   stop = t.stop + (1.0 - t.stop) * i / 2000;
            ASSERT_TRUE(pass > -1.06 && pass < 0.01) << i;
            ASSERT_LT(gainDb(stop), -59.95) << stop;
        }
        for (auto [high, low] : t.pairs) {
            const _TOLV_FILTERSET_ROW &set = FilterSet[row++];
            EXPECT_TRUE(set.higherRate == uint32_t(high) && set.a == a &&
                        set.lowerRate == uint32_t(low) && set.count == t.count);
            for (auto [in, out] : {std::pair{high, low}, {low, high}}) {
                _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, "type=zoh");
                EXPECT_TRUE(Zoh(r)->aCoeffs == a && Zoh(r)->bCoeffs == b &&
                            Zoh(r)->coefficientCount == t.count &&
                            Zoh(r)->upsampling == (in < out))
                    << in << " to " << out;
                EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
            }
        }
    }
    EXPECT_EQ(messages.All(), "");
}

// Blocks plus a whole flush give the model's ticks D, D + 1, ... bit for bit,
// and after each block the line holds the newest K frames, at the default
// lanes, in the plain loop and at every lane width. Spikes +B, -B ten frames apart cancel exactly only
// in age order: the fixed cut puts them in a block's first K - 1 frames
// (1035), mid-block at four offsets modulo the four ticks summed side by side
// (2035 on) and in the flush (5985); one cut is a single block longer than a
// segment of the lanes.
TEST_F(ResampleTest, PolyphaseMatchesTheModelBitForBitHoweverCut)
{
    Floats x = UniformNoise(6000, 7);
    for (int at : {1000, 2000, 2101, 2202, 2303, 5980})
        x[at] = 1e20f, x[at + 10] = -1e20f;
    // clang-format off
    for (auto [in, out, config] : std::vector<std::tuple<int, int, const char *>>{
            {44100, 48000, nullptr}, {48000, 44100, nullptr}, {16000, 8000, nullptr}, {48000, 48000, nullptr},
            {8000, 44100, "order=3"}, {3, 2, "order=1"}, {11025, 16000, "order=2, delaycompensation=off"}}) {
        // clang-format on
        SCOPED_TRACE(std::to_string(in) + " to " + std::to_string(out));
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, config);
        const _TOLV_POLYPHASE *s = Poly(r);
        const int32_t skip = s->skipRemaining, D = s->flushRemaining;
        float none = 0.0f;
        EXPECT_EQ(TOLV_Resample(r, &none, &none, 0), 0);
        EXPECT_TRUE(s->staging && s->phase == 0 && s->skipRemaining == skip);
        const int64_t ticks = TicksOf(6000, s->up, s->down) - skip;
        const Floats model = ModelTicks(s, x, skip, ticks + D);
        std::vector<std::vector<int>> splits = {{1000, 37, 1, 0, 500, 1462},
                                                {6000}};
        for (unsigned seed = 1; seed <= 3; seed++)
            splits.push_back(RandomSplit(seed, s->tapsPerPhase));
        for (int lanes = 0; lanes <= 2 << _TOLV_VectorLevel();
             lanes = lanes ? 2 * lanes : 1)
            for (const std::vector<int> &split : splits) {
                _PolyphaseSetLanes(lanes);
                ASSERT_TRUE(lanes == 0 || _PolyphaseLanes() == lanes);
                if (lanes > 0 || split != splits[0]) {
                    TOLV_ResampleDestroy(r);
                    s = Poly(r = TOLV_ResampleInit(in, out, config));
                }
                bool line = true;
                Floats y = RunBlocks(r, x, split, [&](size_t n) {
                    line = line && LineAfter(s, x, n);
                });
                EXPECT_TRUE(line) << "split " << split[0];
                // Before the flush, which cannot end while ticks are dropped.
                ASSERT_EQ(int64_t(y.size()), ticks);
                ASSERT_EQ(Flush(r, 0, y), size_t(D));
                EXPECT_TRUE(y == model) << "split " << split[0] << " " << lanes;
            }
        TOLV_ResampleDestroy(r);
    }
    _PolyphaseSetLanes(0);
}

// 44100 to 48000 (D 33) after 2000 frames, or 20 (the flush ends the skip):
// up to the limit (0 or below: all) of the model's next ticks, then the stream
// has ended: more flushes give nothing, the count goes on with what was lost.
TEST_F(ResampleTest, FlushGivesUpToItsLimitAndEndsTheStream)
{
    // clang-format off
    for (auto [frames, maxFrames, given, reported] : {std::tuple{2000, 0, 33, 0}, {2000, -5, 33, 0}, {2000, 40, 33, 0},
            {2000, 1, 1, 32}, {2000, 32, 32, 1}, {20, 0, 33, 0}, {20, 5, 5, 28}}) {
        // clang-format on
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(44100, 48000, nullptr);
        ASSERT_EQ(TOLV_ResampleFlushBufferSize(r), 33);
        const Floats x = UniformNoise(frames, 5), y = RunBlocks(r, x, {6, 0});
        ASSERT_EQ(int64_t(y.size()),
                  std::max<int64_t>(0, TicksOf(frames, 160, 147) - 33));
        Floats tail;
        ASSERT_EQ(Flush(r, maxFrames, tail), size_t(given)) << maxFrames;
        EXPECT_EQ(tail, ModelTicks(Poly(r), x, int64_t(y.size()) + 33, given));
        EXPECT_TRUE(Poly(r)->phase < 0 && Poly(r)->skipRemaining == 0);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), reported);
        EXPECT_EQ(Flush(r, 0, tail), 0u);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), reported);
        EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
    }
    EXPECT_EQ(messages.All(), "");
}

// Frame n is held for the ticks with floor(m M / L) = n, filtered after going
// up and before going down, under any split (without a filter: silence).
TEST_F(ResampleTest, HoldFollowsTheGridUnderAnySplit)
{
    const Floats x = UniformNoise(3000, 23);
    // clang-format off
    for (auto [in, out] : {std::pair{8000, 16000}, {16000, 8000}, {44100, 48000}, {96000, 11025}, {48000, 48000}, {7, 3}}) {
        // clang-format on
        for (const std::vector<int> &split :
             {std::vector<int>{1, 0, 17, 1000}, RandomSplit(in, 12)}) {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, "type=zoh");
            const _TOLV_ZOH *s = Zoh(r);
            const int c = s->coefficientCount;
            auto lowPass = [&](const Floats &v) {
                std::vector<double> mem(2 * c + 2), y(v.size());
                FilterBlockFloat(s->aCoeffs, s->bCoeffs, c, &mem[0],
                                 &mem[c + 1], v.data(), y.data(),
                                 int(v.size()));
                return Floats(y.begin(), y.end());
            };
            float none = 0.0f;
            for (int frames : {0, -3})
                EXPECT_EQ(TOLV_Resample(r, &none, &none, frames), 0);
            EXPECT_TRUE(s->staging && s->phase == 0 && s->inputCount == 0 &&
                        none == 0.0f);
            const Floats source = s->upsampling ? x : lowPass(x);
            Floats want;
            for (int64_t m = 0; m < TicksOf(3000, s->up, s->down); m++)
                want.push_back(source[size_t(m * s->down / s->up)]);
            if (s->upsampling)
                want = lowPass(want);
            EXPECT_TRUE(RunBlocks(r, x, split) == want) << in << " to " << out;
            EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), 0);
            EXPECT_EQ(TOLV_ResampleFlushBuffersEx(r, nullptr, 10), 0);
            TOLV_ResampleDestroy(r);
        }
    }
}

// Null and bad kinds are reported and refused where survivable (destroy frees
// the handle only); else, and for stateless or flushed objects, the process
// ends rather than read outside the object.
TEST(ResampleDeathTest, BadObjectsAreReportedOrEndTheProcess)
{
    float buffer[64] = {0};
    const std::string said =
        "TOLV_Resample: Estrutura de dados nao foi inicializada corretamente!";
    {
        tolv_test::Messages messages;
        EXPECT_EQ(TOLV_Resample(nullptr, buffer, buffer, 4), -1);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(nullptr), -1);
        EXPECT_EQ(TOLV_ResampleDestroy(nullptr), 0);
        auto *bad = static_cast<_TOLV_RESAMPLE *>(calloc(1, 16));
        bad->kind = 0xBADC0DEu; /* a kind no set-up writes: memory gone bad */
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(bad), -1);
        EXPECT_EQ(TOLV_ResampleDestroy(bad), 0);
        const std::string one = "2 -1 " + said + "\n\n";
        EXPECT_EQ(messages.All(), one + one + one + one + one);
    }
    static _TOLV_RESAMPLE bad = {0x7fffffff, nullptr}; // static: no leak
    // In the child every report shows its level and code on stderr.
    auto loud = [] {
        KEELDEBUG_SetMessageHandler(
            [](int level, int code, const char *text, void *) {
                std::fprintf(stderr, "%d %d %s", level, code, text);
            },
            nullptr);
    };
    EXPECT_EXIT((loud(), TOLV_Resample(&bad, buffer, buffer, 4)),
                ::testing::ExitedWithCode(1), "2 -1 " + said);
    EXPECT_EXIT((loud(), TOLV_ResampleFlushBuffersEx(&bad, buffer, 4)),
                ::testing::ExitedWithCode(1), "3 -1 " + said);
    EXPECT_EXIT((loud(), TOLV_ResampleFlushBuffersEx(nullptr, buffer, 4)),
                ::testing::ExitedWithCode(1), "3 -1 " + said);
    auto refused = [] { return TOLV_ResampleInit(8000, 16000, "order=0"); };
    EXPECT_DEATH(TOLV_Resample(refused(), buffer, buffer, 4), "");
    EXPECT_DEATH(TOLV_ResampleFlushBufferSize(refused()), "");
    EXPECT_DEATH(TOLV_ResampleFlushBuffersEx(refused(), buffer, 4), "");
    EXPECT_DEATH(TOLV_ResampleDestroy(refused()), "");
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, "delaycompensation=0");
    EXPECT_EQ(TOLV_ResampleFlushBuffersEx(r, buffer, 1), 1);
    EXPECT_DEATH(TOLV_Resample(r, buffer, buffer, 4), "");
    TOLV_ResampleDestroy(r);
}

} // namespace
