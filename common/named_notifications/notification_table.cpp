#include "common/named_notifications/notification_table.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>

#include "common/hash.h"
#include "common/random_id.h"
#include "common/unique_fd.h"

namespace common {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::uint64_t magic = 0x3130464954484c4f;  // the file's first bytes: "OLHTIF01"
constexpr std::size_t slotCount = 1023;
// Several processes may find a damaged file at once; each round one of them replaces it.
constexpr int attemptsToOpen = 16;

// What a name is known by in the table; 0 marks a free slot.
std::uint64_t keyOf(std::string_view name) {
    const std::uint64_t hash = xxh3Short(name);
    return hash == 0 ? 1 : hash;
}

std::string temporaryName(const std::string& path) {
    return path + "." + std::to_string(randomPositiveId());
}

timespec toTimespec(std::chrono::nanoseconds span) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(span);
    timespec result{};
    result.tv_sec = seconds.count();
    result.tv_nsec = (span - seconds).count();
    return result;
}

}  // namespace

// One cache line each, so that names do not slow each other down.
struct alignas(64) NotificationTable::Slot {
    std::atomic<std::uint64_t> key;  // claimed once, by compare-and-swap
    std::atomic<std::uint64_t> state;
    std::atomic<std::uint32_t> posts;  // a futex
};

struct NotificationTable::Table {
    // Written before the file gets its name, and never again.
    struct alignas(64) Header {
        std::uint64_t magic;
        std::uint64_t slotCount;
    } header;
    std::array<Slot, slotCount> slots;

    // These give 0 or an errno value.
    static int openFile(const std::string& path, UniqueFd& file);
    static int makeMissing(const std::string& path);
    static int createFile(const std::string& path);
    static int replaceDamaged(int damaged, const std::string& path);

    static bool isWhole(int fd);
    static bool isAt(int fd, const std::string& path);
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

// An empty table under the path, unless something is there (EEXIST).
int NotificationTable::Table::createFile(const std::string& path) {
    const UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file)
        return errno;
    const Header header{magic, slotCount};
    if (::ftruncate(file.get(), sizeof(Table)) == 0 &&
        ::pwrite(file.get(), &header, sizeof header, 0) == sizeof header)
        return 0;
    const int failed = errno;
    ::unlink(path.c_str());
    return failed;
}

bool NotificationTable::Table::isWhole(int fd) {
    struct stat status {};
    Header header{};
    return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_size == sizeof(Table) &&
           ::pread(fd, &header, sizeof header, 0) == sizeof header && header.magic == magic &&
           header.slotCount == slotCount;
}

bool NotificationTable::Table::isAt(int fd, const std::string& path) {
    struct stat open {
    }, named{};
    return ::fstat(fd, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Puts a fresh table in the place of a damaged one. Whoever else found the damage waits for the
// lock on the damaged file, and then sees that it is no longer in place: a table that others use
// already is never replaced. The lock goes with the process that holds it.
int NotificationTable::Table::replaceDamaged(int damaged, const std::string& path) {
    if (::flock(damaged, LOCK_EX) != 0)
        return errno;
    if (!isAt(damaged, path))
        return 0;
    const std::string fresh = temporaryName(path);
    if (const int failed = createFile(fresh))
        return failed;
    if (::rename(fresh.c_str(), path.c_str()) == 0)
        return 0;
    const int failed = errno;
    ::unlink(fresh.c_str());
    return failed;
}

// The file appears whole: it is linked to its name when it is finished.
int NotificationTable::Table::makeMissing(const std::string& path) {
    const std::string fresh = temporaryName(path);
    if (const int failed = createFile(fresh))
        return failed;
    const int failed = ::link(fresh.c_str(), path.c_str()) == 0 || errno == EEXIST ? 0 : errno;
    ::unlink(fresh.c_str());
    return failed;
}

int NotificationTable::Table::openFile(const std::string& path, UniqueFd& file) {
    for (int attempt = 0; attempt < attemptsToOpen; ++attempt) {
        file.reset(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        int failed = 0;
        if (file) {
            // Every page gets its place on the disk now: one that finds none while it is written to
            // would end the process.
            if (isWhole(file.get()))
                return ::posix_fallocate(file.get(), 0, sizeof(Table));
            failed = replaceDamaged(file.get(), path);
        } else {
            failed = errno == ENOENT ? makeMissing(path) : errno;
        }
        if (failed)
            return failed;
    }
    return EAGAIN;
}

std::unique_ptr<NotificationTable> NotificationTable::open(const std::string& realPath,
                                                           OptionalError* error) {
    UniqueFd file;
    int failed = Table::openFile(realPath, file);
    void* memory = MAP_FAILED;
    if (!failed) {
        memory = ::mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
        failed = memory == MAP_FAILED ? errno : 0;
    }
    if (error)
        *error = failed ? OptionalError(Error::posix(failed)) : std::nullopt;
    if (failed)
        return nullptr;
    return std::unique_ptr<NotificationTable>(new NotificationTable(*static_cast<Table*>(memory)));
}

NotificationTable::~NotificationTable() {
    ::munmap(&_table, sizeof(Table));
}

NotificationTable::Slot& NotificationTable::slot(Token token) const {
    return _table.slots.at(token);
}

// Open addressing: a name lies in the first free slot from the place that its key gives, and slots
// are never freed, so a free slot ends a search.
std::optional<NotificationTable::Token> NotificationTable::registerName(std::string_view name) {
    const std::uint64_t key = keyOf(name);
    for (std::size_t step = 0; step < slotCount; ++step) {
        const auto token = static_cast<Token>((key + step) % slotCount);
        std::uint64_t found = 0;
        if (slot(token).key.compare_exchange_strong(found, key) || found == key)
            return token;
    }
    return std::nullopt;
}

std::optional<NotificationTable::Token> NotificationTable::find(std::string_view name) const {
    const std::uint64_t key = keyOf(name);
    for (std::size_t step = 0; step < slotCount; ++step) {
        const auto token = static_cast<Token>((key + step) % slotCount);
        const std::uint64_t found = slot(token).key;
        if (found == key)
            return token;
        if (found == 0)
            break;
    }
    return std::nullopt;
}

bool NotificationTable::isToken(std::uint64_t number) const {
    return number < slotCount && slot(static_cast<Token>(number)).key != 0;
}

void NotificationTable::setState(Token token, std::uint64_t state) {
    slot(token).state = state;
}

std::uint64_t NotificationTable::state(Token token) const {
    return slot(token).state;
}

void NotificationTable::post(Token token) {
    std::atomic<std::uint32_t>& posts = slot(token).posts;
    ++posts;
    ::syscall(SYS_futex, &posts, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

std::uint32_t NotificationTable::counter(Token token) const {
    return slot(token).posts;
}

std::uint32_t NotificationTable::wait(Token token, std::uint32_t since,
                                      std::chrono::nanoseconds timeout) const {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + timeout;
    std::atomic<std::uint32_t>& posts = slot(token).posts;
    for (;;) {
        const std::uint32_t now = posts;
        const auto left = deadline - Clock::now();
        if (now != since || left <= left.zero())
            return now;
        const timespec span = toTimespec(left);
        ::syscall(SYS_futex, &posts, FUTEX_WAIT, since, &span, nullptr, 0);
    }
}

}  // namespace common
