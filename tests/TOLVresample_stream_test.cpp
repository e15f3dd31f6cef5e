/*
 * Resampler streaming: the output against a plain convolution model, block
 * splits, the flush, stream lengths, the zero-order hold, quality, and the
 * reports and exits of bad objects.
 */
#include <cmath>
#include <cstdlib>

#include "TOLVresample_support.h"

namespace {

struct Pair {
    int in, out;
    const char *config;
};

std::ostream &operator<<(std::ostream &os, const Pair &p)
{
    return os << p.in << "to" << p.out << (p.config ? p.config : "");
}

const Pair kPolyPairs[] = {{44100, 48000, nullptr}, {48000, 44100, nullptr},
                           {8000, 16000, nullptr},  {16000, 8000, nullptr},
                           {48000, 48000, nullptr}, {44100, 8000, "order=4"},
                           {8000, 44100, "order=3"}, {3, 2, "order=1"},
                           {11025, 16000, "order=2, delaycompensation=off"}};

class PolyStream : public ResampleTest,
                   public ::testing::WithParamInterface<Pair> {};

/* Blocks plus a whole flush give exactly the model's ticks D, D + 1, ...:
 * the grid, the phase rows, the order of every sum, the dropped ticks and
 * the f32 sum of the flush. */
TEST_P(PolyStream, MatchesTheConvolutionModelBitForBit)
{
    const Pair p = GetParam();
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(p.in, p.out, p.config);
    _TOLV_POLYPHASE *s = Poly(r);
    const int32_t skip = s->skipRemaining, D = s->flushRemaining;
    const std::vector<float> x = Noise(3000, 7);
    std::vector<float> y = RunBlocks(r, x, {1000, 37, 1, 0, 500, 1462});
    std::vector<float> tail(D + 1);
    int flushed = TOLV_ResampleFlushBuffersEx(r, tail.data(), 0);
    EXPECT_EQ(flushed, D);
    y.insert(y.end(), tail.begin(), tail.begin() + flushed);

    const int64_t ticks = TicksOf(3000, s->up, s->down);
    ASSERT_EQ(int64_t(y.size()), ticks - skip + D);
    std::vector<float> model = ModelTicks(s, x, skip, int64_t(y.size()));
    for (size_t i = 0; i < y.size(); i++)
        ASSERT_EQ(y[i], model[i]) << "frame " << i << " of " << y.size();
    EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
}

/* However the stream is cut, blocks of 0 and 1 frames included, the frames
 * are those of one block, bit for bit, and the state ends the same. */
TEST_P(PolyStream, AnyBlockSplitGivesTheSameFrames)
{
    const Pair p = GetParam();
    const std::vector<float> x = Noise(4000, 11);
    _TOLV_RESAMPLE *whole = TOLV_ResampleInit(p.in, p.out, p.config);
    const std::vector<float> once = RunBlocks(whole, x, {4000});
    const std::vector<std::vector<int>> splits = {
        {1}, {0, 1, 0, 2}, {7, 0, 64, 1}, {60, 61, 62}, {120, 3, 1999}, {3999, 1}};
    for (const std::vector<int> &split : splits) {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(p.in, p.out, p.config);
        std::vector<float> y = RunBlocks(r, x, split);
        ASSERT_EQ(y.size(), once.size()) << "split starting " << split[0];
        for (size_t i = 0; i < y.size(); i++)
            ASSERT_EQ(y[i], once[i]) << "frame " << i << ", split " << split[0];
        _TOLV_POLYPHASE *a = Poly(r), *b = Poly(whole);
        EXPECT_EQ(a->phase, b->phase);
        EXPECT_EQ(a->writeIndex, b->writeIndex);
        EXPECT_EQ(a->skipRemaining, b->skipRemaining);
        for (int t = 0; t < a->tapsPerPhase; t++)
            ASSERT_EQ(a->delayLine[t], b->delayLine[t]) << t;
        TOLV_ResampleDestroy(r);
    }
    TOLV_ResampleDestroy(whole);
}

INSTANTIATE_TEST_SUITE_P(Pairs, PolyStream, ::testing::ValuesIn(kPolyPairs));

/* After rounding to f32 the order of a double sum rarely shows, so it is
 * exposed on purpose. Equal rates give one symmetric row; spikes +B and -B
 * whose ages straddle the centre meet equal taps and cancel exactly at the
 * tick where both are in the window, and everything summed before the
 * cancellation is lost in the rounding of B. Only the age order leaves what
 * the model leaves. The cut puts that tick in the middle of a block, within
 * the first K - 1 frames of one, and into the flush. */
TEST_F(ResampleTest, SumsRunInTheOrderOfAge)
{
    struct Case { int length, spike; std::vector<int> split; };
    const Case cases[] = {{3000, 1000, {4000}},
                          {3000, 1000, {1015, 2000}},
                          {3000, 1000, {1034, 2000}},
                          {1010, 990, {1010}}};
    for (const Case &c : cases) {
        std::vector<float> x = Noise(c.length, 31);
        x[c.spike] = 1e20f;
        x[c.spike + 10] = -1e20f; /* critical tick: spike + 35 */
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(48000, 48000, nullptr);
        _TOLV_POLYPHASE *s = Poly(r);
        std::vector<float> y = RunBlocks(r, x, c.split);
        std::vector<float> tail(31);
        int got = TOLV_ResampleFlushBuffersEx(r, tail.data(), 0);
        y.insert(y.end(), tail.begin(), tail.begin() + got);
        std::vector<float> model = ModelTicks(s, x, 30, int64_t(y.size()));
        ASSERT_EQ(y.size(), model.size());
        for (size_t i = 0; i < y.size(); i++)
            ASSERT_EQ(y[i], model[i]) << "tick " << i + 30 << ", split " << c.split[0];
        TOLV_ResampleDestroy(r);
    }
}

/* A stream of n frames with compensation on gives ceil(n L / M) frames over
 * its blocks and its flush together, aligned to the input's start. */
TEST_F(ResampleTest, StreamLengthsWithCompensation)
{
    const int pairs[][2] = {{44100, 48000}, {48000, 44100}, {8000, 16000},
                            {16000, 8000},  {22050, 44100}, {44100, 11025}};
    for (const auto &pair : pairs)
        for (int n : {500, 1001, 4410, 4799}) {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(pair[0], pair[1], nullptr);
            _TOLV_POLYPHASE *s = Poly(r);
            std::vector<float> y = RunBlocks(r, Noise(n, 3), {256});
            std::vector<float> tail(s->flushRemaining + 1);
            size_t total = y.size() + TOLV_ResampleFlushBuffersEx(r, tail.data(), -1);
            EXPECT_EQ(int64_t(total), TicksOf(n, s->up, s->down))
                << pair[0] << " to " << pair[1] << ", " << n << " frames";
            TOLV_ResampleDestroy(r);
        }
}

/* ---- Flush --------------------------------------------------------------- */

struct FlushCase {
    int maxFrames;
    int32_t given;       /* for D = 33 */
    int32_t reported;    /* flushRemaining afterwards */
};

class PolyFlush : public ResampleTest,
                  public ::testing::WithParamInterface<FlushCase> {};

TEST_P(PolyFlush, GivesUpToTheLimitAndEndsTheStream)
{
    const FlushCase c = GetParam();
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(44100, 48000, nullptr);
    _TOLV_POLYPHASE *s = Poly(r);
    ASSERT_EQ(TOLV_ResampleFlushBufferSize(r), 33);
    const std::vector<float> x = Noise(2000, 5);
    std::vector<float> y = RunBlocks(r, x, {2000});
    const int64_t done = int64_t(y.size()) + 33; /* ticks so far */

    std::vector<float> tail(64, -7.0f);
    ASSERT_EQ(TOLV_ResampleFlushBuffersEx(r, tail.data(), c.maxFrames), c.given);
    EXPECT_EQ(tail[c.given], -7.0f); /* nothing past the count */
    EXPECT_LT(s->phase, 0);
    EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), c.reported);
    const std::vector<float> model = ModelTicks(s, x, done, c.given);
    for (int i = 0; i < c.given; i++)
        ASSERT_EQ(tail[i], model[i]) << i;

    /* The stream has ended: another flush gives nothing and leaves the
     * count alone, frames not taken are lost. */
    EXPECT_EQ(TOLV_ResampleFlushBuffersEx(r, tail.data(), 0), 0);
    EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), c.reported);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
}

