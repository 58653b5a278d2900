// Takes pictures out of films through the helper program orlith-frame-grabber: what a hostile film
// does to a decoder ends with that process.
//
// Any thread, several at once; a call blocks until the helper has answered or is ended.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors.h"

namespace artwork {

// The helper gets the film as its standard input and the time in seconds as its one argument. It
// answers on its standard output: one byte that says what follows, four bytes of length (least
// significant first), and that many bytes of JPEG or of text.
inline constexpr char FrameAnswerPicture = 'P';
inline constexpr char FrameAnswerReason = 'R';
inline constexpr std::size_t FrameAnswerHeaderSize = 5;
inline constexpr std::size_t MaximumFrameAnswer = 8 << 20;

inline constexpr std::string_view FrameGrabberErrorDomain = "OrlithFrameGrabberErrorDomain";
enum class FrameGrabberErrorCode : std::int64_t {
    NoFrame = 1,  // the helper says why
    Died = 2,     // the helper ended without an answer
    TimedOut = 3,
};

class FrameGrabber {
public:
    // `helperPath` is a path of this machine.
    explicit FrameGrabber(std::string helperPath,
                          std::chrono::milliseconds timeLimit = std::chrono::seconds(20));

    // The picture at `seconds` (clamped to the film's length) as JPEG, no side longer than 1280
    // pixels; empty with an error otherwise. `film` is a file opened for reading; its position may
    // change.
    std::vector<std::uint8_t> grab(int film, double seconds, platform::OptionalError& error) const;

private:
    const std::string _helperPath;
    const std::chrono::milliseconds _timeLimit;
};

}  // namespace artwork
