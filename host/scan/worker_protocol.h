// Purpose: the messages between the host and a media worker, over a stream socket. The worker says
// the greeting first; then each request gets one answer, in order. A message is a 32-bit length and
// that many bytes.
// Thread: any.
// Failure: a message that is too long or damaged ends the conversation.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/scan/media_workers.h"

namespace host {

inline constexpr int WorkerSocket = 3;  // the worker's descriptor
inline constexpr std::string_view WorkerGreeting = "orlith-scan-worker 1";
inline constexpr std::size_t WorkerMessageLimit = 32u << 20;  // bytes

// With the length in front.
std::string framedMessage(std::string_view body);
// The first whole message in `buffer`, taken out of it; nothing while it is not all there. Sets
// `tooLong` when it never will be.
std::optional<std::string> takeMessage(std::string& buffer, bool& tooLong);

std::string encodeRequest(const MediaRequest& request);
std::optional<MediaRequest> decodeRequest(std::string_view body);
std::string encodeAnswer(const MediaAnswer& answer);
std::optional<MediaAnswer> decodeAnswer(std::string_view body);

}  // namespace host
