// Bytes that wait to be written to a connection.
#pragma once

#include <sys/uio.h>

#include <deque>
#include <string>
#include <string_view>

namespace nvxcore::geoserver {

// Loop thread.
class OutputQueue {
 public:
  void add(std::string bytes);
  // Without a copy: the bytes stay valid until the queue is empty or cleared.
  void addBorrowed(std::string_view bytes);

  bool empty() const { return _pieces.empty(); }
  // Fills at most `capacity` entries with what comes first; gives their number.
  int fill(iovec* entries, int capacity) const;
  void consume(size_t bytes);
  void clear() {
    _pieces.clear();
    _consumed = 0;
  }

 private:
  struct Piece {
    std::string owned;
    std::string_view borrowed;
    std::string_view bytes() const { return owned.empty() ? borrowed : std::string_view(owned); }
  };

  std::deque<Piece> _pieces;
  size_t _consumed = 0;  // of the first piece
};

}  // namespace nvxcore::geoserver
