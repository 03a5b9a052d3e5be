// The companion library as it is built, loaded through the helper.
#include <gtest/gtest.h>

#include <cstring>
#include <future>

#include "collection/VXHelper.h"

namespace {

TEST(VXHelper, ForwardsToTheLibraryOnceItIsLoaded) {
    // Before the load nothing is there, and nothing is called.
    EXPECT_EQ(VXHelper::isThisAddressString("127.0.0.1"), 0);
    EXPECT_EQ(VXHelper::localHostNameString(), nullptr);
    char time[32] = "x";
    VXHelper::getVelmarTime(time);
    EXPECT_STREQ(time, "");

    ASSERT_TRUE(VXHelper::isVXLibraryRegistered(""));
    EXPECT_TRUE(VXHelper::isVXLibraryRegistered("another name"));  // the outcome is remembered
    EXPECT_NE(VXHelper::isThisAddressString("127.0.0.1"), 0);
    EXPECT_EQ(VXHelper::isThisAddressString("host.example"), 0);
    EXPECT_EQ(VXHelper::isThisFullyQualifiedName("/etc/hosts"), 1);
    EXPECT_EQ(VXHelper::isThisFullyQualifiedName("etc/hosts"), 0);
    EXPECT_NE(VXHelper::localHostNameString(), nullptr);
    VXHelper::getVelmarTime(time);
    EXPECT_EQ(std::strlen(time), 16u);

    std::promise<int> ran;
    VXHelper::createThread([](void* p) { static_cast<std::promise<int>*>(p)->set_value(7); }, &ran);
    EXPECT_EQ(ran.get_future().get(), 7);
}

}  // namespace
