// Purpose: the files that lie in the directory of purchases, and whose they are.
// Calling thread: any.
// Failure: the database's error; nothing is changed then.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace korvane {

class Library;

inline constexpr char PurchasesDirectory[] = "/var/mobile/Media/Purchases";

struct PurchaseFile {
    std::int64_t track = 0;   // 0: nobody's
    bool isFromHost = false;  // a host brought the track, and can bring the file again
    std::string source;       // the address that the file came from; "" when it is not known
};

// Whose files these are (names in the directory of purchases), in their order. A file named after a
// track that lacks its own ("<persistent id>.<extension>") is recorded for it first: that is how a
// restored library gets back what is still there.
std::optional<std::vector<PurchaseFile>> settlePurchaseFiles(Library& library,
                                                             const std::vector<std::string>& names,
                                                             platform::OptionalError& error);

}  // namespace korvane
