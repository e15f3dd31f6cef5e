/*
 * Shared pieces of the fuzz targets: texts copied into allocations of their
 * exact size (so that AddressSanitizer sees a read one byte past the end)
 * and a check that makes a broken invariant a crash the fuzzer records.
 * fuzz_support.cpp, linked into every target, silences the messages.
 */
#ifndef TOLV_FUZZ_SUPPORT_H
#define TOLV_FUZZ_SUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "keel.h"

#define FUZZ_CHECK(cond)                                                       \
    do {                                                                       \
        if (!(cond)) {                                                         \
            fprintf(stderr, "FUZZ_CHECK failed: %s (%s:%d)\n", #cond,          \
                    __FILE__, __LINE__);                                       \
            abort();                                                           \
        }                                                                      \
    } while (0)

/* A zero-terminated copy in a block of exactly its size. */
class ExactText {
  public:
    explicit ExactText(const std::string &s)
        : text_(static_cast<char *>(malloc(s.size() + 1)))
    {
        memcpy(text_, s.data(), s.size());
        text_[s.size()] = '\0';
    }
    ~ExactText() { free(text_); }
    ExactText(const ExactText &) = delete;
    ExactText &operator=(const ExactText &) = delete;
    char *get() const { return text_; }

  private:
    char *text_;
};

#endif
