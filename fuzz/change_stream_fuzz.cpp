// Any bytes as another device's changes, imported into a library as tracks and as playlists: as
// they are, and again with a checksum that is right, so that the fuzzer reaches what lies behind
// it.
#include <google/protobuf/stubs/logging.h>
#include <xxhash.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "common/sqlite/database.h"
#include "device/korvane/connections.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/import/peer_changes_import.h"
#include "device/korvane/schema.h"
#include "tests/support/temporary_directory.h"

namespace {

// A library that is made anew before it grows large.
class Library {
public:
    Library() {
        const std::string path = _directory / "library";
        common::Database database(path, {.fullSync = false});
        korvane::bringSchemaUpToDate(database);
        _connections =
            std::make_unique<korvane::Connections>(korvane::ConnectionSettings{.realPath = path});
    }
    void import(const platform::Data& bytes) {
        for (const korvane::PeerChanges& changes :
             {korvane::PeerChanges{&bytes, nullptr}, korvane::PeerChanges{nullptr, &bytes}})
            korvane::importPeerChanges(*_connections, changes, {.ownUID = "own"}, _cancellation);
        const bool isWhole = _connections->reading<std::int64_t>([](common::Database& database) {
            return database.int64("SELECT items FROM row_count") ==
                   database.int64("SELECT count(*) FROM item");
        });
        if (!isWhole)
            std::abort();
    }

private:
    test::TemporaryDirectory _directory;
    korvane::ImportCancellation _cancellation;
    std::unique_ptr<korvane::Connections> _connections;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int ImportsOfALibrary = 500;
    static const google::protobuf::LogSilencer silence;
    static std::unique_ptr<Library> library;
    static int imports = 0;
    if (imports++ % ImportsOfALibrary == 0)
        library = std::make_unique<Library>();
    platform::Data bytes(data, data + size);
    library->import(bytes);
    std::uint64_t checksum = XXH3_64bits(data, size);
    for (int i = 0; i < 8; ++i, checksum >>= 8)
        bytes.push_back(static_cast<std::uint8_t>(checksum));
    library->import(bytes);
    return 0;
}
