// Named gates that stalled replies wait at until a test releases them.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace nvxcore::geoserver {

// Loop thread. A gate once released stays open, so that a reply that gets there later goes on at once. The
// gate without a name opens only with all others.
class Gates {
 public:
  using Ticket = uint64_t;  // 0 names no wait

  bool isOpen(const std::string& gate) const { return _open.contains(gate); }
  // Calls `resume` once, when the gate is released, unless the wait is left before.
  Ticket wait(const std::string& gate, std::function<void()> resume);
  void leave(Ticket ticket) { _waiting.erase(ticket); }
  void release(const std::string& gate);
  // Lets all that wait now go on; the gates stay as they were.
  void releaseAll();
  // A gate that was released holds replies again.
  void closeAgain(const std::string& gate) { _open.erase(gate); }

 private:
  struct Wait {
    std::string gate;
    std::function<void()> resume;
  };

  void resume(const std::vector<Ticket>& tickets);

  Ticket _lastTicket = 0;
  std::unordered_set<std::string> _open;
  std::unordered_map<Ticket, Wait> _waiting;
};

}  // namespace nvxcore::geoserver
