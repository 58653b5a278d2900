// A host that talks to a daemon through its socket, message by message.
#pragma once

#include <grpcpp/create_channel_posix.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "common/hash.h"
#include "device/orlith/asset.h"
#include "device/orlith/incoming_file.h"
#include "link/address.h"
#include "link/orlith.grpc.pb.h"
#include "tests/support/hand_off.h"

namespace orlith::testing {

inline std::string hashOf(const std::string& bytes) {
    return hashText(
        common::xxh3({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}));
}

// One session of a host. Every receive has a deadline through the call's own.
class Host {
public:
    explicit Host(link::Device::Stub& stub) {
        _context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
        _stream = stub.Session(&_context);
    }
    ~Host() { leave(); }

    bool send(const link::FromHost& message) {
        test::handOver();
        return _stream->Write(message);
    }
    // The next message; MESSAGE_NOT_SET at the end.
    link::FromDevice receive() {
        link::FromDevice message;
        if (!_stream->Read(&message))
            message.Clear();
        test::takeOver();
        return message;
    }
    // As when the host's process is killed.
    void breakOff() { _context.TryCancel(); }
    grpc::Status leave() {
        if (_left)
            return _status;
        _left = true;
        _stream->WritesDone();
        link::FromDevice dropped;
        while (_stream->Read(&dropped)) {
        }
        return _status = _stream->Finish();
    }

    link::FromDevice open(const std::string& name = "host") {
        link::FromHost message;
        message.mutable_open()->set_host_name(name);
        message.mutable_open()->set_process_id(static_cast<std::uint32_t>(::getpid()));
        send(message);
        return receive();
    }
    // Opens and prepares; what preparation saved is dropped.
    void prepare() {
        ASSERT_TRUE(open().has_opened());
        link::FromHost message;
        message.mutable_prepare();
        send(message);
        ASSERT_TRUE(receive().has_prepared());
        for (;;) {
            const link::FromDevice answer = receive();
            ASSERT_TRUE(answer.has_saved());
            if (answer.saved().last())
                return;
        }
    }
    link::FromDevice sendFile(link::SessionFile::Kind kind, const std::string& name,
                              const std::string& bytes) {
        link::FromHost message;
        message.mutable_file()->set_kind(kind);
        message.mutable_file()->set_name(name);
        message.mutable_file()->set_size(bytes.size());
        send(message);
        sendChunks(bytes);
        return receive();
    }
    link::FromDevice reconcile(std::uint32_t type = 1) {
        link::FromHost message;
        message.mutable_reconcile()->set_sync_type(type);
        message.mutable_reconcile()->set_new_anchor("a1");
        send(message);
        return receive();
    }
    std::vector<link::Asset> outstanding() {
        link::FromHost message;
        message.mutable_outstanding();
        send(message);
        std::vector<link::Asset> assets;
        for (;;) {
            const link::FromDevice answer = receive();
            EXPECT_TRUE(answer.has_outstanding()) << answer.ShortDebugString();
            if (!answer.has_outstanding())
                return assets;
            assets.insert(assets.end(), answer.outstanding().assets().begin(),
                          answer.outstanding().assets().end());
            if (answer.outstanding().last())
                return assets;
        }
    }
    // Up to the list of assets.
    std::vector<link::Asset> beginTransfers() {
        prepare();
        EXPECT_TRUE(reconcile().reconciled().success());
        return outstanding();
    }
    static link::FromHost announce(const std::string& identifier, link::Transfer::Part part,
                                   const std::string& bytes) {
        link::FromHost message;
        link::Transfer& transfer = *message.mutable_transfer();
        transfer.set_identifier(identifier);
        transfer.set_part(part);
        transfer.set_size(bytes.size());
        transfer.set_content_hash(hashOf(bytes));
        if (part == link::Transfer::FILE) {
            transfer.set_file_extension("mp3");
            transfer.set_asset_complete(true);
            transfer.set_parts(PartFile);
        }
        return message;
    }
    void sendChunks(const std::string& bytes, std::size_t size = 256 << 10,
                    std::size_t most = SIZE_MAX) {
        std::size_t done = 0;
        do {
            if (most-- == 0)
                return;
            link::FromHost message;
            message.mutable_chunk()->set_data(bytes.substr(done, size));
            done += message.chunk().data().size();
            message.mutable_chunk()->set_last(done == bytes.size());
            if (!send(message))
                return;
        } while (done < bytes.size());
    }
    link::FromDevice transfer(const link::FromHost& announcement, const std::string& bytes) {
        send(announcement);
        sendChunks(bytes);
        return receive();
    }
    link::FromDevice transferFile(const std::string& identifier, const std::string& bytes) {
        return transfer(announce(identifier, link::Transfer::FILE, bytes), bytes);
    }
    link::FromDevice end(bool success = true) {
        link::FromHost message;
        message.mutable_end()->set_success(success);
        send(message);
        return receive();
    }

private:
    grpc::ClientContext _context;
    std::unique_ptr<grpc::ClientReaderWriter<link::FromHost, link::FromDevice>> _stream;
    grpc::Status _status;
    bool _left = false;
};

// A connection of its own to the daemon of a device directory.
inline std::unique_ptr<link::Device::Stub> connectTo(const std::string& root) {
    platform::OptionalError error;
    common::UniqueFd connection = link::connectToSocket(link::socketPathOfDevice(root), &error);
    EXPECT_TRUE(connection);
    return link::Device::NewStub(grpc::CreateInsecureChannelFromFd("device", connection.release()));
}

}  // namespace orlith::testing
