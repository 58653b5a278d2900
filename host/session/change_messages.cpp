#include "host/session/change_messages.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "host/scan/content_hash.h"
#include "host/scan/file_names.h"
#include "host/session/link_error.h"
#include "link/peer.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::Error;
using platform::OptionalError;

namespace {

constexpr std::size_t PieceSize = 256u << 10;

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Error nonsense(std::string_view text) {
    return Error(LinkErrorDomain, LinkErrorProtocol, text);
}

}  // namespace

OptionalError ChangeReceiver::take(const link::ChangeStream& piece) {
    if (piece.has_params())
        return takeParameters(piece.params());
    if (piece.has_end())
        return takeEnd(piece.end());
    if (!_hasParameters)
        return nonsense("the device sent changes without their parameters");
    _bytes += piece.data().size();
    _hasher.update(bytesOf(piece.data()));
    return _data(piece.data());
}

OptionalError ChangeReceiver::takeParameters(const std::string& propertyList) {
    OptionalError error;
    auto values = dictionaryOfPropertyList(propertyList, error);
    if (!values)
        return error;
    _parameters.values = std::move(*values);
    _hasParameters = true;
    return std::nullopt;
}

OptionalError ChangeReceiver::takeEnd(const link::ChangesEnd& end) {
    if (end.has_failure())
        return errorOfFailure(end.failure());
    StreamFacts facts{_bytes, _hasher.digest(), end.revision()};
    if (!_hasParameters || end.size() != facts.size ||
        contentHashOfBytes(end.content_hash()) != facts.hash)
        return nonsense("the changes arrived damaged");
    _parameters.stream = facts;
    return std::nullopt;
}

OptionalError ChangeSender::open(const std::string& path) {
    _path = path;
    auto propertyList = propertyListOfDictionary(_parameters.values, _error);
    if (!propertyList)
        return _error;
    _propertyList = std::move(*propertyList);
    _fd.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!_fd || ::fstat(_fd.get(), &status) != 0)
        fail(errno, std::strerror(errno));
    else if (!S_ISREG(status.st_mode))
        fail(EINVAL, "this is no file");
    return _error;
}

bool ChangeSender::next(link::ChangeStream& piece) {
    piece.Clear();
    switch (_step) {
        case Step::Parameters:
            piece.set_params(_propertyList);
            _step = Step::Data;
            return true;
        case Step::Data:
            fillData(piece);
            if (piece.data().empty()) {
                fillEnd(*piece.mutable_end());
                _step = Step::Over;
            }
            return true;
        case Step::Over:
            break;
    }
    return false;
}

void ChangeSender::fillData(link::ChangeStream& piece) {
    std::string& data = *piece.mutable_data();
    data.resize(PieceSize);
    ssize_t count = 0;
    do {
        count = ::read(_fd.get(), data.data(), data.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        fail(errno, std::strerror(errno));
    data.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    _hasher.update(bytesOf(data));
    _bytes += data.size();
}

void ChangeSender::fillEnd(link::ChangesEnd& end) {
    StreamFacts facts{_bytes, _hasher.digest(), 0};
    if (const auto& expected = _parameters.stream) {
        facts.revision = expected->revision;
        if (*expected != facts)
            fail(EBADMSG, "it is damaged: it is not the file that its parameters were made for");
    }
    if (_error) {
        end.mutable_failure()->set_domain(_error->domain);
        end.mutable_failure()->set_code(_error->code);
        end.mutable_failure()->set_text(_error->text());
        return;
    }
    end.set_size(facts.size);
    end.set_content_hash(bytesOfContentHash(facts.hash));
    end.set_revision(facts.revision);
}

void ChangeSender::fail(int errorNumber, std::string_view text) {
    if (!_error)
        _error = Error(platform::POSIXErrorDomain, errorNumber,
                       fmt::format("{}: {}", displayText(_path), text));
}

}  // namespace host
