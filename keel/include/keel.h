/*
 * keel.h - the base library under libtolv.
 *
 * Memory descriptors (named pools released as a whole), process-wide
 * settings, configuration texts read key by key, environment and file
 * access, messages, threads, mutexes, sample conversion, a few vector
 * kernels and the recursive block filter FilterBlockFloat.
 *
 * Everything here is plain C and may be called from C or C++.
 */
#ifndef KEEL_H
#define KEEL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(KEEL_BUILDING)
#define KEEL_API __attribute__((visibility("default")))
#else
#define KEEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque handles; a null handle means "none". */
typedef struct keel_mem_descr *KEEL_MEMDESCR;
typedef struct keel_file *KEEL_FILE;
typedef struct keel_thread *KEEL_THREAD;
typedef struct keel_mutex *KEEL_MUTEX;

/* ---- Core and version -------------------------------------------------- *
 * Every service works without a start; the start only counts references.
 * Initialize returns 1; Finalize returns 1, or 0 when nothing was started. */
KEEL_API int KEELCORE_Initialize(void);
KEEL_API int KEELCORE_Finalize(void);
/* Registers a client library's version; callable before KEELCORE_Initialize
 * (from a load-time constructor). A name registered again has its numbers
 * updated. 1, or 0 for a NULL name or a full table (32 names); names are
 * kept up to 63 bytes. */
KEEL_API int KEELVERSION_Register(const char *name, int major, int minor,
                                  int release, int build);
/* Number of registered versions, and the name of the index-th one (NULL out
 * of range) with its numbers through the pointers that are not NULL. */
KEEL_API int KEELVERSION_Count(void);
KEEL_API const char *KEELVERSION_Get(int index, int *major, int *minor,
                                     int *release, int *build);

/* ---- Settings ----------------------------------------------------------- *
 * The text is printf-formatted, then read as "key=value" or "key=[value]".
 * A value set with SetValueEx wins over a default from SetDefaultEx, which
 * wins over the default carried by the query itself. Keys are compared
 * without regard to case. context is always NULL (the process-wide store).
 * Blanks around key, '=' and value are ignored, brackets are optional. A
 * source whose value does not read as the kind asked for gives way to the
 * next one; when none reads, GetBoolEx gives false and GetIntEx 0.
 * Booleans: true/false, yes/no, on/off in any case, or a number (non-zero
 * is true). Integers: signed 64-bit decimal; a decimal fraction counts by
 * its whole part. A query may be a bare key. Set*Ex return 1, or 0 for a
 * text without '=' or without key. All calls are thread-safe, work before
 * KEELCORE_Initialize and call nothing else of the library (so they may be
 * used while a client holds its own locks). */
