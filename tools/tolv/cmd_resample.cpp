#include "cli.h"
#include "commands.h"
namespace cli {
int runResample(const Arguments &) { throw Failure("not yet"); }
}
