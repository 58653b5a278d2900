// Starting a device's daemon from another program, for people who run no service manager.
//
// Any thread; blocks until the daemon answers or has said why it does not.
#pragma once

#include <chrono>
#include <string>

#include "common/unique_fd.h"
#include "platform/errors.h"

namespace orlith::link {

struct DaemonStart {
    std::string root;     // the device directory on the real disk
    std::string program;  // empty: "orlithd" beside the calling program, else along PATH
    // The daemon leaves after so long without a call; 0 keeps it.
    std::chrono::seconds idleExit{60};
    std::chrono::milliseconds timeout{20000};
};

// Starts the daemon in a session of its own, so that it outlives the caller and its terminal. Its
// messages go to "<root>/var/log/orlithd.log". None when it listens; otherwise why it does not, in
// the daemon's own words where it had any (EBUSY: another one has the device and does not listen).
// When another start was faster, that daemon serves.
platform::OptionalError startDaemon(const DaemonStart& start);

// A connection to the device's daemon, which is started when none listens. One that is starting or
// leaving is waited for. Empty on failure.
common::UniqueFd connectOrStart(const DaemonStart& start, platform::OptionalError* error);

// ---- The daemon's side.

// The option by which the starter names the descriptor on which the daemon answers.
inline constexpr char StartupReportOption[] = "--startup-report";

// What the daemon writes there: nothing when it listens, else its reason; then it closes it. A
// negative descriptor is no report. The descriptor is taken over.
void reportStartup(int descriptor, const std::string& failure);

}  // namespace orlith::link
