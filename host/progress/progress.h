// Purpose: shows how far a run is: on a terminal one line that is redrawn in place, elsewhere a
// plain line now and then. Everything goes to the error output.
// Thread: any; calls are serialised by the object.
// Failure: none; output that cannot be written is dropped.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/progress/transfer_rate.h"

namespace host {

struct ProgressStyle {
    bool enabled = true;    // false: nothing but messages
    bool terminal = false;  // redraw in place
    bool colour = false;
    int columns = 80;
    // The shortest time between two redraws on a terminal, and between two lines elsewhere.
    std::chrono::milliseconds redrawInterval{100};
    std::chrono::milliseconds lineInterval{10'000};
};

// What suits a descriptor: a terminal unless TERM is "dumb", colour unless NO_COLOR is set.
ProgressStyle progressStyleFor(int descriptor);

class Progress {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using Output = std::function<void(std::string_view)>;

    Progress(
        ProgressStyle style, Output output,
        Clock clock = [] { return std::chrono::steady_clock::now(); });

    // A phase without a known end: "reading the folder", with a count that grows. A total of 0 is
    // one that is not known.
    void phase(std::string_view name);
    void count(std::int64_t done, std::int64_t total);
    void countBytes(std::uint64_t done, std::uint64_t total);
    // The phase of the transfers, "sending" for example. Bytes of 0 are not known beforehand; the
    // time left is then told by the files alone.
    void startTransfer(std::string_view name, std::size_t files, std::uint64_t bytes);
    void transferred(std::size_t files, std::uint64_t bytes);
    // Takes the line off the screen.
    void finish();
    // A line of its own, above the progress.
    void message(std::string_view text);

private:
    using Time = std::chrono::steady_clock::time_point;

    void show(bool now);
    void draw();
    std::string line() const;
    std::string transferLine() const;
    std::optional<std::chrono::seconds> timeLeft() const;
    void clearLine();

    const ProgressStyle _style;
    const Output _output;
    const Clock _clock;

    std::mutex _mutex;  // protects everything below
    std::string _phase;
    std::int64_t _countDone = 0;
    std::int64_t _countTotal = 0;
    bool _countsBytes = false;
    std::size_t _filesDone = 0;
    std::size_t _files = 0;
    std::uint64_t _bytesDone = 0;
    std::uint64_t _bytes = 0;
    std::optional<TransferRate> _rate;
    Time _transferStart;
    std::optional<Time> _lastShown;
    bool _lineShown = false;
};

// "1.5 MiB"; binary units, one decimal from KiB on.
std::string formatBytes(std::uint64_t bytes);
// "1 track", "2 tracks"; `nouns` when it takes no s.
std::string plural(std::uint64_t count, std::string_view noun, std::string_view nouns = {});
// "12 s", "3 min 05 s", "2 h 07 min".
std::string formatDuration(std::chrono::seconds duration);

}  // namespace host
