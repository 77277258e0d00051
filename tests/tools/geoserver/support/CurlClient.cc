#include "support/CurlClient.h"

#include <memory>

namespace nvxcore::geoserver {
namespace {

size_t append(char* bytes, size_t size, size_t count, void* out) {
  static_cast<std::string*>(out)->append(bytes, size * count);
  return size * count;
}

}  // namespace

struct CurlClient::Transfer {
  CURL* handle = curl_easy_init();
  curl_slist* headers = nullptr;
  CurlRequest request;
  CurlReply reply;

  ~Transfer() {
    curl_slist_free_all(headers);
    curl_easy_cleanup(handle);
  }
};

CurlClient::CurlClient(const GeoServer& server, long httpVersion)
    : _url(server.url({})), _caFile(server.caFile()), _httpVersion(httpVersion), _multi(curl_multi_init()) {
  curl_multi_setopt(_multi, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
}

CurlClient::~CurlClient() { curl_multi_cleanup(_multi); }

std::vector<CurlReply> CurlClient::runAll(std::vector<CurlRequest> requests) {
  std::vector<std::unique_ptr<Transfer>> transfers;
  for (CurlRequest& request : requests) {
    Transfer& transfer = *transfers.emplace_back(std::make_unique<Transfer>());
    transfer.request = std::move(request);
    CURL* handle = transfer.handle;
    curl_easy_setopt(handle, CURLOPT_URL, (_url + transfer.request.path).c_str());
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, _httpVersion);
    curl_easy_setopt(handle, CURLOPT_PIPEWAIT, 1L);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, transfer.request.timeoutMs);
    if (!_caFile.empty()) curl_easy_setopt(handle, CURLOPT_CAINFO, _caFile.c_str());
    if (transfer.request.post || !transfer.request.body.empty()) {
      curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                       static_cast<curl_off_t>(transfer.request.body.size()));
      curl_easy_setopt(handle, CURLOPT_POSTFIELDS, transfer.request.body.c_str());
    }
    if (!transfer.request.acceptEncoding.empty()) {
      curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, transfer.request.acceptEncoding.c_str());
    }
    for (const std::string& header : transfer.request.headers) {
      transfer.headers = curl_slist_append(transfer.headers, header.c_str());
    }
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, transfer.headers);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer.reply.body);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer.reply.headers);
    curl_easy_setopt(handle, CURLOPT_PRIVATE, &transfer);
    curl_multi_add_handle(_multi, handle);
  }
  int running = 1;
  while (running > 0) {
    curl_multi_perform(_multi, &running);
    if (running > 0) curl_multi_poll(_multi, nullptr, 0, 1000, nullptr);
  }
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(_multi, &left)) {
    Transfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    transfer->reply.code = message->data.result;
  }
  std::vector<CurlReply> replies;
  for (const auto& transfer : transfers) {
    curl_easy_getinfo(transfer->handle, CURLINFO_RESPONSE_CODE, &transfer->reply.status);
    curl_easy_getinfo(transfer->handle, CURLINFO_HTTP_VERSION, &transfer->reply.version);
    curl_multi_remove_handle(_multi, transfer->handle);
    replies.push_back(std::move(transfer->reply));
  }
  return replies;
}

}  // namespace nvxcore::geoserver
