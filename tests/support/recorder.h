// What the doubles of the platform share: the list of calls made on them, in order, and faults
// armed by call. Callable from any thread.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values.h"

namespace support {

struct Call {
    std::string name;
    std::vector<platform::Value> arguments;

    bool operator==(const Call&) const = default;
};
using Calls = std::vector<Call>;

// name(argument, argument)
std::ostream& operator<<(std::ostream& out, const Call& call);

class Recorder {
public:
    using Arguments = std::vector<platform::Value>;

    // A call that cannot fail.
    void record(std::string_view name, Arguments arguments = {});
    // A call that can; true when a fault fires on it.
    bool fails(std::string_view name, Arguments arguments = {});

    // Makes the nth call of that name from now on fail.
    void failCall(std::string_view name, std::size_t nth = 1);
    // Makes the nth call that can fail, from now on, fail, whatever its name.
    void failAnyCall(std::size_t nth);

    Calls calls() const;
    // Those of the names only.
    Calls callsNamed(const std::set<std::string, std::less<>>& names) const;
    // How many calls that can fail were made since the last clear.
    std::size_t fallibleCalls() const;
    // Forgets the calls; armed faults stay.
    void clear();
    // The armed faults that have not fired.
    std::vector<std::string> faultsLeft() const;

private:
    mutable std::mutex _mutex;  // guards all below
    Calls _calls;
    std::size_t _fallibleCalls = 0;
    std::map<std::string, std::set<std::size_t>, std::less<>> _faults;  // counts down to 1
    std::size_t _anyFault = 0;                                          // 0: none
};

}  // namespace support