KEEL_API int KEELSETTINGS_SetDefaultEx(void *context, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
KEEL_API int KEELSETTINGS_SetValueEx(void *context, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
KEEL_API bool KEELSETTINGS_GetBoolEx(void *context, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
KEEL_API int64_t KEELSETTINGS_GetIntEx(void *context, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
/* Forgets every value and default set so far (tests and host resets). */
KEEL_API void KEELSETTINGS_Clear(void);

/* ---- Environment -------------------------------------------------------- */
/* Current value of the variable, or NULL when it is unset or empty. The text
 * stays valid at least until the next call from the same thread. */
KEEL_API const char *KEELENV_GetEnvValue(const char *name);

/* ---- Files -------------------------------------------------------------- */
/* True only for an existing regular file. */
KEEL_API bool KEELIO_FileExists(const char *path);
/* mode "r" or "w" ("w" creates or empties); also "a" and a '+' for update,
 * a 'b' is accepted; binary, no translation. Other modes give NULL. */
KEEL_API KEEL_FILE KEELIO_Open(const char *path, const char *mode, ...);
/* Size of the whole file (pending writes included); the position of the
 * handle is kept; -1 for a null handle. */
KEEL_API int64_t KEELIO_FileSize(KEEL_FILE file);
/* Bytes read or written; 0 for a null handle. */
KEEL_API int64_t KEELIO_ReadData(KEEL_FILE file, void *dest, int64_t bytes);
KEEL_API int64_t KEELIO_WriteData(KEEL_FILE file, const void *src,
                                  int64_t bytes);
/* Flushes and closes; 0 for a null handle, 1 otherwise. */
KEEL_API int KEELIO_CloseFile(KEEL_FILE file);

/* ---- Memory descriptors ------------------------------------------------- *
 * A named pool. Objects are never released singly: disposing the descriptor
 * releases all of them. Live descriptors are kept in a registry so that
 * KEELMEM_DisplayMemDescr can report one. */
/* Size hint and flags change nothing. A descriptor is used by one thread
 * at a time; the registry of live descriptors is thread-safe. */
KEEL_API KEEL_MEMDESCR KEELMEM_CreateMemDescrEx(const char *name, int sizeHint,
                                                int flags);
/* Cleared memory, 16-byte aligned; a request of 0 bytes gets its own
 * address. NULL for a null descriptor. flags is ignored. */
KEEL_API void *KEELMEM_NewEx(KEEL_MEMDESCR mem, uint32_t bytes, int flags);
/* Cleared memory at a multiple of alignment (a power of two); NULL when the
 * alignment is not a power of two or the memory cannot be had. */
KEEL_API void *KEELMEM_NewAligned(KEEL_MEMDESCR mem, int alignment,
                                  int64_t bytes);
/* Cleared, 16-byte aligned; NULL for a negative count. */
KEEL_API float *KEELMEM_NewFloatVector(KEEL_MEMDESCR mem, int count);
/* 1 on success; 0 for a null descriptor or one not live (already disposed
 * of), which is left untouched. */
KEEL_API int KEELMEM_DisposeMemDescr(KEEL_MEMDESCR mem);
/* Logs 'Memory descriptor "<name>": <objects> objects, <bytes> bytes' and a
 * line feed through KEELDEBUG_Log with code -1; disposes of nothing. 1, or 0
 * for a null or not live descriptor. */
KEEL_API int KEELMEM_DisplayMemDescr(KEEL_MEMDESCR mem);
/* For reports and tests: live objects and bytes asked for (alignment slack
 * not counted) of a descriptor and its name; -1 (NULL for the name) for a
 * handle that is not a live descriptor. */
KEEL_API int KEELMEM_GetObjectCount(KEEL_MEMDESCR mem);
KEEL_API int64_t KEELMEM_GetByteCount(KEEL_MEMDESCR mem);
KEEL_API const char *KEELMEM_GetName(KEEL_MEMDESCR mem);
/* Number of descriptors not yet disposed of. */
KEEL_API int KEELMEM_LiveDescriptorCount(void);

/* ---- Messages ----------------------------------------------------------- *
 * Levels: 0 log, 1 warning, 2 error, 3 terminal error. The handler receives
 * the formatted text as it stands (a trailing line feed is kept), of any
 * length. Without a handler, messages go to stderr behind the prefix
 * "keel log: ", "keel warning: ", "keel error: " or "keel terminal error: ",
 * with a line feed added when the text lacks one. All four return; none
 * ends the process. SetMessageHandler(NULL, ...) restores stderr; the swap
 * is thread-safe and the handler is called without any lock held. */
enum {
    KEEL_LEVEL_LOG = 0,
    KEEL_LEVEL_WARNING = 1,
    KEEL_LEVEL_ERROR = 2,
    KEEL_LEVEL_TERMINAL = 3
};
typedef void (*KEELDEBUG_Handler)(int level, int code, const char *message,
                                  void *user);
KEEL_API void KEELDEBUG_SetMessageHandler(KEELDEBUG_Handler handler,
                                          void *user);
KEEL_API void KEELDEBUG_Log(int code, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
KEEL_API void KEELDEBUG_Warning(int code, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
KEEL_API void KEELDEBUG_Error(int code, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
KEEL_API void KEELDEBUG_TerminalError(int code, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

/* ---- Texts and configuration strings ------------------------------------ *
 * A configuration text is a list of entries key=value, for example
 *   type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, fs=16000
 *   numerator=[0.2 0.4 0.2]; denominator=[1, -0.5, 0.1]
 *   biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0.1 1 2 1], nc=2
 * NULL and the empty text are valid and yield every default.
 *
 * Entries. Entries are separated by ',' or ';' or a line feed at bracket
 * depth 0. Blanks (space, tab, carriage return) around keys, '=' and values
 * are ignored. The key is the text before the first '=' of the entry; an
 * entry without '=' names nothing and is skipped. The value runs from after
 * that '=' to the separator; further '=' belong to the value.
 * Keys. Keys match without regard to ASCII case ("ap" finds "Ap"), whole key
 * against whole key ("fs" never finds "fstop"). The first entry with the key
 * wins, even when its value does not parse as the kind asked for. A NULL or
 * empty key finds nothing.
 * Values, by their first byte:
 * - a quote, ' or ": a quoted text. The quote protects separators, brackets
 *   and the other quote up to its twin; there are no escapes. The closing
 *   quote must end the value (blanks after it aside), otherwise the value is
 *   malformed. An unclosed quote runs to the end of the text, malformed.
 * - '[': a bracketed list. Separators inside brackets belong to the value;
 *   nested brackets count. The matching ']' must end the value, otherwise it
 *   is malformed; an unclosed '[' runs to the end of the text, malformed.
 *   Quotes have no meaning inside brackets.
 * - anything else: a bare word, taken as it stands (quotes or brackets
 *   after its first byte are ordinary bytes). "key=" holds the empty word.
 * Numbers are read as strtod reads them in the "C" locale, whatever locale
 * the process has set: decimal and hexadecimal forms, "inf", "infinity",
 * "nan", "nan(...)" in any case. The whole text of the value must be the
 * number. Overflow gives an infinity and underflow zero or a subnormal, as
 * strtod rounds them.
 * Lists. The body between the brackets holds rows separated by ';'; within a
 * row, elements are separated by blanks (line feeds count as blanks inside
 * brackets) or by one comma between two elements. Every element is a number;
 * an empty element (",,", a leading or trailing comma), an empty row ("1;",
 * ";1") or rows of different lengths make the list malformed. A body of
 * blanks only, "[]", is the empty list of 0 rows and 0 columns.
 *
 * Getters. A key that is absent, or whose value is malformed or not of the
 * kind asked for, yields the caller's default. */

/* Compares at most count bytes with ASCII letters folded to lower case,
 * whatever the locale; stops early at the end of both texts, so count may
 * exceed the shorter one. Returns 0 when equal, else the difference of the
 * first differing folded bytes (as unsigned char). NULL reads as "". */
KEEL_API int KEELSTRING_CompareInsensitiveN(const char *a, const char *b,
                                            uint64_t count);
/* Lowers ASCII letters in place and returns text; flags is unused (0); NULL
 * is returned as it came. */
KEEL_API char *KEELSTRING_Strlwr(char *text, int flags);
/* Copies the value of key to dest: a bare word as it stands, a quoted text
 * without its quotes, a bracketed value as the text between the brackets
 * with blanks and line feeds trimmed at both ends. Returns 1 then. For an
 * absent key or a malformed value it copies defaultValue (NULL copies "")
 * and returns 0. The copy is cut to destSize - 1 bytes and always ends with
 * a zero byte; a destSize of 0 (or a NULL dest) writes nothing, and the
 * result still tells whether the key was found. */
KEEL_API int KEELSTRING_GetStringValueFromString(const char *config,
                                                 const char *key,
                                                 const char *defaultValue,
                                                 char *dest, size_t destSize);
/* A bare or quoted number whose value is whole and within int32: "16",
 * "+16", "16.0", "1e3", "0x10" are read; "16.5", "nan", "3000000000" give
 * the default. */
KEEL_API int KEELSTRING_GetIntegerValueFromString(const char *config,
                                                  const char *key,
                                                  int defaultValue);
/* true, yes, on, 1 and false, no, off, 0, bare or quoted, in any case; any
 * other value gives the default. */
KEEL_API bool KEELSTRING_GetBooleanValueFromString(const char *config,
                                                   const char *key,
                                                   bool defaultValue);
/* A bare or quoted number, rounded once from the text to float (so "1e39"
 * gives infinity, "nan" a NaN). */
KEEL_API float KEELSTRING_GetFloatValueFromString(const char *config,
                                                  const char *key,
                                                  float defaultValue);
/* Non-zero for a list of at most one row ("[]" included, with 0 elements);
 * writes its element count, or 0 when the result is 0. A bare number is no
 * vector. */
KEEL_API int KEELSTRING_GetVectorSizeFromString(const char *config,
                                                const char *key, int *count);
/* Stores the first count elements of a list of at most one row; with fewer
 * elements stored than count, the rest of dest is left as it was. Writes
 * nothing for anything else. Returns the number of doubles written. */
KEEL_API int KEELSTRING_GetDoubleVectorValuesFromString(const char *config,
                                                        const char *key,
                                                        double *dest,
                                                        int count);
/* Non-zero for any well-formed list: "[1 2 3]" is 1 x 3, "[]" is 0 x 0;
 * writes rows and columns, or zeros when the result is 0. */
KEEL_API int KEELSTRING_GetMatrixSizeFromString(const char *config,
                                                const char *key, int *rows,
                                                int *columns);
/* Stores the first rows * columns elements of a list, row after row as the
 * text holds them (the stored shape is not rearranged to the one asked for);
 * with fewer elements the rest of dest is left as it was. Writes nothing
 * for a malformed list. Returns the number of doubles written. */
KEEL_API int KEELSTRING_GetDoubleMatrixValuesFromString(const char *config,
                                                        const char *key,
                                                        double *dest, int rows,
                                                        int columns);

/* ---- Threads, sleep, mutexes -------------------------------------------- */
typedef int (*KEELTHREAD_Function)(void *argument);
/* Starts the thread at once; NULL when it cannot be started or function is
 * NULL. flags is ignored. */
KEEL_API KEEL_THREAD KEELTHREAD_AddThread(KEELTHREAD_Function function,
                                          void *argument, int flags);
/* Blocks until the thread has ended (also long ago), stores its result when
 * result is not NULL, and releases the handle. 1, or 0 for NULL. */
KEEL_API int KEELTHREAD_JoinThreadEx(KEEL_THREAD thread, int *result);
/* Blocks the whole time, signals notwithstanding; <= 0 returns at once. */
KEEL_API void KEELUTILS_sleep_msec(int milliseconds);

/* A plain, non-recursive lock. Lock, Unlock and Destroy return 1, or 0 for
 * a null handle, which they ignore. */
KEEL_API KEEL_MUTEX MutexInit(void);
KEEL_API int MutexLock(KEEL_MUTEX mutex);
KEEL_API int MutexUnlock(KEEL_MUTEX mutex);
KEEL_API int MutexDestroy(KEEL_MUTEX mutex);

/* ---- Sample conversion -------------------------------------------------- *
 * 16-bit scale is 32768: a float x maps to round-to-nearest(x * 32768)
 * saturated to [-32768, 32767], so 1.0 gives 32767 and -1.0 gives -32768.
 * The product is formed in double and rounded half to even; NaN gives 0,
 * infinities saturate. The reverse divides by 32768 in float, so a 16-bit
 * round trip is exact. A count <= 0 does nothing. */
KEEL_API void KEELUTILS_ConvertIEEEFloatToWord16(const float *src,
                                                 int16_t *dest, int count);
KEEL_API void KEELUTILS_ConvertWord16ToIEEEFloat(const int16_t *src,
                                                 float *dest, int count);

/* ---- Vector arithmetic -------------------------------------------------- *
 * A count <= 0 does nothing (sums and peaks are then 0). */
/* In place, each product in float. */
KEEL_API void FVectorMulScalar(float *vector, int count, float factor);
/* Each sample widened to double and squared there, summed in index order in
 * one double accumulator. */
KEEL_API double FVectorSumOfSquares(const float *vector, int count);
/* The largest fabsf, exactly the figure FVectorArgAbsMax gives. */
KEEL_API float FVectorAbsMax(const float *vector, int count);
/* Index of the first largest magnitude (-1 for count <= 0), and that
 * magnitude through maxValue when it is not NULL (0 for count <= 0). The
 * search starts from 0 at index 0 and moves only on a strictly greater
 * magnitude: NaN samples are never taken, and an all-zero or all-NaN
 * vector gives index 0 with magnitude 0. */
KEEL_API int FVectorArgAbsMax(const float *vector, int count, float *maxValue);

/* ---- Block filter ------------------------------------------------------- *
 * y[n] = b[0] x[n] + ... + b[c-1] x[n-c+1] - a[1] y[n-1] - ... - a[c-1] y[n-c+1]
 * with a[0] = 1 (not read), c = count. Direct form I in double, each
 * sample exactly as
 *   acc  = b[0] * x[n]
 *   acc += b[k] * x[n-k]  for k = 1 .. c-1, in that order
 *   acc -= a[k] * y[n-k]  for k = 1 .. c-1, in that order
 *   y[n] = acc
 * with x widened from float. memA (past inputs, memA[k-1] = x[n-k]) and memB
 * (past outputs, memB[k-1] = y[n-k]) hold count + 1 doubles each, start
 * cleared, and carry the filter's past across calls, so a signal filtered
 * in any split of blocks gives the same bits. A count below 1 has empty
 * sums: every output is 0 and nothing else is read. Returns 1, also for
 * samples <= 0 (which does nothing); 0 for a null pointer. */
KEEL_API int FilterBlockFloat(const double *a, const double *b, int count,
                              double *memA, double *memB, const float *input,
                              double *output, int samples);

#ifdef __cplusplus
}
#endif

#endif /* KEEL_H */
