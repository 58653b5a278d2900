#include "tests/device/orlith/mirror_fixture.h"

#include <fmt/format.h>

#include <thread>

namespace orlith::testing {

namespace {

constexpr std::chrono::milliseconds LookInterval{2};

}  // namespace

std::unique_ptr<link::Mirror::Stub> mirrorOf(DeviceProcess& device) {
    platform::OptionalError error;
    common::UniqueFd connection =
        link::connectToSocket(link::socketPathOfDevice(device.root), &error);
    EXPECT_TRUE(connection);
    return link::Mirror::NewStub(grpc::CreateInsecureChannelFromFd("device", connection.release()));
}

link::MirrorRequest requestFrom(const std::string& root) {
    link::MirrorRequest request;
    request.set_from_directory(root);
    return request;
}

MirrorRun run(const link::MirrorRequest& request, DeviceProcess& to, const EventCheck& goesOn) {
    MirrorRun result;
    const auto stub = mirrorOf(to);
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(120));
    const auto reader = stub->Run(&context, request);
    link::MirrorEvent event;
    while (reader->Read(&event)) {
        if (event.has_started())
            result.starts.push_back(event.started());
        if (event.has_summary())
            result.summaries.push_back(event.summary());
        if (event.has_asset() && !event.asset().success())
            result.failures.push_back(event.asset());
        if (!goesOn(event))
            context.TryCancel();
    }
    result.status = reader->Finish();
    return result;
}

MirrorRun mirror(DeviceProcess& from, DeviceProcess& to) {
    MirrorRun result = run(requestFrom(from.root), to);
    EXPECT_TRUE(result.status.ok()) << result.status.error_message();
    EXPECT_EQ(result.summaries.size(), 1u);
    result.summaries.resize(1);
    for (const link::MirrorAsset& failure : result.failures)
        ADD_FAILURE() << failure.ShortDebugString();
    return result;
}

link::RevisionReply revisions(DeviceProcess& device) {
    grpc::ClientContext context;
    link::RevisionReply reply;
    EXPECT_TRUE(mirrorOf(device)->Revision(&context, {}, &reply).ok());
    return reply;
}

std::int64_t revision(DeviceProcess& device) {
    return revisions(device).revision();
}

void rate(DeviceProcess& device, const std::string& track, unsigned stars) {
    grpc::ClientContext context;
    link::RateRequest request;
    request.set_track(track);
    request.set_stars(stars);
    link::EditReply reply;
    ASSERT_TRUE(device.stub->Rate(&context, request, &reply).ok());
    ASSERT_TRUE(reply.success()) << reply.ShortDebugString();
}

grpc::Status importChanges(DeviceProcess& device, const std::vector<link::ChangeStream>& messages,
                           link::ImportReply& reply) {
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(60));
    const auto stub = mirrorOf(device);
    const auto writer = stub->Import(&context, &reply);
    for (const link::ChangeStream& message : messages)
        writer->Write(message);
    writer->WritesDone();
    return writer->Finish();
}

std::vector<link::ChangeStream> exportChanges(DeviceProcess& device) {
    grpc::ClientContext context;
    const auto stub = mirrorOf(device);
    const auto reader = stub->Export(&context, link::ExportRequest());
    std::vector<link::ChangeStream> messages;
    link::ChangeStream message;
    while (reader->Read(&message))
        messages.push_back(message);
    EXPECT_TRUE(reader->Finish().ok());
    return messages;
}

std::vector<link::TrackRow> tracksOf(DeviceProcess& device) {
    grpc::ClientContext context;
    const auto reader = device.stub->ListTracks(&context, link::ListRequest());
    std::vector<link::TrackRow> rows;
    link::TrackBatch batch;
    while (reader->Read(&batch))
        rows.insert(rows.end(), batch.tracks().begin(), batch.tracks().end());
    EXPECT_TRUE(reader->Finish().ok());
    return rows;
}

