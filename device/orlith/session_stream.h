// The stream of one sync session with a host.
#pragma once

#include "device/orlith/message_stream.h"
#include "link/orlith.pb.h"

namespace orlith {

using SessionStream = MessageStream<link::FromHost, link::FromDevice>;

}  // namespace orlith
