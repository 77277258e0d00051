#include "nvxcore/platform/linux/RouteTable.h"

#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/platform/Reachability.h"

namespace nvxcore {

namespace {

/// A question to the kernel: a header, the family's own header, and attributes.
template <class Header>
struct Question {
  nlmsghdr message{};
  Header header{};
  std::array<char, 64> attributes{};

  Question(uint16_t type, uint16_t flags) {
    message.nlmsg_len = NLMSG_LENGTH(sizeof(Header));
    message.nlmsg_type = type;
    message.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
  }
  void add(uint16_t type, const void* bytes, size_t length) {
    rtattr attribute{static_cast<uint16_t>(RTA_LENGTH(length)), type};
    char* end = reinterpret_cast<char*>(this) + NLMSG_ALIGN(message.nlmsg_len);
    std::memcpy(end, &attribute, sizeof attribute);
    std::memcpy(end + RTA_LENGTH(0), bytes, length);
    message.nlmsg_len = static_cast<uint32_t>(NLMSG_ALIGN(message.nlmsg_len) + RTA_ALIGN(attribute.rta_len));
  }
};

class Socket {
 public:
  Socket() : _descriptor(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {}
  ~Socket() {
    if (_descriptor >= 0) ::close(_descriptor);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Calls `each` with the messages of the answer, whatever their number. False when there is none.
  bool ask(const nlmsghdr& question, const std::function<void(const nlmsghdr&)>& each) {
    if (::send(_descriptor, &question, question.nlmsg_len, 0) < 0) return false;
    alignas(nlmsghdr) std::array<char, 65536> buffer;
    for (;;) {
      const ssize_t count = ::recv(_descriptor, buffer.data(), buffer.size(), 0);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      auto left = static_cast<size_t>(count);
      for (auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); NLMSG_OK(message, left);
           message = NLMSG_NEXT(message, left)) {
        if (message->nlmsg_type == NLMSG_DONE) return true;
        if (message->nlmsg_type == NLMSG_ERROR) return false;
        each(*message);
        if (!(message->nlmsg_flags & NLM_F_MULTI)) return true;
      }
    }
  }

 private:
  const int _descriptor;
};

/// Calls `each` with the attributes behind a message's own header.
template <class Header>
void forEachAttribute(const nlmsghdr& message, const std::function<void(const rtattr&)>& each) {
  if (message.nlmsg_len < NLMSG_LENGTH(sizeof(Header))) return;
  size_t left = message.nlmsg_len - NLMSG_LENGTH(sizeof(Header));
  auto* attribute = reinterpret_cast<const rtattr*>(static_cast<const char*>(NLMSG_DATA(&message)) +
                                                    NLMSG_ALIGN(sizeof(Header)));
  for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) each(*attribute);
}

uint32_t numberOf(const rtattr& attribute) {
  uint32_t number = 0;
  if (RTA_PAYLOAD(&attribute) >= sizeof number) std::memcpy(&number, RTA_DATA(&attribute), sizeof number);
  return number;
}

bool isCellular(const std::string& interface) {
  for (const char* prefix : {"wwan", "pdp_ip", "rmnet", "ccmni"}) {
    if (interface.starts_with(prefix)) return true;
  }
  if (interface.empty() || interface.find('/') != std::string::npos) return false;
  std::ifstream events("/sys/class/net/" + interface + "/uevent");
  for (std::string line; std::getline(events, line);) {
    if (line == "DEVTYPE=wwan") return true;
  }
  return false;
}

uint32_t flagsOfLink(Socket& socket, uint32_t index) {
  Question<ifinfomsg> question(RTM_GETLINK, 0);
  question.header.ifi_index = static_cast<int>(index);
  uint32_t state = 0;
  std::string name;
  const bool isKnown = socket.ask(question.message, [&](const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWLINK || message.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) return;
    state = static_cast<const ifinfomsg*>(NLMSG_DATA(&message))->ifi_flags;
    forEachAttribute<ifinfomsg>(message, [&](const rtattr& attribute) {
      if (attribute.rta_type == IFLA_IFNAME)
        name.assign(static_cast<const char*>(RTA_DATA(&attribute)),
                    ::strnlen(static_cast<const char*>(RTA_DATA(&attribute)), RTA_PAYLOAD(&attribute)));
    });
  });
  if (!isKnown || !(state & IFF_UP)) return 0;
  uint32_t flags = isCellular(name) ? kReachabilityFlagIsWWAN : 0;
  // A dormant link comes up when there is something to send (RFC 2863).
  if (state & IFF_DORMANT) {
    return flags | kReachabilityFlagReachable | kReachabilityFlagConnectionRequired |
           kReachabilityFlagConnectionOnTraffic;
  }
  return state & IFF_RUNNING ? flags | kReachabilityFlagReachable : 0;
}

/// The interfaces that a route leads to.
std::vector<uint32_t> interfacesOf(const nlmsghdr& message) {
  std::vector<uint32_t> interfaces;
  forEachAttribute<rtmsg>(message, [&](const rtattr& attribute) {
    if (attribute.rta_type == RTA_OIF) interfaces.push_back(numberOf(attribute));
    if (attribute.rta_type != RTA_MULTIPATH) return;
    auto left = static_cast<int>(RTA_PAYLOAD(&attribute));
    auto* hop = static_cast<const rtnexthop*>(RTA_DATA(&attribute));
    while (left >= static_cast<int>(sizeof(rtnexthop)) && RTNH_OK(hop, left)) {
      interfaces.push_back(static_cast<uint32_t>(hop->rtnh_ifindex));
      left -= static_cast<int>(RTNH_ALIGN(hop->rtnh_len));
      hop = RTNH_NEXT(hop);
    }
  });
  return interfaces;
}

bool leadsSomewhere(const nlmsghdr& message) {
  if (message.nlmsg_type != RTM_NEWROUTE || message.nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) return false;
  const auto type = static_cast<const rtmsg*>(NLMSG_DATA(&message))->rtm_type;
  return type == RTN_UNICAST || type == RTN_LOCAL;
}

/// Of the first interface that can be used, and at once where there is such a one.
uint32_t bestFlags(Socket& socket, const std::vector<uint32_t>& interfaces) {
  uint32_t best = 0;
  for (uint32_t index : interfaces) {
    const uint32_t flags = flagsOfLink(socket, index);
    if (flags && !(flags & kReachabilityFlagConnectionRequired)) return flags;
    if (!best) best = flags;
  }
  return best;
}

}  // namespace

