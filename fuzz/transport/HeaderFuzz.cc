// Header fields of a reply, and URLs with references to resolve. A line "name:value" is a field; one with "@"
// at its start is a URL, and each further one is a reference to be resolved against it.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/platform/HTTPHeaders.h"
#include "nvxcore/platform/URL.h"
#include "nvxcore/platform/URLResponse.h"

namespace {

using namespace nvxcore;

bool sameButForCase(const std::string& a, const std::string& b) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

bool isASCII(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

void checkHeaders(const HTTPHeaders& headers) {
  for (const auto& [name, value] : headers) {
    const std::string canonical = HTTPHeaders::canonicalName(name);
    NVX_MUST_HOLD(sameButForCase(canonical, name));
    NVX_MUST_HOLD(HTTPHeaders::canonicalName(canonical) == canonical);
    const auto joined = headers.value(canonical);
    NVX_MUST_HOLD(joined && joined->find(value) != std::string::npos);
    NVX_MUST_HOLD(headers.valueForExactName(name)->size() <= joined->size());
    HTTPHeaders changed = headers;
    changed.set(canonical, "new");
    NVX_MUST_HOLD(changed.value(name) == "new" && changed.size() <= headers.size());
    changed.set(name, std::nullopt);
    NVX_MUST_HOLD(!changed.contains(canonical));
  }
  const URLResponse response = URLResponse::http(URL(), 200, "HTTP/1.1", headers);
  NVX_MUST_HOLD(response.expectedContentLength() >= -1);
  NVX_MUST_HOLD(response.mimeType().find(';') == std::string::npos);
  NVX_MUST_HOLD(std::none_of(response.mimeType().begin(), response.mimeType().end(),
                             [](char c) { return c >= 'A' && c <= 'Z'; }));
}

void checkURL(const URL& url) {
  if (!url) return;
  NVX_MUST_HOLD(URL::withString(url.absoluteString()) == url);
  for (unsigned char c : url.absoluteString()) NVX_MUST_HOLD(c > 0x20 && c != 0x7F);
  NVX_MUST_HOLD(url.path().size() <= url.encodedPath().size());
  NVX_MUST_HOLD(url.encodedPath().find_first_of("?#") == std::string::npos);
  NVX_MUST_HOLD(url.fileSystemPath().find('\0') == std::string::npos);
  const URL folder = url.deletingLastPathComponent();
  NVX_MUST_HOLD(folder && folder.host() == url.host());
  if (url.isFileURL() && !url.fileSystemPath().empty() && url.fileSystemPath().front() == '/') {
    NVX_MUST_HOLD(URL::fileURLWithPath(url.fileSystemPath()).fileSystemPath() == url.fileSystemPath());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::Lines lines(data, size);
  HTTPHeaders headers;
  URL base;
  while (!lines.atEnd() && headers.size() < 64) {
    const std::string_view line = lines.next();
    if (line.starts_with('@')) {
      const std::string_view text = line.substr(1);
      if (!base) {
        base = URL::withString(text);
        checkURL(base);
        continue;
      }
      const URL target = base.resolving(text);
      checkURL(target);
      if (target && !target.scheme().empty() && isASCII(target.absoluteString())) {
        // What is absolute stays as it is.
        const URL again = base.resolving(target.absoluteString());
        NVX_MUST_HOLD(again.absoluteString() == target.resolving(target.absoluteString()).absoluteString());
        NVX_MUST_HOLD(again.host() == target.host() && again.query() == target.query());
      }
    } else {
      const size_t colon = std::min(line.find(':'), line.size());
      headers.add(line.substr(0, colon), colon < line.size() ? line.substr(colon + 1) : std::string_view());
    }
  }
  checkHeaders(headers);
  return 0;
}
