#include "tools/geoserver/internal/Gates.h"

#include <algorithm>
#include <utility>

namespace nvxcore::geoserver {

Gates::Ticket Gates::wait(const std::string& gate, std::function<void()> resume) {
  const Ticket ticket = ++_lastTicket;
  _waiting.emplace(ticket, Wait{gate, std::move(resume)});
  return ticket;
}

void Gates::release(const std::string& gate) {
  if (!gate.empty()) _open.insert(gate);
  std::vector<Ticket> tickets;
  for (const auto& [ticket, wait] : _waiting) {
    if (!gate.empty() && wait.gate == gate) tickets.push_back(ticket);
  }
  resume(tickets);
}

void Gates::releaseAll() {
  std::vector<Ticket> tickets;
  for (const auto& entry : _waiting) tickets.push_back(entry.first);
  resume(tickets);
}

void Gates::resume(const std::vector<Ticket>& tickets) {
  std::vector<Ticket> inOrder = tickets;
  std::sort(inOrder.begin(), inOrder.end());
  for (const Ticket ticket : inOrder) {
    // One that resumes can take others away with it.
    if (auto node = _waiting.extract(ticket)) node.mapped().resume();
  }
}

}  // namespace nvxcore::geoserver
