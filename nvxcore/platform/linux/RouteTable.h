#pragma once

#include <sys/socket.h>

#include <cstdint>

/// What the kernel's routes and links say, as flags of platform/Reachability.h. Asked over rtnetlink, which
/// takes no privileges. Any thread; a system call each, no waiting.
namespace nvxcore {

/// Of the way to an address (sockaddr_in or sockaddr_in6); 0 when there is none.
uint32_t flagsOfRouteTo(const sockaddr& address);
/// Of the best default route of AF_INET or AF_INET6; 0 when there is none.
uint32_t flagsOfDefaultRoute(int family);

}  // namespace nvxcore
