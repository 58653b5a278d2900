// The form of a backup file: a head that names what follows, the files one after the other each
// with its hash, and an end with the hash of everything. docs/formats.md describes it to the byte.
//
// Any thread; no state. Everything that is read is untrusted: a backup may come from anywhere.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors.h"
#include "platform/values.h"

namespace orlith {

inline constexpr std::string_view BackupMagic = "ORLITHBK";
inline constexpr std::string_view BackupEndMark = "BACKEND.";
inline constexpr std::uint32_t BackupVersion = 1;
// The magic, the version and the length of the head; four bytes each for the numbers.
inline constexpr std::size_t BackupPreambleSize = 16;
// The mark, the number of files, and the hash of all bytes up to there.
inline constexpr std::size_t BackupEndSize = 32;
inline constexpr std::uint32_t MaximumBackupHeadSize = 32 << 20;  // bytes
inline constexpr std::size_t MaximumBackupFiles = 200'000;
inline constexpr std::uint64_t MaximumBackupFileSize = std::uint64_t{64} << 30;  // bytes

// The databases that every backup holds, as absolute device paths, in the order in which they are
// copied: what is in a later one, an earlier one may not know of yet, but never the other way
// round.
struct BackupDatabases {
    static constexpr char Downloads[] = "/var/mobile/Media/Downloads/downloads.sqlitedb";
    static constexpr char Accounts[] =
        "/var/mobile/Media/Tessel_Control/Tessel/AccountCache.sqlitedb";
    static constexpr char Library[] =
        "/var/mobile/Media/Tessel_Control/Tessel/MediaLibrary.sqlitedb";
    static constexpr std::array<std::string_view, 3> All{Downloads, Accounts, Library};
};

struct BackupFile {
    std::string path;        // an absolute device path
    std::uint64_t size = 0;  // bytes
};

struct BackupHead {
    std::string deviceID;
    std::string libraryUID;
    std::int64_t schemaVersion = 0;  // of the library database
    double created = 0;              // seconds since 1970
    std::vector<BackupFile> files;

    std::uint64_t totalSize() const;  // bytes of all files
};

bool isBackupDatabase(std::string_view path);

// Why a head cannot be believed, in plain words: not all databases, a file that is in no place for
// a backup's files, the same place twice, too many or too large files.
platform::OptionalError problemOf(const BackupHead& head);

// A property list. Absent with a reason when there are too many files for one.
std::optional<platform::Data> encodeHead(const BackupHead& head, platform::OptionalError& error);
// Absent with a reason when the bytes are no head or problemOf finds one.
std::optional<BackupHead> decodeHead(std::span<const std::uint8_t> bytes,
                                     platform::OptionalError& error);

// "This is no backup that can be read: <what>".
platform::Error damagedBackup(std::string_view what);

}  // namespace orlith
