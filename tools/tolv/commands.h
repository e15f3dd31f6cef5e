/*
 * The subcommands of `tolv`. Each takes the arguments behind its name and
 * returns the exit status; failures are thrown as cli::Failure or
 * cli::UsageError and reported by main.
 */
#ifndef TOLV_CLI_COMMANDS_H
#define TOLV_CLI_COMMANDS_H

#include <string>
#include <vector>

namespace cli {

using Arguments = std::vector<std::string>;

struct Command {
    const char *name;
    const char *summary;
    const char *usage; /* full --help text, with an example */
    int (*run)(const Arguments &args);
};

int runInfo(const Arguments &args);
int runDesign(const Arguments &args);
int runFilter(const Arguments &args);
int runResample(const Arguments &args);
int runStretch(const Arguments &args);
int runSpectrum(const Arguments &args);
int runDelay(const Arguments &args);

extern const Command kCommands[];
extern const int kCommandCount;

/* Prints the --help text of a command. */
void printUsage(const Command &command);

} // namespace cli

#endif
