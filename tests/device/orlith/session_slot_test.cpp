#include "device/orlith/session_slot.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace orlith {
namespace {

using std::chrono::milliseconds;

const SessionOwner livingOwner{"first", static_cast<std::uint32_t>(::getpid()),
                               std::chrono::steady_clock::now()};
const SessionOwner secondOwner{"second", static_cast<std::uint32_t>(::getpid()),
                               std::chrono::steady_clock::now()};

void ignoreStop(const std::string&) {}

TEST(SessionSlot, ASecondSessionIsRefusedAtOnceWithTheOwner) {
    SessionSlot slot;
    std::string holder;
    ASSERT_TRUE(slot.acquire(livingOwner, ignoreStop, holder));
    EXPECT_FALSE(slot.acquire(secondOwner, ignoreStop, holder));
    EXPECT_NE(holder.find("first (process"), std::string::npos) << holder;
}

TEST(SessionSlot, ASessionWhoseHostHasLeftIsWaitedFor) {
    SessionSlot slot;
    std::string holder;
    ASSERT_TRUE(slot.acquire(livingOwner, ignoreStop, holder));
    slot.hostLeft();
    std::thread windingUp([&slot] { slot.release(); });
    EXPECT_TRUE(slot.acquire(secondOwner, ignoreStop, holder));
    windingUp.join();
    EXPECT_FALSE(slot.acquire(livingOwner, ignoreStop, holder));
}

TEST(SessionSlot, AHostThatIsNoProcessAnyMoreIsWaitedForButNotForEver) {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    SessionSlot slot;
    std::string holder;
    ASSERT_TRUE(slot.acquire({"gone", static_cast<std::uint32_t>(child), {}}, ignoreStop, holder));
    EXPECT_FALSE(slot.acquire(secondOwner, ignoreStop, holder, milliseconds(1)));
    slot.release();
    EXPECT_TRUE(slot.acquire(secondOwner, ignoreStop, holder, milliseconds(1)));
}

TEST(SessionSlot, AStoppedSlotTakesNobody) {
    SessionSlot slot;
    slot.stop("leaving");
    std::string holder;
    EXPECT_FALSE(slot.acquire(livingOwner, ignoreStop, holder));
    EXPECT_EQ(holder, "leaving");
}

}  // namespace
}  // namespace orlith
