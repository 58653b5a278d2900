// The two ends of one peer session's stream.
#pragma once

#include "device/orlith/message_stream.h"
#include "link/peer.pb.h"

namespace orlith {

// The serving device's end, and the companion's.
using ServingStream = MessageStream<link::FromCompanion, link::FromFirst>;
using CompanionStream = MessageStream<link::FromFirst, link::FromCompanion>;

}  // namespace orlith
