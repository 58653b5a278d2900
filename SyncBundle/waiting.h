// What the plug-in waits for on the daemon's threads.
#pragma once

#include <functional>

#include "platform/operating_system.h"

// Runs a job on the global queue of a priority and holds the calling thread, without time-out,
// until the job, or whoever it gave it to, calls `finished`. What the job throws goes on in the
// calling thread.
void KVRunAndWait(platform::QueuePriority priority,
                  std::function<void(const platform::Job& finished)> job);

// Asks a cloud client of its own, without time-out.
bool KVIsSignedInToCloudLibrary();
