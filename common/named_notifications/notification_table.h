// Named notifications between processes: a memory-mapped file with, for each name, a 64-bit state
// and a count of posts that waiting processes sleep on.
//
// Everything in the file is a lone atomic number, so a process may be killed or stopped anywhere
// without holding up another. A poster never waits for a subscriber; several posts may reach a
// subscriber as one, and it always sees the last state. Names are never given back; there is room
// for 1023 of them.
//
// Any thread, and any number of processes of one user.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/errors.h"

namespace common {

class NotificationTable {
public:
    // Where the table lies on a device.
    static constexpr std::string_view DevicePath = "/var/run/notifications";

    // A name's place in the table, the same in every process.
    using Token = std::uint32_t;

    // Opens the file, makes it when it is missing, and replaces it when it is damaged or another
    // kind of file. Its directory must exist. Null on failure, with the reason in `error` unless
    // null.
    static std::unique_ptr<NotificationTable> open(const std::string& realPath,
                                                   platform::OptionalError* error);
    ~NotificationTable();
    NotificationTable(const NotificationTable&) = delete;
    NotificationTable& operator=(const NotificationTable&) = delete;

    // The token of a name, new or known. Absent when the table is full.
    std::optional<Token> registerName(std::string_view name);
    // The token of a name that someone has registered.
    std::optional<Token> find(std::string_view name) const;

    // Whether a number is a token that registerName gives; everything below needs one.
    bool isToken(std::uint64_t number) const;

    void setState(Token token, std::uint64_t state);
    // 0 until someone has set it.
    std::uint64_t state(Token token) const;

    // Wakes everyone who waits for the name. A state that was set before is seen by whoever wakes.
    void post(Token token);
    // How often the name was posted, modulo 2^32.
    std::uint32_t counter(Token token) const;
    // Waits until the counter differs from `since`, or for `timeout`; gives the counter.
    std::uint32_t wait(Token token, std::uint32_t since, std::chrono::nanoseconds timeout) const;

private:
    struct Table;
    struct Slot;
    explicit NotificationTable(Table& table) : _table(table) {}
    Slot& slot(Token token) const;

    Table& _table;  // mapped, until destruction
};

}  // namespace common
