#include "tests/support/recorder.h"

#include <algorithm>

namespace support {

std::ostream& operator<<(std::ostream& out, const Call& call) {
    out << call.name << "(";
    const char* separator = "";
    for (const platform::Value& argument : call.arguments) {
        out << separator << argument.description();
        separator = ", ";
    }
    return out << ")";
}

void Recorder::record(std::string_view name, Arguments arguments) {
    const std::lock_guard lock(_mutex);
    _calls.push_back({std::string(name), std::move(arguments)});
}

bool Recorder::fails(std::string_view name, Arguments arguments) {
    const std::lock_guard lock(_mutex);
    _calls.push_back({std::string(name), std::move(arguments)});
    ++_fallibleCalls;
    bool fires = false;
    if (_anyFault > 0)
        fires = --_anyFault == 0;
    const auto armed = _faults.find(name);
    if (armed == _faults.end())
        return fires;
    std::set<std::size_t> left;
    for (const std::size_t count : armed->second) {
        if (count == 1)
            fires = true;
        else
            left.insert(count - 1);
    }
    if (left.empty())
        _faults.erase(armed);
    else
        armed->second = std::move(left);
    return fires;
}

void Recorder::failCall(std::string_view name, std::size_t nth) {
    const std::lock_guard lock(_mutex);
    _faults[std::string(name)].insert(nth);
}

void Recorder::failAnyCall(std::size_t nth) {
    const std::lock_guard lock(_mutex);
    _anyFault = nth;
}

Calls Recorder::calls() const {
    const std::lock_guard lock(_mutex);
    return _calls;
}

Calls Recorder::callsNamed(const std::set<std::string, std::less<>>& names) const {
    Calls result;
    const std::lock_guard lock(_mutex);
    std::copy_if(_calls.begin(), _calls.end(), std::back_inserter(result),
                 [&names](const Call& call) { return names.contains(call.name); });
    return result;
}

std::size_t Recorder::fallibleCalls() const {
    const std::lock_guard lock(_mutex);
    return _fallibleCalls;
}

void Recorder::clear() {
    const std::lock_guard lock(_mutex);
    _calls.clear();
    _fallibleCalls = 0;
}

std::vector<std::string> Recorder::faultsLeft() const {
    const std::lock_guard lock(_mutex);
    std::vector<std::string> left;
    for (const auto& [name, counts] : _faults) {
        for (const std::size_t count : counts)
            left.push_back(name + ", call " + std::to_string(count));
    }
    if (_anyFault > 0)
        left.push_back("any call, call " + std::to_string(_anyFault));
    return left;
}

}  // namespace support
