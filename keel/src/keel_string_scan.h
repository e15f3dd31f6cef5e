/*
 * keel_string_scan.h - the reader behind the configuration-text getters.
 *
 * A configuration text is read in two steps. The scanner walks the text once,
 * entry by entry, and hands back the value span of the first entry whose key
 * matches. The value is then classified (bare word, quoted text, bracketed
 * list) and parsed by one small parser per kind. Nothing here allocates
 * beyond a temporary copy of a long number, nothing keeps state between
 * calls, and nothing reads past the terminating zero of the text.
 */
#ifndef KEEL_STRING_SCAN_H
#define KEEL_STRING_SCAN_H

#include <cstddef>
#include <cstdint>

namespace keel {
namespace text {

/* A half-open range [begin, end) of a text that is not zero-terminated. */
struct Span {
    const char *begin;
    const char *end;
    size_t size() const { return static_cast<size_t>(end - begin); }
    bool empty() const { return begin == end; }
};

/* Space, tab and carriage return: the blanks around keys, '=' and values. */
bool IsBlank(char c);
/* ASCII lower case, whatever the process locale. */
char FoldCase(char c);
/* Case-folded equality of a span and a zero-terminated key. */
bool EqualsInsensitive(Span span, const char *key);

/* Finds the first entry of config whose key equals key (ASCII case folded)
 * and stores its value, without the surrounding blanks. False when config or
 * key is NULL, key is empty, or no entry carries the key. */
bool FindValue(const char *config, const char *key, Span *value);

enum class ValueKind {
    Bare,      /* anything else, e.g. 16000, lowpass, Hanning-Periodic */
    Quoted,    /* '...' or "...": the text between the quotes */
    Bracketed, /* [...]: the text between the outer brackets */
    Malformed  /* an opening quote or bracket that is not closed last */
};

struct Value {
    ValueKind kind;
    Span text; /* the body; quotes and outer brackets removed */
};

Value Classify(Span value);

/* Full parses of a number in C-locale strtod syntax (decimal, hexadecimal,
 * inf, infinity, nan, nan(...)); the whole span must be consumed and it may
 * not start with a blank. ParseFloat rounds the text once, to float. */
bool ParseDouble(Span text, double *out);
bool ParseFloat(Span text, float *out);

/* Shape of a numeric list, the body of a bracketed value: rows split by ';',
 * elements within a row split by blanks (line feeds included) or by one comma
 * between two elements. A body of blanks only is the empty list, 0 x 0. */
struct Shape {
    int64_t rows;
    int64_t columns;
};

/* One pass over the body: checks the grammar, measures the shape and stores
 * the first capacity elements, row after row, into dest as it goes (dest may
 * be NULL when capacity is 0). Returns false for an empty element or row, a
 * stray comma, an element that is not a number, rows of different lengths,
 * or a count beyond int32. Since a false result may come after some stores,
 * callers measure with capacity 0 first and store on a second pass. */
bool ReadNumericList(Span body, Shape *shape, double *dest, int64_t capacity);

} /* namespace text */
} /* namespace keel */

#endif /* KEEL_STRING_SCAN_H */
