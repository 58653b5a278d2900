// A download from a file address of this machine: a regular file, copied a piece at a time.
#pragma once

#include <optional>
#include <string>

#include "common/unique_fd.h"
#include "device/downloads/staged_download.h"
#include "device/downloads/transfer.h"

namespace downloads {

class FileTransfer final : public Transfer {
public:
    // `staged` outlives the transfer.
    FileTransfer(const std::string& path, StagedDownload& staged);

    const std::optional<Outcome>& outcome() const override { return _outcome; }
    bool step() override;

private:
    void begin(const std::string& path);
    void copyPiece();
    void finish();
    // Which version the open file is: what tells a rewritten file from the one before.
    std::string validator() const;
    void end(Outcome::Kind kind, std::string reason) { _outcome = {kind, std::move(reason)}; }

    StagedDownload& _staged;
    common::UniqueFd _file;
    std::uint64_t _size = 0;
    std::string _validator;
    std::optional<Outcome> _outcome;
};

}  // namespace downloads
