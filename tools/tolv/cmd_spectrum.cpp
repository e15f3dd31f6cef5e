#include "cli.h"
#include "commands.h"
namespace cli {
int runSpectrum(const Arguments &) { throw Failure("not yet"); }
}
