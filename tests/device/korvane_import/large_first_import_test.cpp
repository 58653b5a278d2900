// Imports that fill an empty library with so many tracks that an index is built afterwards.
#include <gtest/gtest.h>

#include "tests/device/korvane_import/exchange_fixture.h"

namespace {

using LargeFirstImport = test::ExchangeTest;

constexpr int Tracks = 10'500;

test::HostData manyTracks() {
    test::HostData host;
    for (int i = 1; i <= Tracks; ++i)
        host.add(i, "Title " + std::to_string(i));
    host.addPlaylist(1'000'001, "Ends", {1, Tracks});
    return host;
}

void expectWholeIndex(test::TestDevice& device) {
    EXPECT_EQ(device.number("SELECT count(*) FROM item_extra INDEXED BY item_extra_global_id"
                            " WHERE global_id <> 0"),
              Tracks);
    EXPECT_EQ(device.text("PRAGMA integrity_check"), "ok");
}

TEST_F(LargeFirstImport, OfAHostLeavesEveryTrackInTheIndexOnGlobalIDs) {
    a.syncWith(manyTracks());
    expectWholeIndex(a);
}

TEST_F(LargeFirstImport, OfAnotherDeviceLeavesEveryTrackInTheIndexOnGlobalIDs) {
    a.syncWith(manyTracks());
    pull(b, a);
    expectWholeIndex(b);
    EXPECT_EQ(a.state(), b.state());
}

TEST_F(LargeFirstImport, FindsEveryTrackTheSecondTime) {
    const test::HostData host = manyTracks();
    a.syncWith(host);
    b.syncWith(host);
    settle();
    EXPECT_EQ(b.number("SELECT count(*) FROM item"), Tracks);
    expectWholeIndex(b);
}

}  // namespace