INSTANTIATE_TEST_SUITE_P(Limits, PolyFlush,
                         ::testing::Values(FlushCase{0, 33, 0}, FlushCase{-5, 33, 0},
                                           FlushCase{33, 33, 0}, FlushCase{40, 33, 0},
                                           FlushCase{5, 5, 28}, FlushCase{1, 1, 32},
                                           FlushCase{32, 32, 1}));

/* Shorter than the skip: the blocks give nothing, the rest of the skip is
 * used up in the flush, and the flush still gives its D frames. */
TEST_F(ResampleTest, StreamShorterThanTheSkip)
{
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(44100, 48000, nullptr);
    _TOLV_POLYPHASE *s = Poly(r);
    const std::vector<float> x = Noise(20, 2);
    std::vector<float> y = RunBlocks(r, x, {6, 0, 14});
    EXPECT_TRUE(y.empty());
    EXPECT_EQ(s->skipRemaining, 33 - TicksOf(20, 160, 147));
    std::vector<float> tail(34);
    ASSERT_EQ(TOLV_ResampleFlushBuffersEx(r, tail.data(), 0), 33);
    EXPECT_EQ(s->skipRemaining, 0);
    const std::vector<float> model = ModelTicks(s, x, 33, 33);
    for (int i = 0; i < 33; i++)
        ASSERT_EQ(tail[i], model[i]) << i;
    TOLV_ResampleDestroy(r);
}

