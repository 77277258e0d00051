// Transfers by libcurl, on one pool of connections.
#pragma once

#include <curl/curl.h>

#include <string>
#include <vector>

#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {

struct CurlRequest {
  std::string path = "/";
  std::string body = {};  // a POST when there is one
  bool post = false;      // also without
  std::string acceptEncoding = {};
  std::vector<std::string> headers = {};
  long timeoutMs = 20000;
};

struct CurlReply {
  CURLcode code = CURLE_OK;
  long status = 0;
  long version = 0;  // CURL_HTTP_VERSION_...
  std::string headers;
  std::string body;
};

class CurlClient {
 public:
  explicit CurlClient(const GeoServer& server, long httpVersion = CURL_HTTP_VERSION_2TLS);
  ~CurlClient();
  CurlClient(const CurlClient&) = delete;
  CurlClient& operator=(const CurlClient&) = delete;

  CurlReply run(CurlRequest request) { return runAll({std::move(request)}).front(); }
  // All at once; over HTTP/2 as streams of one connection.
  std::vector<CurlReply> runAll(std::vector<CurlRequest> requests);

 private:
  struct Transfer;

  const std::string _url;
  const std::string _caFile;
  const long _httpVersion;
  CURLM* const _multi;
};

}  // namespace nvxcore::geoserver
