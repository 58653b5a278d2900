#include "host/commands/device_question.h"

namespace host {

ExitCode outcomeOf(const platform::OptionalError& error, const Output& output) {
    if (!error)
        return ExitCode::Done;
    output.error(*error);
    return exitCodeOf(*error);
}

}  // namespace host
