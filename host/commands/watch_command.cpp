#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "common/named_notifications/notification_table.h"
#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/interrupts.h"
#include "host/commands/output.h"
#include "host/session/device_directory.h"

namespace host {

namespace {

using common::NotificationTable;

constexpr std::string_view TotalName = "com.vantor.kvsync.assetTotal";
constexpr std::string_view CurrentName = "com.vantor.kvsync.currentAssetNumber";
// The current number's state changes more often than it is posted, so it is looked at this often.
constexpr std::chrono::milliseconds LookInterval{250};

struct Numbers {
    std::uint64_t total = 0;
    std::uint64_t current = 0;

    bool operator==(const Numbers&) const = default;
};

class Watch {
public:
    Watch(const NotificationTable& table, NotificationTable::Token total,
          NotificationTable::Token current, const Output& output)
        : _table(table), _total(total), _current(current), _output(output) {}

    // Until a sync has begun and ended, or `stop` is set.
    void run(const std::atomic<bool>& stop) {
        std::uint32_t posts = _table.counter(_total);
        show(read());
        while (!stop) {
            const std::uint32_t now = _table.wait(_total, posts, LookInterval);
            const Numbers numbers = read();
            const bool posted = now != posts;
            posts = now;
            if (numbers != _shown)
                show(numbers);
            // A total of 0 that was posted is the end of a sync, however short it was.
            if (posted && numbers.total == 0)
                break;
        }
        if (_output.isJson())
            _output.object({{"type", "summary"}, {"files", _most}});
    }

private:
    Numbers read() const { return {_table.state(_total), _table.state(_current)}; }

    void show(const Numbers& numbers) {
        _shown = numbers;
        _most = std::max(_most, numbers.total);
        if (_output.isJson())
            return _output.object(
                {{"type", "progress"}, {"total", numbers.total}, {"current", numbers.current}});
        if (numbers.total == 0)
            return _output.line("no music file is being transferred");
        // The device counts from 1, and one beyond the last when all are through.
        _output.line(
            fmt::format("file {} of {}", std::min(numbers.current, numbers.total), numbers.total));
    }

    const NotificationTable& _table;
    const NotificationTable::Token _total;
    const NotificationTable::Token _current;
    const Output& _output;
    Numbers _shown;
    std::uint64_t _most = 0;  // the largest total seen
};

}  // namespace

ExitCode runWatch(const CommonOptions& common) {
    const Output output(common.json);
    platform::OptionalError error;
    if (existingDevice(common.deviceDirectory, error).empty())
        return outcomeOf(error, output);
    const std::string path = common.deviceDirectory + std::string(NotificationTable::DevicePath);
    std::error_code failed;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
    const auto table = NotificationTable::open(path, &error);
    const auto total = table ? table->registerName(TotalName) : std::nullopt;
    const auto current = table ? table->registerName(CurrentName) : std::nullopt;
    if (!total || !current) {
        output.error(error.value_or(platform::Error(platform::POSIXErrorDomain, ENOSPC,
                                                    "the device's notifications are full")));
        return ExitCode::Failure;
    }
    std::atomic<bool> stop{false};
    const Interrupts interrupts([&] { stop = true; });
    Watch(*table, *total, *current, output).run(stop);
    return stop ? ExitCode::Interrupted : ExitCode::Done;
}

}  // namespace host
