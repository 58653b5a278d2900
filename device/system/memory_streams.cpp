#include "device/system/memory_streams.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace device {
namespace {

using platform::Data;
using platform::Error;
using platform::OptionalError;

class MemoryInput final : public platform::InputStream {
public:
    explicit MemoryInput(Data bytes) : _bytes(std::move(bytes)) {}

    OptionalError read(Data& out, std::size_t count) override {
        const auto from = _bytes.begin() + static_cast<std::ptrdiff_t>(_at);
        const std::size_t given = std::min(count, _bytes.size() - _at);
        out.insert(out.end(), from, from + static_cast<std::ptrdiff_t>(given));
        _at += given;
        return std::nullopt;
    }
    std::string description() const override { return "<InputStream: memory>"; }

private:
    const Data _bytes;
    std::size_t _at = 0;
};

class MemoryOutput final : public platform::MemoryOutputStream {
public:
    void open() override { _isOpen = true; }
    void close() override { _isOpen = false; }
    OptionalError write(std::span<const std::uint8_t> bytes) override {
        if (!_isOpen)
            return Error::posix(EBADF);
        _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
        return std::nullopt;
    }
    Data takeData() override { return std::exchange(_bytes, {}); }
    std::string description() const override { return "<OutputStream: memory>"; }

private:
    bool _isOpen = false;
    Data _bytes;
};

}  // namespace

std::unique_ptr<platform::InputStream> makeMemoryInputStream(Data bytes) {
    return std::make_unique<MemoryInput>(std::move(bytes));
}

std::unique_ptr<platform::MemoryOutputStream> makeMemoryOutputStream() {
    return std::make_unique<MemoryOutput>();
}

}  // namespace device
