/*
 * Shared pieces of the `tolv` command: option parsing, failures, the
 * library's messages, number parsing and the progress bar.
 */
#ifndef TOLV_CLI_H
#define TOLV_CLI_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

/* A failure the user can act on: one line, exit status 1. */
struct Failure : std::runtime_error {
    explicit Failure(const std::string &what) : std::runtime_error(what) {}
};

/* A command line that does not parse: the message and a pointer to --help,
 * exit status 2. */
struct UsageError : std::runtime_error {
    explicit UsageError(const std::string &what) : std::runtime_error(what) {}
};

/* The options of one subcommand: those taking a value, and flags. */
struct OptionSpec {
    std::vector<std::string> valued;
    std::vector<std::string> flags;
};

/* Parsed arguments: positionals in order, options by name ("--rate").
 * Values come as "--rate 48000" or "--rate=48000". */
class Args {
  public:
    Args(const std::vector<std::string> &argv, const OptionSpec &spec);
    bool has(const std::string &name) const;
    std::string get(const std::string &name, const std::string &dflt) const;
    const std::vector<std::string> &positional() const { return positional_; }
    bool help() const { return has("--help"); }

  private:
    std::map<std::string, std::string> options_;
    std::vector<std::string> positional_;
};

/* Whole-string number parsing; a failure names the option. */
long parseInteger(const std::string &text, const std::string &what);
double parseReal(const std::string &text, const std::string &what);

/* The library reports through the base library's message handler. The
 * tool keeps error-level messages so that a refusal can be shown with the
 * library's own text, shows warnings on stderr as they come, and drops the
 * library's logs (memory reports and the like), which are not for users. */
void installMessageHandler();
/* Error-level messages since the last call, joined with "; ", without
 * their trailing line feeds; "" when there were none. */
std::string takeLibraryErrors();

/* A progress bar on stderr for work that runs longer than about two
 * seconds, drawn only when stderr is a terminal. The environment variable
 * TOLV_PROGRESS_AFTER (seconds) moves that threshold; its tests set 0 so
 * that short runs draw the bar on machines of any speed. */
class Progress {
  public:
    Progress(const std::string &label, int64_t total);
    ~Progress();
    void update(int64_t done);
    void finish();

  private:
    std::string label_;
    int64_t total_;
    bool enabled_;
    bool shown_ = false;
    double after_; /* expected seconds from which the bar is shown */
    std::chrono::steady_clock::time_point start_, lastDraw_;
};

/* Zeroed floats on a 16-byte boundary, as the library's execute functions
 * and dB scaling want them; the count is rounded up to a multiple of 4. */
struct FreeDeleter {
    void operator()(float *p) const;
};
using AlignedFloats = std::unique_ptr<float[], FreeDeleter>;
AlignedFloats alignedFloats(size_t count);

/* Full path of a program found on PATH, or "" when it is not there. */
std::string findProgram(const std::string &name);

/* printf into a std::string. */
std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

} // namespace cli

#endif