/* A block of 0 frames gives 0 and moves nothing, but makes the first
 * allocation of the work block. */
TEST_F(ResampleTest, EmptyBlocksAllocateButMoveNothing)
{
    float dummy = 0.0f;
    for (const char *config : {"type=poly", "type=zoh"})
        for (int in : {8000, 16000}) {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, 24000 - in, config);
            for (int frames : {0, -3}) {
                EXPECT_EQ(TOLV_Resample(r, &dummy, &dummy, frames), 0);
                if (r->kind == TOLV_RESAMPLE_POLYPHASE) {
                    EXPECT_NE(Poly(r)->staging, nullptr);
                    EXPECT_EQ(Poly(r)->phase, 0);
                    EXPECT_EQ(Poly(r)->skipRemaining, Poly(r)->flushRemaining);
                } else {
                    EXPECT_NE(Zoh(r)->staging, nullptr);
                    EXPECT_EQ(Zoh(r)->phase, 0u);
                    EXPECT_EQ(Zoh(r)->inputCount, 0);
                }
            }
            EXPECT_EQ(dummy, 0.0f);
            TOLV_ResampleDestroy(r);
        }
    EXPECT_TRUE(messages.empty());
}

/* ---- Zero-order hold ------------------------------------------------------ */

/* The stored low-pass run over a whole signal from cleared memories. */
std::vector<double> LowPass(const _TOLV_ZOH *s, const std::vector<float> &x)
{
    std::vector<double> mem(2 * s->coefficientCount + 2, 0.0), y(x.size());
    FilterBlockFloat(s->aCoeffs, s->bCoeffs, s->coefficientCount, mem.data(),
                     mem.data() + s->coefficientCount + 1, x.data(), y.data(),
                     int(x.size()));
    return y;
}

/* On any grid, frame n is held for the ticks m with floor(m M / L) = n:
 * up by two, each value twice and then filtered; down by two, filtered and
 * then every second value, the stream's first among them. */
