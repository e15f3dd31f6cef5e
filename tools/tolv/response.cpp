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

} // namespace cli
