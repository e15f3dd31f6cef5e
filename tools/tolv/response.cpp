#include "response.h"

#include <algorithm>
#include <cmath>

#include "cli.h"
#include "tolv.h"

namespace cli {

namespace {
struct FilterHandle {
    _TOLV_FILTER *f;
    explicit FilterHandle(const std::string &text) : f(createFilter(text))
    {
        if (!f)
            throw Failure("the library refused the filter text");
    }
    ~FilterHandle() { TOLV_DestroyFilter(f); }
};

/* Channel 0 of the response to a unit impulse on every channel. */
std::vector<float> impulseResponse(const std::string &text, int channels,
                                   int length)
{
    FilterHandle filter(text);
    std::vector<float> io(size_t(length) * channels, 0.0f);
    for (int c = 0; c < channels; c++)
        io[size_t(c)] = 1.0f;
    TOLV_Filter(filter.f, io.data(), io.data(), uint32_t(io.size()));
    std::vector<float> h(static_cast<size_t>(length));
    for (int n = 0; n < length; n++)
        h[size_t(n)] = io[size_t(n) * channels];
    return h;
}

/* Whether the last section of a designed filter of S sections is a
 * second-order one. Designed sections have their zeros on the unit circle,
 * so a full section has |b2| = |b0|, while a first-order one, which can
 * only stand last, has b2 = 0. The filter's own coefficients cannot be
 * read, but its memory can: a twin of the same text takes over the ring
 * after every frame, and with coefficients that pass only the last
 * section's newest state to the output, one silent frame of the twin reads
 * that state w[n]. With the filter fed noise, y[n] = b0 w[n] + b1 w[n-1] +
 * b2 w[n-2] is then solved for the b by least squares. */
bool lastSectionIsSecondOrder(const std::string &text, int channels,
                              int sections)
{
    const int frames = 64;
    FilterHandle filter(text), twin(text);
    std::vector<double> readout(size_t(5) * sections, 0.0); // a1 a2 b0 b1 b2
    readout[size_t(5) * (sections - 1) + 3] = 1.0;          // b1 of the last
    TOLV_UpdateFilterBiquads(twin.f, uint32_t(sections), readout.data());
    std::vector<float> frame(static_cast<size_t>(channels)), silence(frame);
    std::vector<double> y(frames), w(frames);
    uint32_t noise = 12345u;
    for (int n = 0; n < frames; n++) {
        // Noise rather than an impulse: a lone first-order section would
        // answer an impulse with a geometric run, and the three columns of
        // the fit would then be proportional.
        noise = noise * 1664525u + 1013904223u;
        std::fill(frame.begin(), frame.end(),
                  float(noise >> 8) / 16777216.0f - 0.5f);
        TOLV_Filter(filter.f, frame.data(), frame.data(), uint32_t(channels));
        y[size_t(n)] = frame[0];
        TOLV_CopyFilterMemories(twin.f, filter.f);
        std::fill(silence.begin(), silence.end(), 0.0f);
        TOLV_Filter(twin.f, silence.data(), silence.data(), uint32_t(channels));
        w[size_t(n)] = silence[0];
    }
    // Normal equations of the three-tap fit, solved by Cramer's rule.
    double m[3][3] = {}, v[3] = {};
    for (int n = 2; n < frames; n++) {
        const double row[3] = {w[size_t(n)], w[size_t(n) - 1],
                               w[size_t(n) - 2]};
        for (int i = 0; i < 3; i++) {
            v[i] += row[i] * y[size_t(n)];
            for (int j = 0; j < 3; j++)
                m[i][j] += row[i] * row[j];
        }
    }
    auto det = [](const double(&a)[3][3]) {
        return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) -
               a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
               a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
    };
    double d = det(m);
    double b0m[3][3], b2m[3][3];
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) {
            b0m[i][j] = j == 0 ? v[i] : m[i][j];
            b2m[i][j] = j == 2 ? v[i] : m[i][j];
        }
    double b0 = det(b0m) / d, b2 = det(b2m) / d;
    return std::fabs(b2) > 1e-3 * std::fabs(b0);
}
} // namespace

