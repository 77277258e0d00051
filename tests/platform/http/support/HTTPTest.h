#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/URLErrors.h"
#include "tests/platform/http/support/RecordingDelegate.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::testing {

/// A platform of its own with the HTTP service, a recording delegate, and sessions that are invalidated at
/// the end.
class HTTPTest : public NVXTest {
 protected:
  explicit HTTPTest(std::shared_ptr<ManualTime> time = nullptr);
  ~HTTPTest() override;

  HTTPSession& session();
  HTTPSessionRef makeSession(const HTTPSessionConfiguration& configuration);

  static URLRequest request(std::string_view url, std::string_view method = "GET",
                            std::string_view body = {});
  HTTPSessionTaskRef get(std::string_view url) {
    return started(session().dataTaskWithRequest(request(url)));
  }
  HTTPSessionTaskRef post(std::string_view url, std::string_view body) {
    return started(session().dataTaskWithRequest(request(url, "POST", body)));
  }
  static HTTPSessionTaskRef started(HTTPSessionTaskRef task) {
    task->resume();
    return task;
  }
  TaskRecord finished(const HTTPSessionTaskRef& task) { return delegate->finished(task); }

  /// Waits until the condition holds; false when that takes many seconds.
  bool eventually(const std::function<bool()>& condition);

  /// Changed by a test before its first request.
  HTTPSessionConfiguration configuration;
  const std::shared_ptr<ManualTime> time;

 private:
  PlatformScope _scope;

 protected:
  const std::shared_ptr<RecordingDelegate> delegate;

 private:
  std::vector<HTTPSessionRef> _sessions;
};

/// As it is, on a clock that only the test moves.
class ManualTimeHTTPTest : public HTTPTest {
 protected:
  ManualTimeHTTPTest() : HTTPTest(std::make_shared<ManualTime>()) {}
};

}  // namespace nvxcore::testing
