// A device that is handed change streams that mean harm, and what must hold afterwards.
#pragma once

#include <google/protobuf/stubs/logging.h>

#include "tests/device/korvane_import/exchange_fixture.h"

namespace test {

class HostileChanges : public testing::Test {
protected:
    void SetUp() override;
    static qorx::Track track(std::int64_t pid);
    static qorx::Playlist playlist(std::int64_t pid, const std::vector<std::int64_t>& tracks);
    static qorx::Deletion deletion(std::int64_t pid);
    // Imported once, and a second time without any effect.
    void expectTaken(std::optional<platform::Data> tracks, std::optional<platform::Data> playlists);
    // With an error that says something; the library is as it was before the test.
    void expectRefused(std::optional<platform::Data> tracks,
                       std::optional<platform::Data> playlists = std::nullopt);
    // All that the device has goes to another one as it is, and then there is nothing to say.
    void expectTravelsOn();

    const google::protobuf::LogSilencer silence;
    TestDevice device;
    std::string before;
};

}  // namespace test
