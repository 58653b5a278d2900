// A host that puts hostile text into every field that holds any, of the link's messages and of the
// records of its data file. Nothing outside the device directory is read into it, written or
// removed, and the daemon goes on. ORLITH_HOSTILE_NAMES asks for more names than a short run has,
// ORLITH_SEED for the same ones again.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <set>

#include "common/qorx/writer.h"
#include "tests/device/orlith/daemon_process.h"

namespace orlith::testing {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// The fields that hold text or bytes, those of messages within included; each is set by a function.
struct TextField {
    std::string name;
    std::function<void(Message&, const std::string&)> set;
};

void setText(Message& message, const FieldDescriptor& field, const std::string& text) {
    const auto& reflection = *message.GetReflection();
    if (field.is_repeated())
        reflection.AddString(&message, &field, text);
    else
        reflection.SetString(&message, &field, text);
}

std::vector<TextField> textFieldsOf(const Descriptor& type) {
    std::vector<TextField> fields;
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor& field = *type.field(i);
        if (field.cpp_type() == FieldDescriptor::CPPTYPE_STRING)
            fields.push_back(
                {field.full_name(), [&field](Message& message, const std::string& text) {
                     setText(message, field, text);
                 }});
        if (field.cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE)
            continue;
        for (const TextField& inner : textFieldsOf(*field.message_type()))
            fields.push_back(
                {inner.name, [&field, inner](Message& message, const std::string& text) {
                     const auto& reflection = *message.GetReflection();
                     inner.set(field.is_repeated() ? *reflection.AddMessage(&message, &field)
                                                   : *reflection.MutableMessage(&message, &field),
                               text);
                 }});
    }
    return fields;
}

std::vector<std::string> hostileNames(std::size_t count, unsigned seed) {
    using namespace std::string_literals;
    std::vector<std::string> names = {"../../../canary/new"s,
                                      "/etc/passwd"s,
                                      "..",
                                      "."s,
                                      ""s,
                                      "/"s,
                                      "5\0/../x"s,
                                      "1001/../../x"s,
                                      "\xff\xfe"s,
                                      "\xc0\xae\xc0\xae/x"s,
                                      "link/new"s,
                                      "Sync_/../../x.plist"s,
                                      std::string(255, 'a'),
                                      std::string(4096, 'b')};
    const std::vector<std::string> pieces = {"..",       "/",
                                             "../",      "\0"s,
                                             "a",        "\xff",
                                             "\\",       ".",
                                             "%2e%2e",   "~",
                                             "link",     "5",
                                             "-5",       "\n",
                                             "\x1b[2J",  "Sync_",
                                             ".plist",   "1001",
                                             ".mp3",     "e\xcc\x81",
                                             "\xc3\xa9", std::string(250, 'n'),
                                             "canary"};
    std::mt19937 random(seed);
    while (names.size() < count) {
        std::string name;
        for (std::size_t left = 1 + random() % 8; left > 0; --left)
            name += pieces[random() % pieces.size()];
        names.push_back(name);
    }
    names.resize(count);
    return names;
}

std::size_t numberFrom(const char* variable, std::size_t otherwise) {
    const char* text = std::getenv(variable);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

constexpr std::size_t FewNames = 4;
constexpr std::int64_t SyncID = 1001;
constexpr char Secret[] = "what lies outside";

class HostileNames : public DaemonProcess {
protected:
    HostileNames() : _place(root) {
        root += "/device";
        fs::create_directories(_place + "/canary");
        std::ofstream(_place + "/canary/secret") << Secret;
        // Ways out that somebody with a hand on the device has made.
        fs::create_directories(music());
        fs::create_directory_symlink("../../../../../../canary", music() + "/F01");
        fs::create_directory_symlink(_place + "/canary", music() + "/link");
    }
    ~HostileNames() override {
        if (pid > 0)
            end(SIGKILL);
        std::error_code ignored;
        fs::remove_all(_place, ignored);
    }

    std::string music() const { return root + "/var/mobile/Media/Tessel_Control/Music"; }

    static std::string stream(const qorx::Header& header, const qorx::Track& track,
                              const qorx::Playlist& playlist) {
        std::string bytes;
        common::QorxWriter writer([&](std::span<const std::uint8_t> piece) {
            bytes.append(piece.begin(), piece.end());
            return platform::OptionalError();
        });
        // What cannot even be written is not sent.
        if (writer.begin(header) || writer.write(track) || writer.write(playlist) || writer.end())
            return {};
        return bytes;
    }
    static qorx::Header plainHeader() {
        qorx::Header header;
        header.set_purpose(qorx::Header::HOST_DATA);
        header.set_exporter_uid("host");
        header.set_complete(true);
        return header;
    }
    static qorx::Track plainTrack() {
        qorx::Track track;
        track.set_sync_id(SyncID);
        track.set_global_id(2001);
        track.set_media_type(8);
        track.set_title("Title");
        track.set_total_size(1000);
        track.set_file_extension("mp3");
        return track;
    }
    static qorx::Playlist plainPlaylist() {
        qorx::Playlist playlist;
        playlist.set_sync_id(SyncID + 1);
        playlist.set_global_id(2002);
        playlist.set_name("List");
        playlist.add_items()->set_sync_id(SyncID);
        return playlist;
    }

    // A whole session over that data; it may be refused anywhere.
    void syncData(const std::string& bytes) {
        if (bytes.empty())
            return;
        Host host(*stub);
        host.prepare();
        if (!host.sendFile(link::SessionFile::HOST_DATA, "", bytes).has_file_received() ||
            !host.reconcile().reconciled().success())
            return;
        for (const link::Asset& asset : host.outstanding())
            if (asset.parts() == PartFile)
                host.transferFile(asset.identifier(), std::string(1000, 's'));
        host.end();
    }

    // One message with hostile text, sent where such a message may come.
    void sendHostile(const link::FromHost& message) {
        Host host(*stub);
        if (message.has_open()) {
            host.send(message);
            return;
        }
        if (message.has_prepare()) {
            ASSERT_TRUE(host.open().has_opened());
        } else {
            host.prepare();
            if (!message.has_file())
                host.sendFile(link::SessionFile::HOST_DATA, "",
                              stream(plainHeader(), plainTrack(), plainPlaylist()));
            if (message.has_transfer() || message.has_upload() || message.has_partial()) {
                host.reconcile();
                host.outstanding();
            }
        }
        host.send(message);
        host.sendChunks("bytes");
        host.end();
    }

    void expectNothingOutsideChanged() {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(_place)) {
            const std::string path = fs::relative(entry.path(), _place);
            if (!path.starts_with("device"))
                found.insert(path);
        }
        ASSERT_EQ(found, (std::set<std::string>{"canary", "canary/secret"}));
        std::ifstream file(_place + "/canary/secret");
        ASSERT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), Secret);
    }
    void expectTheDaemonAnswers() {
        grpc::ClientContext context;
        link::StatusReply reply;
        ASSERT_TRUE(stub->Status(&context, link::StatusRequest(), &reply).ok());
    }

    const std::string _place;
};

