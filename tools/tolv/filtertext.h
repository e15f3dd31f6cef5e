/*
 * What a filter text says, read with the same configuration getters that
 * the library uses, so that the tool can tell the user which form the text
 * makes, where its bands lie, and whether it names fs and channels.
 */
#ifndef TOLV_CLI_FILTERTEXT_H
#define TOLV_CLI_FILTERTEXT_H

#include <string>
#include <vector>

#include "tolv.h"

namespace cli {

struct FilterText {
    enum Form { Sections, DirectForm, Design } form = Design;
    std::string text;
    bool channelsGiven = false, fsGiven = false;
    int channels = 1; /* "num_channels", else "nc", else 1, truncated */
    int fs = -1;      /* "fs" truncated, -1 when absent */

    /* Design texts: band type code (0 lowpass .. 3 band-reject, -1 not a
     * known keyword), approximation keyword, and the edges as fractions of
     * Nyquist (negative: absent). */
    int typeCode = 0;
    std::string approximation;
    double p1 = -1, p2 = -1, s1 = -1, s2 = -1, Ap = 3, As = -1;
    int order = -1; /* "order", -1 when absent */

    /* Explicit texts: the rows (five per section) or the two vectors. */
    std::vector<double> biquads, numerator, denominator;
};

FilterText readFilterText(const std::string &text);

/* The text with its type and approximation words in the library's own
 * spelling: any case is taken, and "elliptic" for "ellip". The corrected
 * words go in front, where the first occurrence of a key wins. */
std::string normalizeFilterText(const std::string &text);

/* Order of an explicit text: the sum of the sections' own orders, or the
 * longer vector's length minus one. */
int explicitOrder(const FilterText &f);

/* A frequency band [lo, hi] in fractions of Nyquist. */
struct Band {
    double lo, hi;
};
/* The pass and stop bands a design text asks for. A missing second stop
 * edge of a band type is mirrored so that both transition bands are equally
 * wide, as the design does. Empty lists when the text gives no such edges. */
std::vector<Band> passBands(const FilterText &f);
std::vector<Band> stopBands(const FilterText &f);

const char *typeName(int code);

/* Throws a failure when a design text with a sampling rate puts an edge at
 * or above half that rate. */
void checkEdgesBelowNyquist(const FilterText &f);

/* Creates the filter of a text; the text is passed as data, never as a
 * format. Null when the library refuses it. */
_TOLV_FILTER *createFilter(const std::string &text);
/* Highest order of a designed filter the tool accepts. The design has no
 * bound of its own and its time grows with the order; past a few hundred
 * sections a float cascade no longer holds the response it was designed
 * for anyway. */
constexpr int kMaxDesignOrder = 1000;

/* The same, but a refusal is thrown as a failure with the library's own
 * message, or with the usual reasons when it refused without one. A design
 * text whose order (given, or estimated from the edges, Ap and As) exceeds
 * kMaxDesignOrder is refused before anything is designed. */
_TOLV_FILTER *createFilterOrFail(const std::string &text);

} // namespace cli

#endif
