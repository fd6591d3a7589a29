#pragma once

#include "watch/LinkEvents.hpp"

#include <cstdint>
#include <vector>

namespace Zel::Tools::Nimhost {

// An rtnetlink socket joined to the kernel's link group: every interface that
// is created, changes its flags, carrier or operational state, or goes away
// is announced on it. Single-threaded; the socket is non-blocking and closed
// with the object. Construction throws std::system_error when the socket
// cannot be opened or bound.
class NetlinkMonitor {
public:
    // receiveBufferBytes: SO_RCVBUF for the socket; 0 keeps the system's
    // default. The kernel drops notifications that do not fit and reports
    // that with ENOBUFS.
    explicit NetlinkMonitor(int receiveBufferBytes = 0);
    ~NetlinkMonitor();
    NetlinkMonitor(const NetlinkMonitor&) = delete;
    NetlinkMonitor& operator=(const NetlinkMonitor&) = delete;

    // For poll(); readable when notifications wait.
    int Descriptor() const { return descriptor; }

    // Everything waiting on the socket, without blocking. `lost` is set when
    // the kernel dropped notifications (ENOBUFS) or a datagram could not be
    // read whole: the caller must then re-read every interface. Throws
    // std::system_error for any other receive failure.
    LinkMessages ReadAll();

private:
    int descriptor = -1;
    std::vector<std::uint8_t> buffer;
};

} // namespace Zel::Tools::Nimhost
