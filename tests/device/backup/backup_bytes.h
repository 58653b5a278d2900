// Backups as bytes: made of what a test says, and read to their end.
#pragma once

#include <map>
#include <string>

#include "device/orlith/backup/backup_format.h"
#include "device/orlith/backup/backup_reader.h"

namespace test {

using BackupContents = std::map<std::string, std::string>;  // by device path

// The three databases that every backup has, with these contents, and what else is given.
BackupContents smallBackup(BackupContents more = {});
orlith::BackupHead headOf(const BackupContents& contents);
// Whole and right, whatever the head says.
std::string backupOf(const orlith::BackupHead& head, const BackupContents& contents);
// The head's property list in place of the right one.
std::string backupWithHead(const platform::Data& head);

orlith::BackupReader::Source sourceOf(const std::string& bytes);
// What came before an error stays in `contents`.
platform::OptionalError readAll(const std::string& bytes, BackupContents& contents);

}  // namespace test
