#include "platform/host/upload/curl_transfer.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <mutex>

#include "platform/host/upload/upload_secret.h"
#include "record/platform.h"

namespace record {
namespace {

constexpr size_t kLongestAnswer = 200;

CurlHandle NewHandle() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  return CurlHandle(curl_easy_init());
}

Obstacle ObstacleOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
      return Obstacle::kServer;
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
      return Obstacle::kSecurity;
    case CURLE_LOGIN_DENIED:
      return Obstacle::kLogin;
    default:
      return Obstacle::kNone;
  }
}

}  // namespace

void Append(CurlList& list, const std::string& text) {
  curl_slist* longer = curl_slist_append(list.get(), text.c_str());
  if (longer == nullptr) return;
  static_cast<void>(list.release());
  list.reset(longer);
}

CurlTransfer::CurlTransfer(const UploadJob& job, const TransferLimits& limits, const char* scheme)
    : m_job(job),
      m_limits(limits),
      m_scheme((job.flags & UPLOAD_TLS_IMPLICIT) != 0 ? std::string(scheme) + "s" : scheme),
      m_handle(NewHandle()) {
  m_error = m_handle != nullptr ? ReadSecret(job.secret, &m_secret) : "no memory";
}

std::string CurlTransfer::Escaped(const std::string& text) {
  char* escaped = curl_easy_escape(Handle(), text.c_str(), static_cast<int>(text.size()));
  const std::string result = escaped != nullptr ? escaped : "";
  curl_free(escaped);
  return result;
}

void CurlTransfer::Reset(const std::string& path) {
  curl_easy_reset(Handle());
  m_source = nullptr;
  SetServer(path);
  SetLimits();
}

void CurlTransfer::SetServer(const std::string& path) {
  CURL* handle = Handle();
  const bool isAddress6 = m_job.host.find(':') != std::string::npos && m_job.host[0] != '[';
  const std::string host = isAddress6 ? "[" + m_job.host + "]" : m_job.host;
  curl_easy_setopt(handle, CURLOPT_URL, (m_scheme + "://" + host + "/" + path).c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, m_scheme.c_str());
  curl_easy_setopt(handle, CURLOPT_PROXY, "");  // the server that was named, nobody in between
  if (m_job.port > 0) curl_easy_setopt(handle, CURLOPT_PORT, static_cast<long>(m_job.port));
  if (!m_job.user.empty()) {
    curl_easy_setopt(handle, CURLOPT_USERNAME, m_job.user.c_str());
    curl_easy_setopt(handle, CURLOPT_PASSWORD, m_secret.c_str());
  }
  // With TLS from the first byte, too: the data of FTP have a channel of their own.
  if ((m_job.flags & (UPLOAD_TLS | UPLOAD_TLS_IMPLICIT)) != 0)
    curl_easy_setopt(handle, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
  if ((m_job.flags & UPLOAD_UNVERIFIED) != 0) {
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  }
  if (!m_limits.caFile.empty()) curl_easy_setopt(handle, CURLOPT_CAINFO, m_limits.caFile.c_str());
}

void CurlTransfer::SetLimits() {
  CURL* handle = Handle();
  const long silence = (m_limits.silenceTimeoutMs + 999) / 1000;
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_limits.connectTimeoutMs));
  curl_easy_setopt(handle, CURLOPT_SERVER_RESPONSE_TIMEOUT, silence);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, silence);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, m_detail);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, Header);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, Progress);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, this);
}

void CurlTransfer::ReadFrom(UploadSource& source) {
  m_source = &source;
  curl_easy_setopt(Handle(), CURLOPT_READFUNCTION, Read);
  curl_easy_setopt(Handle(), CURLOPT_READDATA, &source);
  curl_easy_setopt(Handle(), CURLOPT_SEEKFUNCTION, Seek);
  curl_easy_setopt(Handle(), CURLOPT_SEEKDATA, &source);
}

