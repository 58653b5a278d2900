// Purpose: finds a device by the directory that a person names.
// Thread: any.
// Failure: Errors of LinkErrorDomain.
#pragma once

#include <string>

#include "platform/errors.h"

namespace host {

// The real path of a device that is there; "" with an error when there is none. A name that is
// mistyped must not make a new, empty device.
std::string existingDevice(const std::string& directory, platform::OptionalError& error);

}  // namespace host
