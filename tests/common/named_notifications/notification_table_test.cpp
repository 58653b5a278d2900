#include "common/named_notifications/notification_table.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "common/unique_fd.h"
#include "tests/support/temporary_directory.h"

namespace {

using common::NotificationTable;
using common::UniqueFd;
using namespace std::chrono_literals;

// A child process, killed when released unless it was waited for.
class Peer {
public:
    explicit Peer(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), PEER);
        std::vector<char*> pointers;
        for (std::string& argument : arguments)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        _output.reset(ends[0]);
        const UniqueFd input(ends[1]);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
        EXPECT_EQ(::posix_spawn(&_pid, PEER, &actions, nullptr, pointers.data(), environ), 0);
        ::posix_spawn_file_actions_destroy(&actions);
    }
    Peer(Peer&& other) noexcept
        : _pid(std::exchange(other._pid, 0)), _output(std::move(other._output)) {}
    ~Peer() {
        if (_pid) {
            send(SIGKILL);
            exitCode();
        }
    }

    void send(int signal) { ::kill(_pid, signal); }
    // Whether it writes the line before it ends.
    bool writes(const std::string& line) {
        std::string text;
        char byte;
        while (::read(_output.get(), &byte, 1) == 1 && byte != '\n')
            text += byte;
        return text == line;
    }
    // -1 when a signal ended it.
    int exitCode() {
        int status = 0;
        ::waitpid(std::exchange(_pid, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t _pid = 0;
    UniqueFd _output;
};

class NotificationTableTest : public ::testing::Test {
protected:
    std::unique_ptr<NotificationTable> open() {
        platform::OptionalError error;
        auto table = NotificationTable::open(path, &error);
        EXPECT_TRUE(table) << (error ? error->description() : "");
        return table;
    }
    std::vector<Peer> watchers(int count, const std::string& last) {
        std::vector<Peer> peers;
        for (int i = 0; i < count; ++i) {
            peers.push_back(Peer({"watch", path, "name", last}));
            EXPECT_TRUE(peers.back().writes("ready"));
        }
        return peers;
    }

    test::TemporaryDirectory directory;
    const std::string path = directory / "notifications";
};

TEST_F(NotificationTableTest, ANameHasOneTokenInEveryTable) {
    const auto one = open(), two = open();
    const auto token = one->registerName("name");
    ASSERT_TRUE(token);
    EXPECT_EQ(two->registerName("name"), token);
    EXPECT_EQ(two->find("name"), token);
    EXPECT_NE(two->registerName("other"), token);
    EXPECT_FALSE(one->find("unknown"));
}

TEST_F(NotificationTableTest, StateAndPostsAreSharedAndKept) {
    const auto one = open();
    const auto token = *one->registerName("name");
    EXPECT_EQ(one->state(token), 0u);
    {
        const auto two = open();
        two->setState(token, UINT64_MAX);
        two->post(token);
        two->post(token);
    }
    EXPECT_EQ(one->state(token), UINT64_MAX);
    EXPECT_EQ(one->counter(token), 2u);
}

TEST_F(NotificationTableTest, AWaitEndsWithAPostOrItsTime) {
    const auto table = open();
    const auto token = *table->registerName("name");
    EXPECT_EQ(table->wait(token, 0, 1ms), 0u);
    EXPECT_EQ(table->wait(token, 7, 1h), 0u);
    std::thread poster([&] { open()->post(token); });
    EXPECT_EQ(table->wait(token, 0, 1min), 1u);
    poster.join();
}

TEST_F(NotificationTableTest, AFullTableRefusesNewNamesAndKeepsTheOld) {
    const auto table = open();
    std::set<NotificationTable::Token> tokens;
    for (int i = 0; i < 1023; ++i)
        tokens.insert(table->registerName("name" + std::to_string(i)).value());
    EXPECT_EQ(tokens.size(), 1023u);
    EXPECT_FALSE(table->registerName("one more"));
    EXPECT_FALSE(table->find("one more"));
    EXPECT_TRUE(table->registerName("name1022"));
}

TEST_F(NotificationTableTest, ThreadsThatRegisterTheSameNamesAgree) {
    std::vector<std::thread> threads;
    std::vector<std::vector<NotificationTable::Token>> tokens(4);
    for (auto& mine : tokens)
        threads.emplace_back([&] {
            const auto table = NotificationTable::open(path, nullptr);
            for (int i = 0; i < 200; ++i)
                mine.push_back(table->registerName("name" + std::to_string(i)).value());
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& mine : tokens)
        EXPECT_EQ(mine, tokens.front());
}

TEST_F(NotificationTableTest, ADamagedOrForeignFileIsReplaced) {
    open()->registerName("name");
    const auto size = std::filesystem::file_size(path);
    const auto overwrite = [&](std::string_view bytes) {
        std::fstream(path, std::ios::in | std::ios::out | std::ios::binary) << bytes;
    };
    for (const auto& damage : std::vector<std::function<void()>>{
             [&] { std::filesystem::resize_file(path, 0); },
             [&] { std::filesystem::resize_file(path, size - 1); },
             [&] { std::filesystem::resize_file(path, size + 1); },
             [&] { overwrite("something else"); }, [&] { overwrite(std::string(16, '\0')); }}) {
        damage();
        const auto table = open();
        ASSERT_TRUE(table);
        EXPECT_FALSE(table->find("name"));
        const auto token = table->registerName("name");
        EXPECT_EQ(open()->find("name"), token);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
}

TEST_F(NotificationTableTest, EveryPageHasItsPlaceOnTheDisk) {
    open();
    const auto bytesOnDisk = [&] {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return static_cast<std::uintmax_t>(status.st_blocks) * 512;
    };
    const auto size = std::filesystem::file_size(path);
    EXPECT_GE(bytesOnDisk(), size);
    // As a copy may be that leaves out what is zero.
    std::filesystem::resize_file(path, 64);
    std::filesystem::resize_file(path, size);
    ASSERT_LT(bytesOnDisk(), size);
    EXPECT_TRUE(open());
    EXPECT_GE(bytesOnDisk(), size);
}

TEST_F(NotificationTableTest, ThoseWhoFindTheDamageTogetherShareTheNewFile) {
    for (int round = 0; round < 50; ++round) {
        std::ofstream(path) << "damaged";
        std::vector<std::unique_ptr<NotificationTable>> tables(4);
        std::vector<std::thread> threads;
        for (auto& table : tables)
            threads.emplace_back([&] { table = NotificationTable::open(path, nullptr); });
        for (std::thread& thread : threads)
            thread.join();
        const auto token = *tables[0]->registerName("name");
        tables[0]->setState(token, 5);
        for (const auto& table : tables)
            EXPECT_EQ(table->state(token), 5u);
    }
}

TEST_F(NotificationTableTest, WhatCannotBeATableIsAnError) {
    platform::OptionalError error;
    EXPECT_FALSE(NotificationTable::open(directory / "none/notifications", &error));
    EXPECT_EQ(error->code, ENOENT);
    EXPECT_FALSE(NotificationTable::open(directory.path(), &error));
    std::filesystem::create_symlink("elsewhere", path);
    EXPECT_FALSE(NotificationTable::open(path, &error));
    EXPECT_EQ(error->code, ELOOP);
    EXPECT_FALSE(NotificationTable::open(path, nullptr));
}

TEST_F(NotificationTableTest, EveryLiveSubscriberSeesTheLastState) {
    auto peers = watchers(3, "20000");
    Peer poster({"post", path, "name", "1", "20000"});
    EXPECT_EQ(poster.exitCode(), 0);
    for (Peer& peer : peers) {
        EXPECT_TRUE(peer.writes("seen"));
        EXPECT_EQ(peer.exitCode(), 0);
    }
}

TEST_F(NotificationTableTest, ASubscriberKilledAnywhereHoldsNobodyUp) {
    const unsigned seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    std::mt19937 random(seed);
    const auto table = open();
    const auto token = *table->registerName("name");
    auto steady = watchers(1, "2000");
    std::optional<Peer> victim;
    for (std::uint64_t state = 1; state <= 2000; ++state) {
        if (random() % 100 == 0) {
            if (victim)
                victim->send(SIGKILL);
            victim.emplace(std::vector<std::string>{"watch", path, "name", "2000"});
        }
        table->setState(token, state);
        table->post(token);
    }
    EXPECT_TRUE(steady[0].writes("seen"));
    EXPECT_EQ(steady[0].exitCode(), 0);
}

TEST_F(NotificationTableTest, AStoppedSubscriberDelaysNoPoster) {
    auto stopped = watchers(1, "1000");
    stopped[0].send(SIGSTOP);
    const auto table = open();
    const auto token = *table->registerName("name");
    auto longest = 0ns;
    for (std::uint64_t state = 1; state <= 1000; ++state) {
        const auto start = std::chrono::steady_clock::now();
        table->setState(token, state);
        table->post(token);
        longest =
            std::max<std::chrono::nanoseconds>(longest, std::chrono::steady_clock::now() - start);
    }
    // Generous for a busy machine: a poster that waited would wait for ever.
    EXPECT_LT(longest, 1s);
    stopped[0].send(SIGCONT);
    EXPECT_TRUE(stopped[0].writes("seen"));
}

TEST_F(NotificationTableTest, APosterKilledAnywhereLeavesAWorkingTable) {
    const auto table = open();
    const auto token = *table->registerName("name");
    for (int round = 0; round < 20; ++round) {
        const std::uint32_t before = table->counter(token);
        Peer poster({"post", path, "name", "1", "1000000000"});
        ASSERT_NE(table->wait(token, before, 1min), before);
        poster.send(SIGKILL);
        EXPECT_EQ(poster.exitCode(), -1);
    }
    auto peers = watchers(1, "18446744073709551615");
    table->setState(token, UINT64_MAX);
    table->post(token);
    EXPECT_TRUE(peers[0].writes("seen"));
}

}  // namespace
