#include "host/progress/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace host {

ProgressStyle progressStyleFor(int descriptor) {
    ProgressStyle style;
    const char* terminal = std::getenv("TERM");
    const char* noColour = std::getenv("NO_COLOR");
    const bool dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    style.terminal = ::isatty(descriptor) == 1 && !dumb;
    style.colour = style.terminal && (noColour == nullptr || noColour[0] == '\0');
    winsize size{};
    if (style.terminal && ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        style.columns = size.ws_col;
    return style;
}

Progress::Progress(ProgressStyle style, Output output, Clock clock)
    : _style(style), _output(std::move(output)), _clock(std::move(clock)) {}

void Progress::phase(std::string_view name) {
    const std::lock_guard lock(_mutex);
    if (_phase == name)
        return;
    _phase = name;
    _countDone = _countTotal = 0;
    _countsBytes = false;
    _rate.reset();
    show(_style.terminal);
}

void Progress::count(std::int64_t done, std::int64_t total) {
    const std::lock_guard lock(_mutex);
    _countDone = done;
    _countTotal = total;
    show(false);
}

void Progress::countBytes(std::uint64_t done, std::uint64_t total) {
    const std::lock_guard lock(_mutex);
    _countDone = static_cast<std::int64_t>(done);
    _countTotal = static_cast<std::int64_t>(total);
    _countsBytes = true;
    show(false);
}

void Progress::startTransfer(std::string_view name, std::size_t files, std::uint64_t bytes) {
    const std::lock_guard lock(_mutex);
    _phase = name;
    _files = files;
    _bytes = bytes;
    _filesDone = 0;
    _bytesDone = 0;
    _transferStart = _clock();
    _rate.emplace(_transferStart);
    show(_style.terminal);
}

void Progress::transferred(std::size_t files, std::uint64_t bytes) {
    const std::lock_guard lock(_mutex);
    _filesDone = files;
    _bytesDone = bytes;
    if (_rate)
        _rate->update(bytes, _clock());
    show(false);
}

void Progress::finish() {
    const std::lock_guard lock(_mutex);
    clearLine();
    _phase.clear();
}

void Progress::message(std::string_view text) {
    const std::lock_guard lock(_mutex);
    clearLine();
    _output(fmt::format("{}\n", text));
}

void Progress::show(bool now) {
    if (!_style.enabled || _phase.empty())
        return;
    const Time time = _clock();
    // Off a terminal the first line comes after one interval: a short run says nothing.
    if (!_lastShown && !_style.terminal)
        _lastShown = time;
    const auto interval = _style.terminal ? _style.redrawInterval : _style.lineInterval;
    if (!now && _lastShown && time - *_lastShown < interval)
        return;
    _lastShown = time;
    draw();
}

void Progress::draw() {
    if (!_style.terminal) {
        _output(line() + "\n");
        return;
    }
    std::string text = line();
    const auto width = static_cast<std::size_t>(std::max(_style.columns - 1, 1));
    if (text.size() > width)
        text.resize(width);
    _output(_style.colour ? fmt::format("\r\x1b[36m{}\x1b[0m\x1b[K", text)
                          : fmt::format("\r{}\x1b[K", text));
    _lineShown = true;
}

std::string Progress::line() const {
    if (_rate)
        return transferLine();
    const auto amount = [this](std::int64_t count) {
        return _countsBytes ? formatBytes(static_cast<std::uint64_t>(count))
                            : std::to_string(count);
    };
    if (_countTotal > 0)
        return fmt::format("{}: {} of {}", _phase, amount(_countDone), amount(_countTotal));
    if (_countDone > 0)
        return fmt::format("{}: {}", _phase, amount(_countDone));
    return _phase;
}

std::string Progress::transferLine() const {
    std::string text =
        fmt::format("{}: {} of {} files, {}", _phase, _filesDone, _files, formatBytes(_bytesDone));
    if (_bytes > 0)
        text += " of " + formatBytes(_bytes);
    if (const auto rate = _rate->current())
        text += fmt::format(", {}/s", formatBytes(static_cast<std::uint64_t>(*rate)));
    if (const auto left = timeLeft())
        text += fmt::format(", {} left", formatDuration(*left));
    return text;
}

std::optional<std::chrono::seconds> Progress::timeLeft() const {
    if (_bytesDone < _bytes)
        return _rate->timeLeft(_bytes - _bytesDone);
    if (_bytes > 0 || _filesDone == 0 || _filesDone >= _files)
        return std::nullopt;
    const std::chrono::duration<double> passed = _clock() - _transferStart;
    return std::chrono::ceil<std::chrono::seconds>(
        passed * (static_cast<double>(_files - _filesDone) / static_cast<double>(_filesDone)));
}

void Progress::clearLine() {
    if (_lineShown)
        _output("\r\x1b[K");
    _lineShown = false;
}

std::string formatBytes(std::uint64_t bytes) {
    if (bytes < 1024)
        return fmt::format("{} B", bytes);
    constexpr const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    // 1023.95 would print as 1024.0.
    while (value >= 1023.95 && unit + 1 < std::size(units)) {
        value /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", value, units[unit]);
}

std::string plural(std::uint64_t count, std::string_view noun, std::string_view nouns) {
    if (count == 1)
        return fmt::format("1 {}", noun);
    return nouns.empty() ? fmt::format("{} {}s", count, noun) : fmt::format("{} {}", count, nouns);
}

std::string formatDuration(std::chrono::seconds duration) {
    const auto seconds = duration.count();
    if (seconds < 60)
        return fmt::format("{} s", seconds);
    if (seconds < 3600)
        return fmt::format("{} min {:02} s", seconds / 60, seconds % 60);
    return fmt::format("{} h {:02} min", seconds / 3600, seconds % 3600 / 60);
}

}  // namespace host
