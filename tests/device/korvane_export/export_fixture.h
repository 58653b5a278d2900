// Exports of a library, read back.
#pragma once

#include <string>
#include <vector>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/export/export_session.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace test {

// Takes so many bytes and then fails.
class LimitedStream final : public platform::OutputStream {
public:
    static constexpr std::int64_t FailureCode = 77;

    explicit LimitedStream(std::size_t limit = SIZE_MAX) : _limit(limit) {}
    void open() override {}
    void close() override {}
    platform::OptionalError write(std::span<const std::uint8_t> piece) override;
    std::string description() const override { return "<LimitedStream>"; }

    platform::Data bytes;
    std::vector<std::size_t> pieces;  // sizes

private:
    const std::size_t _limit;
};

struct Exported {
    qorx::Header header;
    std::vector<qorx::Track> tracks;
    std::vector<qorx::Playlist> playlists;
    std::vector<qorx::Deletion> deletions;
};

// Absent, with a failure of the test, for what is not whole.
Exported readBack(const platform::Data& bytes);
bool isWhole(const platform::Data& bytes);

struct Change {
    std::int64_t pid = 0;
    std::int64_t revision = 0;
    bool isDeletion = false;

    bool operator==(const Change&) const = default;
};
void PrintTo(const Change& change, std::ostream* out);

class ExportTest : public ImportTest {
protected:
    std::vector<Change> changes(std::int64_t afterRevision,
                                std::int64_t trackingCode = KV3RevisionTrackingCodeTrack,
                                const platform::Value& mediaTypes = {});
    std::uint64_t count(std::int64_t afterRevision,
                        std::int64_t trackingCode = KV3RevisionTrackingCodeTrack);
    std::shared_ptr<KV3QORXExportSession> session();
    // Everything after a revision, playlists and tracks, in one stream; fails the test on an error.
    Exported exportAll(std::int64_t afterRevision = 0);
    // The only track of an export of one.
    qorx::Track exportOne(std::int64_t pid);
    void addTracks(std::int64_t count);
    void deleteTrack(std::int64_t pid);
    void addPlaylist(std::int64_t pid, const std::string& name, int builtInKind = 0);
    void deletePlaylist(std::int64_t pid);

    std::shared_ptr<LimitedStream> stream = std::make_shared<LimitedStream>();
};

}  // namespace test
