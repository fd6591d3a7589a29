#include "watch/NetlinkMonitor.hpp"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Zel::Tools::Nimhost {

namespace {

// A link message is about 1.5 kB; with VF or statistics attributes it can
// grow to several pages, and the kernel sizes its multicast buffers at up to
// 32 kB, so a datagram never exceeds this.
constexpr std::size_t datagramBytes = 32768;

[[noreturn]] void ThrowErrno(int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), what);
}

} // namespace

NetlinkMonitor::NetlinkMonitor(int receiveBufferBytes) : buffer(datagramBytes)
{
    descriptor = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (descriptor < 0) {
        const int error = errno;
        ThrowErrno(error, "Could not open a netlink socket for link notifications");
    }
    if (receiveBufferBytes > 0 &&
        ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes) != 0) {
        const int error = errno;
        ::close(descriptor);
        ThrowErrno(error, "Could not set the netlink socket's receive buffer");
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        ::close(descriptor);
        ThrowErrno(error, "Could not join the kernel's link notification group");
    }
}

NetlinkMonitor::~NetlinkMonitor()
{
    ::close(descriptor);
}

LinkMessages NetlinkMonitor::ReadAll()
{
    LinkMessages all;
    for (;;) {
        sockaddr_nl sender{};
        socklen_t senderSize = sizeof sender;
        // MSG_TRUNC: the datagram's full length, so a cut one is noticed.
        const ssize_t length = ::recvfrom(descriptor, buffer.data(), buffer.size(), MSG_TRUNC,
                                          reinterpret_cast<sockaddr*>(&sender), &senderSize);
        if (length < 0) {
            const int error = errno;
            if (error == EAGAIN || error == EWOULDBLOCK) {
                return all;
            }
            if (error == EINTR) {
                continue;
            }
            if (error == ENOBUFS) {
                // The kernel dropped notifications; what is still queued is
                // read on.
                all.lost = true;
                continue;
            }
            ThrowErrno(error, "Could not read link notifications");
        }
        if (static_cast<std::size_t>(length) > buffer.size()) {
            all.lost = true;
            continue;
        }
        // Only the kernel speaks on the link group.
        if (sender.nl_pid != 0) {
            continue;
        }
        LinkMessages messages = ParseLinkMessages(buffer.data(), static_cast<std::size_t>(length));
        all.lost = all.lost || messages.lost;
        for (auto& event : messages.events) {
            all.events.push_back(std::move(event));
        }
    }
}

} // namespace Zel::Tools::Nimhost