TEST_F(ResampleTest, ZohFollowsTheGridAndAnySplit)
{
    const int pairs[][2] = {{8000, 16000},  {16000, 8000},  {44100, 48000},
                            {48000, 44100}, {8000, 44100},  {96000, 11025}};
    for (const auto &pair : pairs) {
        const std::vector<float> x = Noise(3000, 23);
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(pair[0], pair[1], "type=zoh");
        const _TOLV_ZOH *s = Zoh(r);
        const bool up = s->upsampling;
        std::vector<float> held;
        const std::vector<double> pre = up ? std::vector<double>() : LowPass(s, x);
        for (int64_t m = 0; m < TicksOf(3000, s->up, s->down); m++) {
            int64_t n = m * s->down / s->up;
            held.push_back(up ? x[n] : float(pre[n]));
        }
        std::vector<float> want = held;
        if (up) {
            const std::vector<double> post = LowPass(s, held);
            for (size_t i = 0; i < want.size(); i++)
                want[i] = float(post[i]);
        }
        const std::vector<float> y = RunBlocks(r, x, {1, 0, 17, 1000});
        ASSERT_EQ(y.size(), want.size()) << pair[0] << " to " << pair[1];
        for (size_t i = 0; i < y.size(); i++)
            ASSERT_EQ(y[i], want[i]) << pair[0] << " to " << pair[1] << " " << i;
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), 0);
        EXPECT_EQ(TOLV_ResampleFlushBuffersEx(r, nullptr, 10), 0);
        TOLV_ResampleDestroy(r);
    }
}

/* ---- Quality ---------------------------------------------------------- */

struct Fit {
    double snrDb, delay; /* delay in output frames, from the ideal sine */
};

/* Least-squares fit of a sine of known frequency (cycles per output frame)
 * over y[from, to); the residual is the noise. */
Fit FitSine(const std::vector<float> &y, double f, size_t from, size_t to)
{
    double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0;
    for (size_t k = from; k < to; k++) {
        double s = std::sin(2 * M_PI * f * k), c = std::cos(2 * M_PI * f * k);
        ss += s * s; sc += s * c; cc += c * c; ys += y[k] * s; yc += y[k] * c;
    }
    double det = ss * cc - sc * sc;
    double a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
    double sig = 0, err = 0;
    for (size_t k = from; k < to; k++) {
        double m = a * std::sin(2 * M_PI * f * k) + b * std::cos(2 * M_PI * f * k);
        sig += m * m;
        err += (y[k] - m) * (y[k] - m);
    }
    /* y = A sin(2 pi f (k - delay)) = A cos(w delay) sin - A sin(w delay) cos */
    double delay = std::atan2(-b, a) / (2 * M_PI * f);
    return {10 * std::log10(sig / err), delay};
}

struct SineCase {
    int in, out;
    double hz;
    double minSnrDb;
};

class PolyQuality : public ResampleTest,
                    public ::testing::WithParamInterface<SineCase> {};

/* A sine keeps its frequency (the fit at the exact output frequency leaves
 * only noise), its level, and its timing within the rounding of D. The
 * floors are a few dB under what was measured. */
TEST_P(PolyQuality, SineKeepsFrequencyLevelAndTiming)
{
    const SineCase c = GetParam();
    const int n = c.in; /* one second */
    std::vector<float> x(n);
    for (int i = 0; i < n; i++)
        x[i] = float(0.5 * std::sin(2 * M_PI * c.hz * i / c.in));
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(c.in, c.out, nullptr);
    std::vector<float> y = RunBlocks(r, x, {4096});
    std::vector<float> tail(Poly(r)->flushRemaining + 1);
    int got = TOLV_ResampleFlushBuffersEx(r, tail.data(), 0);
    y.insert(y.end(), tail.begin(), tail.begin() + got);
    ASSERT_EQ(int64_t(y.size()), TicksOf(n, Poly(r)->up, Poly(r)->down));

    const size_t edge = 2000;
    Fit fit = FitSine(y, c.hz / c.out, edge, y.size() - edge);
    RecordProperty("snr_db", std::to_string(fit.snrDb));
    EXPECT_GT(fit.snrDb, c.minSnrDb);
    EXPECT_LT(std::fabs(fit.delay), 0.5) << "frames off the input's start";
    double level = 0;
    for (size_t k = edge; k < y.size() - edge; k++)
        level = std::max(level, double(std::fabs(y[k])));
    EXPECT_NEAR(level, 0.5, 0.005);
    TOLV_ResampleDestroy(r);
}

