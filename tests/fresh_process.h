/*
 * Test support: scenarios that need the library's process-wide state as it
 * is right after load (the plan service, the reference count) run in a
 * freshly started copy of the test program, through gtest's death-test
 * machinery in its "threadsafe" style (re-exec, not a bare fork). Inside such
 * a scenario, FRESH_CHECK reports the failing condition on stderr and ends
 * the child with status 1; the parent expects status 0.
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

/* Runs `body` in a fresh process; the test fails unless it exits with 0. */
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

/* A new empty folder under the test's scratch area. */
inline std::string MakeTempFolder(const char *tag)
{
    const char *root = getenv("TOLV_TEST_TMP");
    std::string base = (root && *root) ? root : "/tmp";
    std::string cmd = "mkdir -p '" + base + "'";
    if (system(cmd.c_str()) != 0)
        return "";
    std::string pattern = base + "/" + tag + "XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr)
        return "";
    return pattern;
}

#endif