uint32_t flagsOfRouteTo(const sockaddr& address) {
  Question<rtmsg> question(RTM_GETROUTE, 0);
  question.header.rtm_family = static_cast<unsigned char>(address.sa_family);
  if (address.sa_family == AF_INET) {
    question.header.rtm_dst_len = 32;
    question.add(RTA_DST, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, sizeof(in_addr));
  } else {
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    question.header.rtm_dst_len = 128;
    question.add(RTA_DST, &v6.sin6_addr, sizeof(in6_addr));
    if (v6.sin6_scope_id) question.add(RTA_OIF, &v6.sin6_scope_id, sizeof v6.sin6_scope_id);
  }
  Socket socket;
  std::vector<uint32_t> interfaces;
  socket.ask(question.message, [&](const nlmsghdr& message) {
    if (leadsSomewhere(message)) interfaces = interfacesOf(message);
  });
  return bestFlags(socket, interfaces);
}

uint32_t flagsOfDefaultRoute(int family) {
  Question<rtmsg> question(RTM_GETROUTE, NLM_F_DUMP);
  question.header.rtm_family = static_cast<unsigned char>(family);
  Socket socket;
  std::vector<uint32_t> interfaces;
  // All routes come, also those of other tables, as of a VPN.
  socket.ask(question.message, [&](const nlmsghdr& message) {
    if (!leadsSomewhere(message) || static_cast<const rtmsg*>(NLMSG_DATA(&message))->rtm_dst_len != 0) return;
    for (uint32_t index : interfacesOf(message)) interfaces.push_back(index);
  });
  return bestFlags(socket, interfaces);
}

}  // namespace nvxcore
