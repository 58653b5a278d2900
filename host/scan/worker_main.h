// Purpose: the worker program: answers requests about files until its socket closes.
// Thread: the program's only one.
// Failure: what goes wrong with a file is its answer; a damaged request ends the program.
#pragma once

namespace host {

// `arguments` as main() has them; the first may be the most address space, in bytes (0: no limit).
int mediaWorkerMain(int count, char** arguments);

}  // namespace host
