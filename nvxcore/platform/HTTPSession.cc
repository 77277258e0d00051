#include "nvxcore/platform/HTTPSession.h"

#include <utility>

namespace nvxcore {

HTTPSessionConfigurationRef HTTPSessionConfiguration::ephemeral() {
  return std::make_shared<HTTPSessionConfiguration>();
}

HTTPSessionConfigurationRef HTTPSessionConfiguration::background(std::string identifier) {
  auto configuration = std::make_shared<HTTPSessionConfiguration>();
  configuration->identifier = std::move(identifier);
  return configuration;
}

}  // namespace nvxcore