size_t CurlTransfer::Read(char* buffer, size_t size, size_t count, void* source) {
  const std::int64_t got = static_cast<UploadSource*>(source)->Read(buffer, size * count);
  return got < 0 ? CURL_READFUNC_ABORT : static_cast<size_t>(got);
}

int CurlTransfer::Seek(void* source, curl_off_t offset, int origin) {
  if (offset != 0 || origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
  return static_cast<UploadSource*>(source)->Rewind() ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

// Every line that the server says comes by here.
size_t CurlTransfer::Header(char* text, size_t size, size_t count, void* self) {
  std::string line(text, std::min(size * count, kLongestAnswer));
  line.resize(line.find_last_not_of("\r\n") + 1);
  if (line.compare(0, 4, "221 ") != 0) static_cast<CurlTransfer*>(self)->m_answer = line;  // no goodbyes
  return size * count;
}

int CurlTransfer::Progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<CurlTransfer*>(self)->m_limits.stop->load() ? 1 : 0;
}

std::string CurlTransfer::WithoutSecret(std::string text) const {
  for (size_t at = 0; !m_secret.empty() && (at = text.find(m_secret, at)) != std::string::npos;)
    text.replace(at, m_secret.size(), "***");
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  }
  text.resize(text.find_last_not_of(' ') + 1);
  return text;
}

// Of libcurl's codes those behind which stands an answer of the server, not the state of a connection.
bool CurlTransfer::IsAnswered() const {
  switch (m_code) {
    case CURLE_SEND_ERROR:
      return m_job.service == UploadService::kEmail && Answer() >= 400;  // to sender, recipient or DATA
    case CURLE_WEIRD_SERVER_REPLY:
      return m_job.service == UploadService::kEmail;
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_UPLOAD_FAILED:
    case CURLE_PARTIAL_FILE:
    case CURLE_QUOTE_ERROR:
      return m_job.service == UploadService::kFtp;
    default:
      return false;
  }
}

long CurlTransfer::Answer() const {
  long answer = 0;
  curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &answer);
  return answer;
}

// A disk that is full now has room another day, and logins are mended.
bool CurlTransfer::IsRefused() const {
  constexpr long kLoginCodes[] = {530, 534, 535, 538};
  const long answer = Answer();
  if (!IsAnswered() || answer < 500 || answer > 599) return false;
  if (m_job.service == UploadService::kFtp && answer == 552) return false;
  return std::find(std::begin(kLoginCodes), std::end(kLoginCodes), answer) == std::end(kLoginCodes);
}

std::string CurlTransfer::Reason() const {
  if (m_source != nullptr && !m_source->Error().empty()) return m_source->Error();
  const std::string detail = m_detail[0] != '\0' ? m_detail : curl_easy_strerror(m_code);
  if (IsAnswered()) return m_answer.empty() ? detail : detail + " (" + m_answer + ")";
  switch (m_code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "there is no host " + m_job.host;
    case CURLE_COULDNT_CONNECT:
      return "nobody answers at " + m_job.host;
    case CURLE_LOGIN_DENIED:
      return "user name or password refused by " + m_job.host;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
      return "the certificate of " + m_job.host + " is not trusted: " + detail;
    case CURLE_USE_SSL_FAILED:
      return m_job.host + " offers no TLS";
    case CURLE_OPERATION_TIMEDOUT:
      return m_job.host + " says nothing: " + detail;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      // What the server had to say to it is lost with the connection; its last answer was to something else.
      return m_job.host + " broke the connection off: " + detail;
    default:
      return m_answer.empty() ? detail : detail + " (" + m_answer + ")";
  }
}

TransferResult CurlTransfer::Perform() {
  m_answer.clear();
  m_detail[0] = '\0';
  m_code = curl_easy_perform(Handle());
  TransferResult result;
  result.done = m_code == CURLE_OK;
  if (result.done) return result;
  result.obstacle = ObstacleOf(m_code);
  result.refused = IsRefused();
  result.error = WithoutSecret(Reason());
  return result;
}

}  // namespace record
