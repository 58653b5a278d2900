#include "tests/device/backup/backup_bytes.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "common/little_endian.h"
#include "common/unique_fd.h"
#include "device/orlith/backup/backup_writer.h"

namespace test {
namespace {

std::string textOf(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

common::UniqueFd fileOf(const std::string& contents) {
    common::UniqueFd file(::memfd_create("backup", MFD_CLOEXEC));
    if (::write(file.get(), contents.data(), contents.size()) !=
            static_cast<ssize_t>(contents.size()) ||
        ::lseek(file.get(), 0, SEEK_SET) != 0)
        throw std::runtime_error("no file of memory");
    return file;
}

}  // namespace

BackupContents smallBackup(BackupContents more) {
    for (const std::string_view database : orlith::BackupDatabases::All)
        more.emplace(database, "database " + std::string(database));
    return more;
}

orlith::BackupHead headOf(const BackupContents& contents) {
    orlith::BackupHead head{"device-1", "library-1", 1, 1'700'000'000, {}};
    for (const auto& [path, bytes] : contents)
        head.files.push_back({path, bytes.size()});
    return head;
}

std::string backupOf(const orlith::BackupHead& head, const BackupContents& contents) {
    std::string backup;
    orlith::BackupWriter writer([&](std::span<const std::uint8_t> bytes) {
        backup += textOf(bytes);
        return true;
    });
    platform::OptionalError error = writer.begin(head);
    for (const orlith::BackupFile& file : head.files) {
        const auto found = contents.find(file.path);
        const common::UniqueFd opened = fileOf(found == contents.end() ? "" : found->second);
        if (!error)
            error = writer.file(file, opened.get());
    }
    if (!error)
        error = writer.end();
    if (error)
        throw std::runtime_error(error->text());
    return backup;
}

std::string backupWithHead(const platform::Data& head) {
    platform::Data bytes(orlith::BackupMagic.begin(), orlith::BackupMagic.end());
    common::appendLittleEndian(bytes, orlith::BackupVersion, 4);
    common::appendLittleEndian(bytes, head.size(), 4);
    return textOf(bytes) + textOf(head);
}

orlith::BackupReader::Source sourceOf(const std::string& bytes) {
    // As a link gives them: some at a time.
    constexpr std::size_t Most = 1000;
    const auto at = std::make_shared<std::size_t>(0);
    return [&bytes, at](std::span<std::uint8_t> wanted, platform::OptionalError&) {
        const std::size_t count = std::min({wanted.size(), bytes.size() - *at, Most});
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(*at), count, wanted.begin());
        *at += count;
        return count;
    };
}

platform::OptionalError readAll(const std::string& bytes, BackupContents& contents) {
    orlith::BackupReader reader(sourceOf(bytes));
    platform::OptionalError error;
    const auto head = reader.readHead(error);
    if (!head)
        return error;
    for (const orlith::BackupFile& file : head->files) {
        std::string& content = contents[file.path];
        error = reader.readFile(file, [&](std::span<const std::uint8_t> piece) {
            content += textOf(piece);
            return platform::OptionalError();
        });
        if (error)
            return error;
    }
    return reader.readEnd();
}

}  // namespace test
