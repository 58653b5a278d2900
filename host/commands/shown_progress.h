// Purpose: the progress that a command shows on the error output.
// Thread: any.
// Failure: none.
#pragma once

#include "host/progress/progress.h"

namespace host {

class ShownProgress : public Progress {
public:
    ShownProgress();
};

}  // namespace host