TEST_F(HostileNames, InNoFieldOfAnyMessageDoTheyLeadOutOfTheDevice) {
    const auto seed = static_cast<unsigned>(numberFrom("ORLITH_SEED", std::random_device{}()));
    const auto names = hostileNames(numberFrom("ORLITH_HOSTILE_NAMES", FewNames), seed);
    SCOPED_TRACE("ORLITH_SEED=" + std::to_string(seed));
    const auto linkFields = textFieldsOf(*link::FromHost::descriptor());
    ASSERT_GT(linkFields.size(), 15u);
    start();
    for (const std::string& name : names) {
        for (const TextField& field : linkFields) {
            SCOPED_TRACE(field.name + " = " + ::testing::PrintToString(name));
            link::FromHost message;
            field.set(message, name);
            if (link::Transfer* transfer =
                    message.has_transfer() ? message.mutable_transfer() : nullptr) {
                transfer->set_part(link::Transfer::FILE);
                transfer->set_size(5);
                transfer->set_parts(PartFile);
                transfer->set_asset_complete(true);
                if (transfer->identifier().empty())
                    transfer->set_identifier(std::to_string(SyncID));
                if (transfer->file_extension().empty())
                    transfer->set_file_extension("mp3");
            }
            if (message.has_file()) {
                message.mutable_file()->set_kind(link::SessionFile::SETTINGS);
                message.mutable_file()->set_size(5);
            }
            ASSERT_NO_FATAL_FAILURE(sendHostile(message));
        }
        ASSERT_NO_FATAL_FAILURE(expectTheDaemonAnswers());
        ASSERT_NO_FATAL_FAILURE(expectNothingOutsideChanged());
    }
    EXPECT_EQ(end(SIGTERM), 0);
}

TEST_F(HostileNames, InNoFieldOfAnyRecordDoTheyLeadOutOfTheDevice) {
    const auto seed = static_cast<unsigned>(numberFrom("ORLITH_SEED", std::random_device{}()));
    const auto names = hostileNames(numberFrom("ORLITH_HOSTILE_NAMES", FewNames), seed);
    SCOPED_TRACE("ORLITH_SEED=" + std::to_string(seed));
    start();
    for (const std::string& name : names) {
        SCOPED_TRACE(::testing::PrintToString(name));
        for (const TextField& field : textFieldsOf(*qorx::Header::descriptor())) {
            qorx::Header header = plainHeader();
            field.set(header, name);
            ASSERT_NO_FATAL_FAILURE(syncData(stream(header, plainTrack(), plainPlaylist())));
        }
        for (const TextField& field : textFieldsOf(*qorx::Track::descriptor())) {
            SCOPED_TRACE(field.name);
            qorx::Track track = plainTrack();
            field.set(track, name);
            ASSERT_NO_FATAL_FAILURE(syncData(stream(plainHeader(), track, plainPlaylist())));
        }
        for (const TextField& field : textFieldsOf(*qorx::Playlist::descriptor())) {
            qorx::Playlist playlist = plainPlaylist();
            field.set(playlist, name);
            ASSERT_NO_FATAL_FAILURE(syncData(stream(plainHeader(), plainTrack(), playlist)));
        }
        ASSERT_NO_FATAL_FAILURE(expectTheDaemonAnswers());
        ASSERT_NO_FATAL_FAILURE(expectNothingOutsideChanged());
    }
    EXPECT_EQ(end(SIGTERM), 0);
}

}  // namespace
}  // namespace orlith::testing
