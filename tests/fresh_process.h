/*
 * Scenarios that need the library's process-wide state as right after load
 * (the plan service, the reference count) run in a fresh copy of the test
 * program: gtest's "threadsafe" death-test style re-executes it. FRESH_CHECK
 * reports a failing condition on stderr and ends the child with status 1.
 */
#ifndef TOLV_TESTS_FRESH_PROCESS_H
#define TOLV_TESTS_FRESH_PROCESS_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#define FRESH_CHECK(cond)                                                      \
    do {                                                                       \
        if (!(cond)) {                                                         \
            fprintf(stderr, "FRESH_CHECK failed: %s (%s:%d)\n", #cond,         \
                    __FILE__, __LINE__);                                       \
            fflush(stderr);                                                    \
            _exit(1);                                                          \
        }                                                                      \
    } while (0)

/* Runs the body in a fresh process; the test fails unless it exits with 0. */
#define RUN_IN_FRESH_PROCESS(...)                                              \
    do {                                                                       \
        GTEST_FLAG_SET(death_test_style, "threadsafe");                        \
        auto fresh_body_ = [&]() { __VA_ARGS__; };                             \
        EXPECT_EXIT(                                                           \
            {                                                                  \
                fresh_body_();                                                 \
                fflush(nullptr);                                               \
                _exit(0);                                                      \
            },                                                                 \
            ::testing::ExitedWithCode(0), "");                                 \
    } while (0)

/* A new empty folder under the test's scratch area ("" on failure). */
inline std::string MakeTempFolder(const char *tag)
{
    const char *root = getenv("TOLV_TEST_TMP");
    const std::string base = (root && *root) ? root : "/tmp";
    std::string pattern = base + "/" + tag + "XXXXXX";
    if (system(("mkdir -p '" + base + "'").c_str()) != 0 ||
        mkdtemp(&pattern[0]) == nullptr)
        return "";
    return pattern;
}

#endif
