// orlith-scan-worker: opens media and pictures for the host, in a process of its own.
#include "host/scan/worker_main.h"

int main(int count, char** arguments) {
    return host::mediaWorkerMain(count, arguments);
}
