#include "platform/LocalAddress.h"

#include "platform/FileDescriptor.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace velmo { namespace {

TEST(LocalAddress, IsOneThatOthersMayReachThisMachineBy) {
    const auto text = localIPv4Address();
    if (!text) GTEST_SKIP() << "this machine has no network";
    sockaddr_in address{};
    address.sin_family = AF_INET;
    ASSERT_EQ(inet_pton(AF_INET, text->c_str(), &address.sin_addr), 1) << *text;
    EXPECT_NE(ntohl(address.sin_addr.s_addr) >> 24, 127U);
    // Only addresses of the machine itself can be bound to.
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << *text;
}

}}
