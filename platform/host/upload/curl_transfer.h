// One attempt to send something with libcurl: what FTP and e-mail have in common.
#ifndef PLATFORM_HOST_UPLOAD_CURL_TRANSFER_H
#define PLATFORM_HOST_UPLOAD_CURL_TRANSFER_H

#include <curl/curl.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/host/upload/upload_job.h"
#include "platform/host/upload/upload_source.h"

namespace record {

struct CurlDelete {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  void operator()(curl_mime* mime) const { curl_mime_free(mime); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDelete>;
using CurlList = std::unique_ptr<curl_slist, CurlDelete>;
using CurlMime = std::unique_ptr<curl_mime, CurlDelete>;

void Append(CurlList& list, const std::string& text);

struct TransferLimits {
  int connectTimeoutMs;
  int silenceTimeoutMs;
  std::string caFile;             // "": the system's
  const std::atomic<bool>* stop;  // breaks a transfer off
};

struct TransferResult {
  bool done = false;
  bool forGood = false;  // failed, and would fail again
  Obstacle obstacle = Obstacle::kNone;
  std::string error;
  bool refused = false;  // the server has answered that it will never take it
};

class CurlTransfer {
 public:
  // `scheme` without TLS ("ftp", "smtp"); with `port` 0 the service's usual one.
  CurlTransfer(const UploadJob& job, const TransferLimits& limits, const char* scheme);

  // "" or why nothing can be sent: the password is not to be had.
  const std::string& Error() const { return m_error; }
  // Everything that is set for a server; `path` as it stands behind host and '/'.
  void Reset(const std::string& path);
  CURL* Handle() { return m_handle.get(); }
  std::string Escaped(const std::string& text);

  // The bytes that are sent come from here.
  void ReadFrom(UploadSource& source);
  TransferResult Perform();
  CURLcode LastCode() const { return m_code; }

  static size_t Read(char* buffer, size_t size, size_t count, void* source);
  static int Seek(void* source, curl_off_t offset, int origin);

 private:
  static size_t Header(char* text, size_t size, size_t count, void* self);
  static int Progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
  void SetServer(const std::string& path);
  void SetLimits();
  std::string Reason() const;
  bool IsAnswered() const;
  long Answer() const;  // the code of the last one
  bool IsRefused() const;
  std::string WithoutSecret(std::string text) const;

  const UploadJob& m_job;
  const TransferLimits& m_limits;
  const std::string m_scheme;
  CurlHandle m_handle;
  std::string m_error;
  std::string m_secret;
  CURLcode m_code = CURLE_OK;
  UploadSource* m_source = nullptr;
  std::string m_answer;  // the server's last line
  char m_detail[CURL_ERROR_SIZE] = {};
};

// The attempts themselves.
TransferResult SendByFtp(const UploadJob& job, const TransferLimits& limits);
TransferResult SendByEmail(const UploadJob& job, const TransferLimits& limits);

}  // namespace record

#endif
