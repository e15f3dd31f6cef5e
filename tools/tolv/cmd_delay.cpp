#include "cli.h"
#include "commands.h"
namespace cli {
int runDelay(const Arguments &) { throw Failure("not yet"); }
}
