// The anchors of syncs. A host gives a device one with each import; a metadata update between syncs
// extends it, so that the device's anchor is a new one and still says which sync it goes back to:
// what the host remembers of the device stays true.
//
// Any thread; plain functions that never fail.
#pragma once

#include <string>

namespace orlith::link {

// The sync's anchor without what an update added: "<anchor>" of "<anchor>+<number>".
std::string anchorOfSync(const std::string& anchor);
// Another one of the same sync.
std::string anchorOfUpdate(const std::string& anchor);

}  // namespace orlith::link
