// The platform's named notifications, over the table that all processes of the device share. Any
// thread.
#pragma once

#include <memory>
#include <string>

#include "common/named_notifications/notification_table.h"
#include "platform/operating_system.h"

namespace device {

class NamedNotificationService final : public platform::NamedNotifications {
public:
    // Statuses beside 0.
    static constexpr std::uint32_t NoRoom = 1;
    static constexpr std::uint32_t InvalidToken = 2;

    // Throws std::system_error when the table can neither be opened nor made.
    explicit NamedNotificationService(const std::string& tablePath);

    // Every registration of a name gives the same token.
    std::uint32_t registerCheck(std::string_view name, int& token) override;
    std::uint32_t setState(int token, std::uint64_t state) override;
    // A name that nobody registered is posted to nobody.
    std::uint32_t post(std::string_view name) override;

    // For those of this process that wait for a name.
    const common::NotificationTable& table() const { return *_table; }

private:
    const std::unique_ptr<common::NotificationTable> _table;
};

}  // namespace device
