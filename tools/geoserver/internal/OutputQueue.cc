#include "tools/geoserver/internal/OutputQueue.h"

#include <utility>

namespace nvxcore::geoserver {

void OutputQueue::add(std::string bytes) {
  if (!bytes.empty()) _pieces.push_back({std::move(bytes), {}});
}

void OutputQueue::addBorrowed(std::string_view bytes) {
  if (!bytes.empty()) _pieces.push_back({{}, bytes});
}

int OutputQueue::fill(iovec* entries, int capacity) const {
  int count = 0;
  size_t skip = _consumed;
  for (const Piece& piece : _pieces) {
    if (count == capacity) break;
    const std::string_view bytes = piece.bytes().substr(skip);
    entries[count++] = {const_cast<char*>(bytes.data()), bytes.size()};
    skip = 0;
  }
  return count;
}

void OutputQueue::consume(size_t bytes) {
  _consumed += bytes;
  while (!_pieces.empty() && _consumed >= _pieces.front().bytes().size()) {
    _consumed -= _pieces.front().bytes().size();
    _pieces.pop_front();
  }
}

}  // namespace nvxcore::geoserver
