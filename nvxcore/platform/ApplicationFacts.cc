#include "nvxcore/platform/ApplicationFacts.h"

#include <utility>

namespace nvxcore {

namespace {

class DescribedApplication final : public ApplicationFacts {
 public:
  explicit DescribedApplication(ApplicationDescription description) : _description(std::move(description)) {}

  std::string bundleIdentifier() const override { return _description.bundleIdentifier; }
  std::string bundlePath() const override { return _description.bundlePath; }
  std::string processName() const override { return _description.processName; }
  Dictionary infoDictionary() const override { return _description.infoDictionary; }

 private:
  const ApplicationDescription _description;
};

}  // namespace

std::shared_ptr<ApplicationFacts> applicationFactsWithDescription(ApplicationDescription description) {
  return std::make_shared<DescribedApplication>(std::move(description));
}

}  // namespace nvxcore
