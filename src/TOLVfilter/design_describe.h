/*
 * A design text read and checked, before any root is computed: the band
 * type, the approximation, the edges as fractions of Nyquist and the
 * selectivity ratio, and from them the order the design will reach.
 *
 * Kept apart from the design road so that a front end can learn the order a
 * text asks for (and refuse a huge one) without running the design.
 */
#ifndef TOLV_FILTER_DESIGN_DESCRIBE_H
#define TOLV_FILTER_DESIGN_DESCRIBE_H

#include "TOLVfilter/design.h"

enum { _kLowpass = 0, _kHighpass = 1, _kBandpass = 2, _kBandReject = 3 };

/* What a description asks for, as read from the text; edges are fractions
 * of Nyquist once described, negative when absent. */
struct _DESIGN_DESCRIPTION {
    char type[64];
    char approximation[64];
    int order;
    float Ap, As;
    float p1, p2, s1, s2;
    int fs;
    /* Checked and looked up: band type code, approximation, selectivity
     * (stop over pass bandwidth, -1 without a stop edge). */
    int typeCode;
    const _DESIGN_RECORD *record;
    float ratio;
};

/* A float value of the text counted in whole numbers (channels, rate). */
int _WholeValue(const char *text, const char *key, float fallback);

/* Reads and checks a design text. False after the library's error message
 * (or silently, for edges the design cannot take). */
bool _DescribeDesign(const char *text, _DESIGN_DESCRIPTION *d);

/* Order of the lowpass prototype: the text's order, or the estimate when
 * that is higher. Not positive when the design is refused. */
int _PrototypeOrder(const _DESIGN_DESCRIPTION &d);

/* Order of the finished filter a design text makes (a band doubles the
 * prototype's), or -1 when the text is not a design or is refused. Counted
 * in 64 bits so that a doubled order never wraps. */
long long _DescribedOrder(const char *text);

#endif
