/*
 * Set-up of the polyphase converter: a windowed-sinc low-pass designed on
 * the grid of L times the input rate, split into L phase rows so that each
 * output tick costs K = ceil((N + 1) / L) multiply-adds.
 */
#include <math.h>
#include <stdlib.h>

#include "resample.h"

static const double PI = 3.141592653589793;
static const double TWO_PI = 6.283185307179586;
static const double FOUR_PI = 12.566370614359172;

/* Half of the prototype length in units of max(L, M), unless the text says. */
static int _ReadOrder(const char *config)
{
    int fallback = static_cast<int>(
        KEELSETTINGS_GetIntEx(nullptr, "libtolv.resample.polyphase.order=30"));
    return KEELSTRING_GetIntegerValueFromString(config, "order", fallback);
}

/* Prototype of N + 1 taps followed by zeros up to a whole number of rows:
 * a sinc cut at 0.95 of the lower Nyquist frequency under a Blackman window
 * whose denominator is N + 1, with a gain of L so that each phase has about
 * unit gain. The window is evaluated on the rising half and mirrored. */
static double *_DesignPrototype(int32_t up, int32_t down, int32_t n)
{
    int32_t length = up + n + 1 - (n + 1) % up;
    double *h = static_cast<double *>(
        calloc(static_cast<size_t>(length), sizeof(double)));
    if (h == nullptr)
        return nullptr;
    double cutoff = 0.95 * fmin(PI / up, PI / down);
    int32_t half = n / 2;
    for (int32_t i = 0; i < half; i++) {
        double t = static_cast<double>(i - half);
        double window = 0.08 * cos(i * FOUR_PI / (n + 1)) +
                        (0.42 - 0.5 * cos(TWO_PI * i / (n + 1)));
        double tap = (sin(cutoff * t) / (t * PI)) * (window * up);
        h[i] = tap;
        h[n - i] = tap;
    }
    /* The centre tap is the sinc's limit times the gain, not windowed. */
    if (up > down)
        h[half] = 0.95;
    else
        h[half] = static_cast<double>(static_cast<float>(up) /
                                      static_cast<float>(down)) *
                  0.95;
    return h;
}

/* The refused order: reported, and the handle left without a state. */
static void _RefuseOrder(_TOLV_RESAMPLE *handle)
{
    KEELDEBUG_TerminalError(-1, "TOLV_ResampleInit: Parametros invalidos");
    handle->impl = nullptr;
}

/* The prototype dealt into L rows of K taps, row p holding taps p, p + L,
 * ... up to N; false when a block cannot be had (a prototype of millions of
 * taps takes twice its size again), and what was had stays in the state
 * for its release. */
static bool _SplitPhases(_TOLV_POLYPHASE *s, const double *h, int32_t up,
                         int32_t n)
{
    int32_t taps = (n + 1) / up + ((n + 1) % up != 0 ? 1 : 0);
    s->tapsPerPhase = taps;
    s->up = up;
    s->delayLine = static_cast<double *>(
        calloc(static_cast<size_t>(taps), sizeof(double)));
    s->phaseFilters = static_cast<double **>(
        calloc(static_cast<size_t>(up), sizeof(double *)));
    if (s->delayLine == nullptr || s->phaseFilters == nullptr)
        return false;
    for (int32_t p = 0; p < up; p++) {
        double *row = static_cast<double *>(
            calloc(static_cast<size_t>(taps), sizeof(double)));
        if (row == nullptr)
            return false;
        for (int32_t j = 0; j < taps && p + static_cast<int64_t>(j) * up <= n;
             j++)
            row[j] = h[p + j * up];
        s->phaseFilters[p] = row;
    }
    return true;
}

static void _PolyphaseDestroy(void *state);

static void _PolyphaseSetUp(_TOLV_RESAMPLE *handle, int inputRate,
                            int outputRate, const char *config)
{
    handle->kind = TOLV_RESAMPLE_POLYPHASE;
    int order = _ReadOrder(config);
    bool compensate =
        KEELSTRING_GetBooleanValueFromString(config, "delaycompensation", true);
    if (order < 1) {
        _RefuseOrder(handle);
        return;
    }
    _TOLV_POLYPHASE *s =
        static_cast<_TOLV_POLYPHASE *>(calloc(1, sizeof(_TOLV_POLYPHASE)));
    int32_t g = _ResampleGcd(inputRate, outputRate);
    int32_t up = outputRate / g;
    int32_t down = inputRate / g;
    /* The length wraps as a 32-bit product would; a length that wrapped
     * to nothing, or whose rows would not fit, is refused like an order
     * below 1. */
    int32_t n = static_cast<int32_t>(static_cast<uint32_t>(
        2u * static_cast<uint32_t>(up > down ? up : down) *
        static_cast<uint32_t>(order)));
    if (n < 1 || static_cast<int64_t>(up) + n + 1 > INT32_MAX) {
        free(s);
        _RefuseOrder(handle);
        return;
    }

    /* Group delay of N / 2 grid steps, in output frames. */
    int32_t delay = static_cast<int32_t>(
        roundf(static_cast<float>(n) /
               (static_cast<float>(down) + static_cast<float>(down))));
    s->flushRemaining = delay;
    s->skipRemaining = compensate ? delay : 0;

    double *h = _DesignPrototype(up, down, n);
    if (h == nullptr) {
        free(s);
        _RefuseOrder(handle);
        return;
    }
    if (!_SplitPhases(s, h, up, n)) {
        free(h);
        _PolyphaseDestroy(s);
        _RefuseOrder(handle);
        return;
    }
    s->down = down;
    s->phase = 0;
    s->writeIndex = 0;
    s->staging = nullptr;
    s->stagingCapacity = 0;
    free(h);
    handle->impl = s;
}

static int _PolyphaseRun(void *state, const float *input, float *output,
                         int frames)
{
    return _PolyphaseResample(static_cast<_TOLV_POLYPHASE *>(state), input,
                              output, frames);
}

static int _PolyphasePending(const void *state)
{
    return (static_cast<const _TOLV_POLYPHASE *>(state))->flushRemaining;
}

static int _PolyphaseFlushOp(void *state, float *output, int maxFrames)
{
    return _PolyphaseFlush(static_cast<_TOLV_POLYPHASE *>(state), output,
                           maxFrames);
}

static void _PolyphaseDestroy(void *state)
{
    _TOLV_POLYPHASE *s = static_cast<_TOLV_POLYPHASE *>(state);
    if (s->staging != nullptr)
        free(s->staging);
    for (int32_t p = 0; s->phaseFilters != nullptr && p < s->up; p++)
        free(s->phaseFilters[p]);
    free(s->phaseFilters);
    free(s->delayLine);
    free(s);
}

const _TOLV_RESAMPLE_OPS _PolyphaseOps = {_PolyphaseSetUp, _PolyphaseRun,
                                          _PolyphasePending, _PolyphaseFlushOp,
                                          _PolyphaseDestroy};