INSTANTIATE_TEST_SUITE_P(
    Sines, PolyQuality,
    ::testing::Values(SineCase{44100, 48000, 1000.0, 108}, /* measured 112.0 */
                      SineCase{48000, 44100, 1000.0, 111}, /* measured 114.2 */
                      SineCase{8000, 16000, 440.0, 64},    /* measured 66.7 */
                      SineCase{44100, 48000, 15000.0, 91}), /* measured 94.4 */
    [](const ::testing::TestParamInfo<SineCase> &info) {
        return std::to_string(info.param.in) + "To" + std::to_string(info.param.out) +
               "At" + std::to_string(int(info.param.hz)) + "HzOver" +
               std::to_string(int(info.param.minSnrDb)) + "dB";
    });

/* ---- Bad objects ---------------------------------------------------------- */

/* Null objects, and objects of a kind that is neither 0 nor 1, are
 * reported and refused where the call can be survived. */
TEST_F(ResampleTest, NullAndBadObjectsAreReportedAndRefused)
{
    float buffer[4] = {0};
    EXPECT_EQ(TOLV_Resample(nullptr, buffer, buffer, 4), -1);
    EXPECT_EQ(TOLV_ResampleFlushBufferSize(nullptr), -1);
    EXPECT_EQ(TOLV_ResampleDestroy(nullptr), 0);
    _TOLV_RESAMPLE *bad = static_cast<_TOLV_RESAMPLE *>(calloc(1, sizeof(_TOLV_RESAMPLE)));
    bad->kind = 2;
    EXPECT_EQ(TOLV_ResampleFlushBufferSize(bad), -1);
    EXPECT_EQ(TOLV_ResampleDestroy(bad), 0); /* frees the handle only */
    ASSERT_EQ(messages.size(), 5u);
    for (const CapturedMessage &m : messages) {
        EXPECT_EQ(m.level, KEEL_LEVEL_ERROR);
        EXPECT_EQ(m.text, "TOLV_Resample: Estrutura de dados nao foi inicializada corretamente!\n");
    }
}

/* Lives in static storage, so nothing leaks when the process exits. */
_TOLV_RESAMPLE *BadKind()
{
    static _TOLV_RESAMPLE bad;
    bad.kind = 0x7fffffff;
    bad.impl = nullptr;
    return &bad;
}

TEST(ResampleDeathTest, CorruptedObjectsEndTheProcess)
{
    float buffer[4] = {0};
    EXPECT_EXIT(TOLV_Resample(BadKind(), buffer, buffer, 4),
                ::testing::ExitedWithCode(1), "Estrutura de dados nao foi inicializada");
    EXPECT_EXIT(TOLV_ResampleFlushBuffersEx(BadKind(), buffer, 4),
                ::testing::ExitedWithCode(1), "Estrutura de dados nao foi inicializada");
    EXPECT_EXIT(TOLV_ResampleFlushBuffersEx(nullptr, buffer, 4),
                ::testing::ExitedWithCode(1), "Estrutura de dados nao foi inicializada");
}

/* A handle whose order was refused has no state, and a flushed stream has
 * ended: neither can go on, and the process stops rather than reading
 * outside the object. */
TEST(ResampleDeathTest, StatelessOrFlushedObjectsCannotGoOn)
{
    float buffer[64] = {0};
    auto refused = [] { return TOLV_ResampleInit(8000, 16000, "order=0"); };
    EXPECT_DEATH(TOLV_Resample(refused(), buffer, buffer, 4), "");
    EXPECT_DEATH(TOLV_ResampleFlushBufferSize(refused()), "");
    EXPECT_DEATH(TOLV_ResampleFlushBuffersEx(refused(), buffer, 4), "");
    EXPECT_DEATH(TOLV_ResampleDestroy(refused()), "");
    EXPECT_DEATH(
        {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, nullptr);
            TOLV_ResampleFlushBuffersEx(r, buffer, 1);
            TOLV_Resample(r, buffer, buffer, 4);
        },
        "");
}

} // namespace
