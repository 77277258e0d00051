#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/URL.h"
#include "nvxcore/platform/linux/TransferSource.h"

namespace nvxcore {

class HTTPTask;

/// What a data URL holds (RFC 2397).
struct DataURLContents {
  std::string mimeType;
  Data bytes;
};
/// Nothing when it is no data URL, or its base64 is none.
std::optional<DataURLContents> readDataURL(const URL& url);

/// Brings a task what a data or file URL names, on the queue for work that waits.
class LocalURLLoader final : public TransferSource, public std::enable_shared_from_this<LocalURLLoader> {
 public:
  LocalURLLoader(std::shared_ptr<HTTPTask> task, URL url);

  void start() override;
  void proceed() override;
  void hostAnswered() override {}
  void stop() override { _isStopped.store(true); }

 private:
  void begin();
  void load();
  void finish(const Error& error);
  void post(void (LocalURLLoader::*step)());

  std::shared_ptr<HTTPTask> _task;
  const URL _url;
  std::atomic<bool> _isStopped{false};
  // Of one step after another.
  std::shared_ptr<InputStream> _stream;
  std::string _refused;  ///< What the task had no room for.
};

}  // namespace nvxcore
