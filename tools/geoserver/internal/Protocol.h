// What a connection speaks.
#pragma once

#include <string_view>

#include "tools/geoserver/Exchange.h"

namespace nvxcore::geoserver {

// Loop thread.
class Protocol {
 public:
  virtual ~Protocol() = default;

  virtual void begin() {}
  virtual void onBytes(std::string_view bytes) = 0;
  // The client sends no more; it may still be reading.
  virtual void onInputEnd() = 0;
  // All that a flush could not hand over is with the socket now.
  virtual void onOutputDrained() = 0;
  // The connection is gone, or about to go, and not by this protocol's doing: whatever is under way ends like
  // that.
  virtual void onGone(Ending ending) = 0;
};

}  // namespace nvxcore::geoserver
