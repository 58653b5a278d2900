#include "link/address.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace orlith::link {
namespace {

namespace fs = std::filesystem;

class Address : public ::testing::Test {
protected:
    Address() {
        std::string name = fs::temp_directory_path() / "orlith-address-XXXXXX";
        root = ::mkdtemp(name.data());
    }
    ~Address() override { fs::remove_all(root); }

    std::string root;
    platform::OptionalError error;
};

TEST_F(Address, TheSocketLiesInTheRunDirectoryOfTheDevice) {
    EXPECT_EQ(socketPathOfDevice("/a/b"), "/a/b/var/run/orlith.sock");
    EXPECT_EQ(socketPathOfDevice("/a/b/"), "/a/b/var/run/orlith.sock");
}

TEST_F(Address, AConnectionReachesTheListenerAlsoFarDown) {
    std::string deep = root;
    for (int i = 0; i < 20; ++i)
        deep += "/a-directory-with-a-long-name";
    const std::string path = deep + "/orlith.sock";
    ASSERT_GT(path.size(), sizeof(sockaddr_un::sun_path));
    fs::create_directories(deep);
    const common::UniqueFd listener = listenOnSocket(path, &error);
    ASSERT_TRUE(listener) << error->description();
    const common::UniqueFd connection = connectToSocket(path, &error);
    ASSERT_TRUE(connection) << error->description();
    const common::UniqueFd accepted(::accept(listener.get(), nullptr, nullptr));
    ASSERT_TRUE(accepted);
    ASSERT_EQ(::send(connection.get(), "x", 1, 0), 1);
    char received = 0;
    EXPECT_EQ(::recv(accepted.get(), &received, 1, 0), 1);
    EXPECT_EQ(received, 'x');
}

TEST_F(Address, OnlyTheUserMayConnect) {
    const common::UniqueFd listener = listenOnSocket(root + "/orlith.sock", &error);
    struct stat status {};
    ASSERT_EQ(::stat((root + "/orlith.sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(Address, NobodyListeningIsToldApartFromOtherFailures) {
    EXPECT_FALSE(connectToSocket(root + "/orlith.sock", &error));
    EXPECT_EQ(error->code, ENOENT);
    listenOnSocket(root + "/orlith.sock", &error);
    EXPECT_FALSE(connectToSocket(root + "/orlith.sock", &error));
    EXPECT_EQ(error->code, ECONNREFUSED);
}

TEST_F(Address, AStaleSocketIsReplacedButAFileIsNot) {
    listenOnSocket(root + "/orlith.sock", &error);
    EXPECT_TRUE(listenOnSocket(root + "/orlith.sock", &error));
    std::ofstream(root + "/file") << "kept";
    EXPECT_FALSE(listenOnSocket(root + "/file", &error));
    EXPECT_EQ(error->code, EEXIST);
    EXPECT_TRUE(fs::is_regular_file(root + "/file"));
}

TEST_F(Address, APathWithoutANameOrWithANulIsRefused) {
    EXPECT_FALSE(listenOnSocket(root + "/", &error));
    EXPECT_EQ(error->code, EINVAL);
    EXPECT_FALSE(listenOnSocket(root + std::string("/a\0b", 4), &error));
    EXPECT_EQ(error->code, EINVAL);
}

}  // namespace
}  // namespace orlith::link
