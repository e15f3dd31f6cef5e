/*
 * Private side of IIR design from a text: the stages between the band edges
 * of a configuration string and the cascade of biquads.
 *
 * Every stage hands roots over in a root list: an array of complex doubles
 * holding N roots in packed form. An entry with a non-zero imaginary part
 * stands for itself and its conjugate (which is not stored) and counts two;
 * an entry with a zero imaginary part counts one. An entry whose magnitude is
 * not finite is a root at infinity.
 *
 * The road: an analog lowpass prototype with its passband edge at 1 rad/s
 * (a design record), one bilinear step to a digital prototype with its edge
 * at a quarter of the sampling rate, a z-plane transformation to the wanted
 * lowpass/highpass edge or band, and the pairing of roots into sections.
 */
#ifndef TOLV_FILTER_DESIGN_H
#define TOLV_FILTER_DESIGN_H

#include <complex>
#include <cstddef>
#include <cstdint>

#include "lanes.h"
#include "tolv.h"

typedef std::complex<double> _ROOT;

/* Order estimates rely on _TruncToInt32 (lanes.h) for their degenerate
 * inputs: NaN and values out of range give the most negative 32-bit
 * integer. */

/* ---- Order estimates ----------------------------------------------------
 * Arguments: passband edge (always 1.0, not read), selectivity ratio (stop
 * over pass bandwidth, -1.0 when no stop edge was given), Ap, As in dB. */
int _ButterworthOrder(double passEdge, double ratio, double Ap, double As);
int _ChebyshevOrder(double passEdge, double ratio, double Ap, double As);
int _ChebyshevIIOrder(double passEdge, double ratio, double Ap, double As);
int _EllipticOrder(double passEdge, double ratio, double Ap, double As);

/* Loss ratio D = (10^(As/10) - 1) / (10^(Ap/10) - 1). */
double _LossRatio(double Ap, double As);
/* Nome of the selectivity k = 1 / ratio by its four-term series. */
double _EllipticNome(double k);

/* ---- Analog prototypes ---------------------------------------------------
 * Write the poles and zeros of H(s) = K prod(s - z) / prod(s - p), passband
 * edge at 1 rad/s, and K through gain. Result 1, or 0 when the arguments
 * are refused (nothing is written then). */
int _ButterworthDesign(double passEdge, double ratio, double Ap, double As,
                       int N, _ROOT *poles, _ROOT *zeros, double *gain);
int _ChebyshevDesign(double passEdge, double ratio, double Ap, double As, int N,
                     _ROOT *poles, _ROOT *zeros, double *gain);
int _ChebyshevIIDesign(double passEdge, double ratio, double Ap, double As,
                       int N, _ROOT *poles, _ROOT *zeros, double *gain);
int _EllipticDesign(double passEdge, double ratio, double Ap, double As, int N,
                    _ROOT *poles, _ROOT *zeros, double *gain);

/* A design record: the order estimate and the design of one approximation. */
typedef int (*_ORDER_ESTIMATE)(double, double, double, double);
typedef int (*_PROTOTYPE_DESIGN)(double, double, double, double, int, _ROOT *,
                                 _ROOT *, double *);
struct _DESIGN_RECORD {
    _ORDER_ESTIMATE orderEstimate;
    _PROTOTYPE_DESIGN design;
};
extern const _DESIGN_RECORD _Butterworth;
extern const _DESIGN_RECORD _Chebyshev;
extern const _DESIGN_RECORD _ChebyshevII;
extern const _DESIGN_RECORD _Elliptic;

/* ---- Analog to digital and z-plane transformations ----------------------
 * All rewrite N roots of each list in place and update gain. Each keeps the
 * gain at a reference point by comparing the distances of the roots to that
 * point before and after the mapping. */

/* exp(j pi/2) as double precision computes it, not the exact point j: the
 * prototype's edge after the bilinear step. */
static const _ROOT _QuarterTurn(6.123233995736766e-17, 1.0);

/* Walks the entries of a packed list of N roots in order. visit(entry) may
 * rewrite the entry and returns how many roots it now stands for (1 or 2). */
template <class Visit>
static inline void _WalkRoots(_ROOT *list, int N, Visit visit)
{
    for (int count = 0, i = 0; count < N; i++)
        count += visit(list[i]);
}

/* Distance from `point` to a packed root: to the entry and, for a complex
 * entry, times the distance to its conjugate. */
static inline double _DistanceProduct(const _ROOT &point, const _ROOT &root)
{
    double t = std::abs(point - root);
    if (root.imag() != 0.0)
        t *= std::abs(point - std::conj(root));
    return t;
}

/* z = (1 + s) / (1 - s); roots at infinity go to z = -1. The gain keeps the
 * magnitude at z = 1 equal to the analog one at s = 0. */
void _BilinearPrototype(int N, _ROOT *poles, _ROOT *zeros, double *gain);
/* Moves the digital prototype's edge from angle pi/2 to angle pi * fpass:
 * lowpass (highpass = false) or highpass. */
void _TransformLowHigh(bool highpass, float fpass, int N, _ROOT *poles,
                       _ROOT *zeros, double *gain);
/* Second-order transformations to the band fpass1..fpass2 (fractions of
 * Nyquist). The lists hold N roots on entry and 2N on return; the caller
 * sizes them for 2N entries. Result 1. */
int _ConvertDigitalProtoToBP(int N, float fpass1, float fpass2, _ROOT *poles,
                             _ROOT *zeros, double *gain);
int _ConvertDigitalProtoToBR(int N, float fpass1, float fpass2, _ROOT *poles,
                             _ROOT *zeros, double *gain);

/* ---- Sections ------------------------------------------------------------
 * Pairs N roots, in list order, into ceil(N / 2) biquad records (a1, a2, b0,
 * b1, b2) with the section gain g in every b0. Result 1, or 0 after an error
 * message when the roots do not pair. */
int _PairRootsIntoSections(int N, const _ROOT *poles, const _ROOT *zeros,
                           double g, double *sections);
/* The finished designed filter: sections from the roots with the gain
 * total * userGain spread evenly, numChannels and the band type code.
 * Null after an error message when the roots do not pair. */
_TOLV_FILTER *_MakeFilterFromRoots(int N, const _ROOT *poles,
                                   const _ROOT *zeros, double total,
                                   float userGain, int numChannels,
                                   int filterType);

/* ---- Scratch root lists --------------------------------------------------
 * Root lists live on the stack for ordinary orders and on the heap above
 * that, so that a huge order cannot overflow the stack. Every entry starts
 * with all bits set: an entry that no stage writes reads as NaN, a root at
 * infinity. data() is null when the heap could not supply the list. */
class _RootScratch {
  public:
    explicit _RootScratch(size_t count);
    ~_RootScratch();
    _RootScratch(const _RootScratch &) = delete;
    _RootScratch &operator=(const _RootScratch &) = delete;
    _ROOT *data() { return roots_; }

  private:
    static constexpr size_t kOnStack = 256;
    _ROOT local_[kOnStack];
    _ROOT *roots_;
};

#endif
