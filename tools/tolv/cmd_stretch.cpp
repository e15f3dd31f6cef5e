#include "cli.h"
#include "commands.h"
namespace cli {
int runStretch(const Arguments &) { throw Failure("not yet"); }
}
