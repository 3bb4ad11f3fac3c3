// formatv2_preview: shows what a configuration does without deploying it, checks it, and
// tests it against expectations. The command line is read in cli.cpp; see README.md.
#include <unistd.h>

#include "cli/cli.h"
#include "contract/contract.h"

int main(int argc, char** argv) {
    // Beside the build it came from, the runner loads that build's module; installed on a
    // device, where the build tree is not, the module where the host loads it from.
    const char* module =
        access(FORMATV2_MODULE_PATH, F_OK) == 0 ? FORMATV2_MODULE_PATH : kInstalledModulePath;
    return preview::Execute(preview::ParseCommandLine(argc, argv, module, FORMATV2_VERSION));
}
