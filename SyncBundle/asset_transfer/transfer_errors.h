// Which failed transfers a later sync may retry. Callable from any thread.
#pragma once

#include "platform/errors.h"

// Whether a transfer that failed so keeps its track; true for no error.
bool KVIsRecoverableTransferError(const platform::OptionalError& error);