std::map<std::string, link::TrackRow> tracksByTitle(DeviceProcess& device) {
    std::map<std::string, link::TrackRow> rows;
    for (const link::TrackRow& row : tracksOf(device))
        EXPECT_TRUE(rows.emplace(row.title(), row).second) << row.title() << " is there twice";
    return rows;
}

std::map<std::string, std::vector<std::string>> playlists(DeviceProcess& device) {
    std::map<std::int64_t, std::string> titles;
    for (const link::TrackRow& row : tracksOf(device))
        titles[row.persistent_id()] = row.title();
    grpc::ClientContext context;
    const auto reader = device.stub->ListPlaylists(&context, link::ListRequest());
    std::map<std::string, std::vector<std::string>> lists;
    link::PlaylistBatch batch;
    while (reader->Read(&batch))
        for (const link::PlaylistRow& row : batch.playlists()) {
            if (row.built_in())
                continue;
            const auto [list, isNew] = lists.try_emplace(row.name());
            EXPECT_TRUE(isNew) << row.name() << " is there twice";
            for (const std::int64_t track : row.tracks())
                list->second.push_back(titles[track]);
        }
    EXPECT_TRUE(reader->Finish().ok());
    return lists;
}

std::string contentOf(DeviceProcess& device) {
    std::string content;
    for (const auto& [title, row] : tracksByTitle(device)) {
        const std::string bytes = row.has_path() ? device.read(row.path()) : std::string();
        content += fmt::format("track {}: {} bytes, hash {:016x}, {} stars, {} plays{}\n", title,
                               bytes.size(), std::hash<std::string>()(bytes), row.rating() / 20,
                               row.play_count(), row.artwork() ? ", a picture" : "");
    }
    for (const auto& [name, titles] : playlists(device)) {
        content += fmt::format("playlist {}:", name);
        for (const std::string& title : titles)
            content += fmt::format(" {},", title);
        content += '\n';
    }
    content += fmt::format("{} files of music\n",
                           device.filesBelow("/var/mobile/Media/Tessel_Control/Music"));
    for (const auto& entry :
         fs::recursive_directory_iterator(device.root + "/var/mobile/Media/Stagehold"))
        if (entry.is_regular_file())
            content += fmt::format("staged: {}\n", entry.path().string());
    return content;
}

void expectComplete(DeviceProcess& device, const HostLibrary& library) {
    const auto rows = tracksByTitle(device);
    EXPECT_EQ(rows.size(), static_cast<std::size_t>(library.tracks));
    for (int i = 1; i <= library.tracks; ++i) {
        const auto row = rows.find("Title " + std::to_string(i));
        ASSERT_NE(row, rows.end()) << i;
        EXPECT_TRUE(row->second.has_path() &&
                    device.read(row->second.path()) == bytesOf(library, i))
            << i << " " << row->second.path();
    }
    EXPECT_EQ(device.filesBelow("/var/mobile/Media/Stagehold"), 0u);
    EXPECT_EQ(device.filesBelow("/var/mobile/Media/Tessel_Control/Music"),
              static_cast<std::size_t>(library.tracks));
}

void expectQuiet(DeviceProcess& one, DeviceProcess& other) {
    mirror(one, other);
    mirror(other, one);
    mirror(one, other);
    const std::int64_t here = revision(one);
    const std::int64_t there = revision(other);
    EXPECT_EQ(mirror(other, one).summary().bytes(), 0u);
    EXPECT_EQ(mirror(one, other).summary().bytes(), 0u);
    EXPECT_EQ(revision(one), here);
    EXPECT_EQ(revision(other), there);
}

void waitUntilFree(DeviceProcess& device) {
    ASSERT_TRUE(eventually([&] {
        link::StatusReply status;
        grpc::ClientContext context;
        return device.stub->Status(&context, {}, &status).ok() && status.session_owner().empty();
    }));
}

bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        // The two daemons need the processor more.
        std::this_thread::sleep_for(LookInterval);
    }
    return true;
}

}  // namespace orlith::testing
