/*
 * Band-pass and band-reject filters from the digital lowpass prototype (edge
 * at angle pi/2) by a second-order z-plane transformation: each prototype
 * root p gives the two roots of A z^2 + B z + G = 0, so the order doubles.
 *
 * The gain is kept at a reference: the distances of the prototype roots to
 * exp(j pi/2) against those of the new roots to exp(j pi fpass1), so the
 * lower band edge gets the prototype's magnitude at its edge.
 */
#include <cmath>
#include <cstring>

#include "TOLVfilter/design.h"

namespace {

/* tan(pi/4) as double precision computes it. */
const double kTanQuarterPi = 0.9999999999999999;

struct BandCoefficients {
    bool reject;
    double a1, a2;
};

/* Stores one new root (reflected inside the unit circle) and accounts for
 * it in the after-product. */
void storeRoot(_ROOT r, const _ROOT &edge, _ROOT *list, int index,
               double *after)
{
    if (std::abs(r) > 1.0)
        r = 1.0 / r;
    list[index] = r;
    *after *= _DistanceProduct(edge, r);
}

/* Transforms the N roots of one list in place; false when the copy of the
 * prototype could not be had. */
bool convertList(const BandCoefficients &bc, int N, double f1, _ROOT *list,
                 double *before, double *after)
{
    if (N <= 0)
        return true;
    _RootScratch copy(static_cast<size_t>(N));
    _ROOT *proto = copy.data();
    if (proto == nullptr)
        return false;
    memcpy(static_cast<void *>(proto), list,
           static_cast<size_t>(N) * sizeof(_ROOT));
    const _ROOT edge = std::exp(_ROOT(0.0 * f1 * M_PI, M_PI * f1));

    for (int c = 0, o = 0, i = 0; c < N; i++) {
        const _ROOT p = proto[i];
        *before *= _DistanceProduct(_QuarterTurn, p);
        _ROOT A, B, G;
        if (bc.reject) {
            A = bc.a2 * p - 1.0;
            B = bc.a1 * (1.0 - p);
            G = p - bc.a2;
        } else {
            A = bc.a2 * p + 1.0;
            B = bc.a1 * (1.0 + p);
            G = p + bc.a2;
        }
        const _ROOT D = B * B - G * (4.0 * A);
        if (p.imag() == 0.0 && D.real() < 0.0) {
            /* A real root with a conjugate pair of images: one entry. */
            const _ROOT S = _ROOT(0.0, 1.0) * std::sqrt(-D);
            storeRoot((S - B) / (2.0 * A), edge, list, o, after);
            o += 1;
            c += 1;
        } else {
            const _ROOT S = std::sqrt(D);
            storeRoot((S - B) / (2.0 * A), edge, list, o, after);
            storeRoot((-S - B) / (2.0 * A), edge, list, o + 1, after);
            o += 2;
            c += p.imag() != 0.0 ? 2 : 1;
        }
    }
    return true;
}

int convert(const BandCoefficients &bc, int N, double f1, _ROOT *poles,
            _ROOT *zeros, double *gain)
{
    double before[2] = {1.0, 1.0}, after[2] = {1.0, 1.0};
    if (!convertList(bc, N, f1, poles, &before[0], &after[0]) ||
        !convertList(bc, N, f1, zeros, &before[1], &after[1]))
        return 0;
    *gain = ((after[0] * before[1]) / (after[1] * before[0])) * *gain;
    return 1;
}

} // namespace

int _ConvertDigitalProtoToBP(int N, float fpass1, float fpass2, _ROOT *poles,
                             _ROOT *zeros, double *gain)
{
    const double w1 = M_PI * static_cast<double>(fpass1),
                 w2 = M_PI * static_cast<double>(fpass2);
    const double alpha = cos((w1 + w2) / 2.0) / cos((w2 - w1) / 2.0);
    const double k = kTanQuarterPi / tan((w2 - w1) / 2.0);
    const BandCoefficients bc = {false, -(2.0 * alpha * k) / (k + 1.0),
                                 (k - 1.0) / (k + 1.0)};
    return convert(bc, N, fpass1, poles, zeros, gain);
}

int _ConvertDigitalProtoToBR(int N, float fpass1, float fpass2, _ROOT *poles,
                             _ROOT *zeros, double *gain)
{
    const double w1 = M_PI * static_cast<double>(fpass1),
                 w2 = M_PI * static_cast<double>(fpass2);
    const double alpha = cos((w1 + w2) / 2.0) / cos((w2 - w1) / 2.0);
    const double k = tan((w2 - w1) / 2.0) * kTanQuarterPi;
    const BandCoefficients bc = {true, 2.0 * alpha / (1.0 + k),
                                 (1.0 - k) / (1.0 + k)};
    return convert(bc, N, fpass1, poles, zeros, gain);
}
