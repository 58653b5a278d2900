#include "device/system/named_notification_service.h"

#include <system_error>

namespace device {
namespace {

std::unique_ptr<common::NotificationTable> openTable(const std::string& path) {
    platform::OptionalError error;
    auto table = common::NotificationTable::open(path, &error);
    if (!table)
        throw std::system_error(static_cast<int>(error->code), std::generic_category(), path);
    return table;
}

}  // namespace

NamedNotificationService::NamedNotificationService(const std::string& tablePath)
    : _table(openTable(tablePath)) {}

std::uint32_t NamedNotificationService::registerCheck(std::string_view name, int& token) {
    const auto registered = _table->registerName(name);
    if (!registered)
        return NoRoom;
    token = static_cast<int>(*registered);
    return 0;
}

std::uint32_t NamedNotificationService::setState(int token, std::uint64_t state) {
    if (token < 0 || !_table->isToken(static_cast<std::uint64_t>(token)))
        return InvalidToken;
    _table->setState(static_cast<common::NotificationTable::Token>(token), state);
    return 0;
}

std::uint32_t NamedNotificationService::post(std::string_view name) {
    if (const auto token = _table->find(name))
        _table->post(*token);
    return 0;
}

}  // namespace device