float Response::maxOver(const Band &b) const
{
    float best = -INFINITY;
    for (size_t k = 0; k < db.size(); k++)
        if (fraction(k) >= b.lo && fraction(k) <= b.hi)
            best = std::max(best, db[k]);
    return best;
}

float Response::minOver(const Band &b) const
{
    float best = INFINITY;
    for (size_t k = 0; k < db.size(); k++)
        if (fraction(k) >= b.lo && fraction(k) <= b.hi)
            best = std::min(best, db[k]);
    return best;
}

std::vector<double> Response::crossings(float level) const
{
    std::vector<double> points;
    for (size_t k = 0; k + 1 < db.size(); k++) {
        double a = db[k] - level, b = db[k + 1] - level;
        if ((a < 0) != (b < 0))
            points.push_back(fraction(k) +
                             (fraction(k + 1) - fraction(k)) * a / (a - b));
    }
    return points;
}

Response measureResponse(const std::string &text, int channels)
{
    Response r;
    std::vector<float> h;
    // Lengthen until the tail holds no more than 1e-14 of the energy.
    for (r.length = 1 << 16;; r.length <<= 1) {
        h = impulseResponse(text, channels, r.length);
        double total = 0.0, tail = 0.0;
        for (int n = 0; n < r.length; n++) {
            double e = double(h[size_t(n)]) * h[size_t(n)];
            total += e;
            if (n >= r.length - r.length / 8)
                tail += e;
        }
        if (!std::isfinite(total))
            throw Failure("the filter is unstable: its impulse response grows "
                          "without bound");
        if (tail <= 1e-14 * total)
            break;
        if (r.length >= (1 << 21)) {
            r.settled = false;
            break;
        }
    }
    const int L = r.length, H = L / 2;
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(L);
    TOLV_COMPLEX *scratch = TOLV_CreateComplexVector(fft);
    AlignedFloats input = alignedFloats(size_t(L));
    AlignedFloats psd = alignedFloats(size_t(4 * (L / 8 + 1)));
    AlignedFloats db = alignedFloats(size_t(4 * (L / 8 + 1)));
    std::copy(h.begin(), h.end(), input.get());
    TOLV_FFTProcExecutePSDEx(fft, input.get(), psd.get(), scratch);
    // The dB scaling divides by H^2 and by the square root of the
    // reference; a reference of 1 / H^4 leaves 10 log10 |H(w)|^2.
    double reference = 1.0 / (double(H) * H * H * H);
    TOLV_PSDtoDB(L, psd.get(), db.get(), nullptr, reference, kResponseFloorDb);
    r.db.assign(db.get(), db.get() + H + 1);
    TOLV_FFTProcExecute(fft, input.get(), scratch);
    r.phase.resize(size_t(H) + 1);
    for (size_t k = 0; k <= size_t(H); k++)
        r.phase[k] = std::atan2(scratch[k].im, scratch[k].re);
    TOLV_DestroyComplexVector(scratch);
    TOLV_FFTProcDestroy(fft);
    return r;
}

int measureDesignedOrder(const std::string &text, int channels, int *sections)
{
    // The filter takes new coefficients only for its own section count.
    *sections = 0;
    {
        FilterHandle probe(text);
        std::vector<double> records(5 * 4096, 0.0);
        for (uint32_t n = 1; n <= 4096; n++)
            if (TOLV_UpdateFilterBiquads(probe.f, n, records.data())) {
                *sections = int(n);
                break;
            }
    }
    if (*sections == 0)
        return -1;
    return 2 * *sections -
           (lastSectionIsSecondOrder(text, channels, *sections) ? 0 : 1);
}

} // namespace cli
