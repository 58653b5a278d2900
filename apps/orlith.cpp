// The command line of the host's side.
#include "host/commands/commands.h"

int main(int argc, char** argv) {
    return host::runCommandLine(argc, argv);
}
