#include "host/commands/shown_progress.h"

#include <unistd.h>

#include "host/commands/output.h"

namespace host {

ShownProgress::ShownProgress()
    : Progress(progressStyleFor(STDERR_FILENO),
               [](std::string_view text) { writeTo(STDERR_FILENO, text); }) {}

}  // namespace host
