// A file as the attachment of a mail.
#include <algorithm>
#include <cstdio>
#include <ctime>

#include "base/text.h"
#include "platform/host/upload/curl_transfer.h"
#include "record/platform.h"

namespace record {
namespace {

const char* MediaType(const std::string& name) {
  if (EndsWith(name, ".jpg")) return "image/jpeg";
  if (EndsWith(name, ".mp4")) return "video/mp4";
  if (EndsWith(name, ".avi")) return "video/x-msvideo";
  return "application/octet-stream";
}

std::string Base64(const std::string& bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    for (size_t k = 0; k < 3; ++k)
      group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    for (size_t k = 0; k < 4; ++k) text += i + k > bytes.size() ? '=' : kDigits[group >> (18 - 6 * k) & 63];
  }
  return text;
}

// A header's value in one line; words that are not ASCII as RFC 2047 has them, in pieces that lines take.
std::string HeaderText(const std::string& text) {
  constexpr size_t kPiece = 42;
  std::string line;
  bool isAscii = true;
  for (const char c : text) {
    line += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    isAscii = isAscii && static_cast<unsigned char>(c) < 0x7f;
  }
  if (isAscii) return line;
  std::string encoded;
  for (size_t begin = 0; begin < line.size();) {
    size_t end = std::min(begin + kPiece, line.size());
    while (end < line.size() && end > begin + 1 && (static_cast<unsigned char>(line[end]) & 0xc0) == 0x80) --end;
    encoded +=
        (encoded.empty() ? "=?UTF-8?B?" : "\r\n =?UTF-8?B?") + Base64(line.substr(begin, end - begin)) + "?=";
    begin = end;
  }
  return encoded;
}

// RFC 5322, in UTC: names of days and months in English, whatever the locale.
std::string DateText(long long seconds) {
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const time_t time = static_cast<time_t>(seconds);
  struct tm utc = {};
  gmtime_r(&time, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d +0000", kDays[utc.tm_wday], utc.tm_mday,
                kMonths[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
  return text;
}

CurlList Headers(const UploadJob& job) {
  CurlList headers;
  Append(headers, "Date: " + DateText(job.queuedMs / 1000));
  Append(headers, "From: " + job.sender);
  Append(headers, "To: " + job.recipients);
  Append(headers, "Subject: " + HeaderText(job.text + ", " + job.name));
  // The same mail when it is sent twice, because an answer got lost.
  Append(headers, "Message-ID: <" + job.id + "." + job.sender + ">");
  return headers;
}

CurlList Recipients(const std::string& recipients) {
  CurlList list;
  for (size_t begin = 0; begin < recipients.size();) {
    const size_t comma = std::min(recipients.find(',', begin), recipients.size());
    const size_t first = recipients.find_first_not_of(' ', begin);
    if (first < comma) Append(list, "<" + recipients.substr(first, comma - first) + ">");
    begin = comma + 1;
  }
  return list;
}

CurlMime Body(CURL* handle, const UploadJob& job, UploadSource& source) {
  CurlMime mime(curl_mime_init(handle));
  curl_mimepart* text = curl_mime_addpart(mime.get());
  curl_mime_data(text, (job.text + "\r\n" + job.name + "\r\n").c_str(), CURL_ZERO_TERMINATED);
  curl_mime_type(text, "text/plain; charset=utf-8");
  curl_mime_encoder(text, "quoted-printable");
  curl_mimepart* file = curl_mime_addpart(mime.get());
  curl_mime_data_cb(file, source.Size(), CurlTransfer::Read, CurlTransfer::Seek, nullptr, &source);
  curl_mime_filename(file, job.name.c_str());
  curl_mime_type(file, MediaType(job.name));
  curl_mime_encoder(file, "base64");
  return mime;
}

int PortOf(const UploadJob& job) {
  if (job.port > 0) return job.port;
  if ((job.flags & UPLOAD_TLS_IMPLICIT) != 0) return 465;
  return (job.flags & UPLOAD_TLS) != 0 ? 587 : 25;
}

}  // namespace

TransferResult SendByEmail(const UploadJob& job, const TransferLimits& limits) {
  UploadSource source(job.Path());
  if (!source.IsOpen()) return {false, source.IsGone(), Obstacle::kNone, source.Error()};
  CurlTransfer transfer(job, limits, "smtp");
  if (!transfer.Error().empty()) return {false, false, Obstacle::kLogin, transfer.Error()};

  const CurlList headers = Headers(job);
  const CurlList recipients = Recipients(job.recipients);
  transfer.Reset("");
  transfer.ReadFrom(source);
  CURL* handle = transfer.Handle();
  const CurlMime body = Body(handle, job, source);
  curl_easy_setopt(handle, CURLOPT_PORT, static_cast<long>(PortOf(job)));
  curl_easy_setopt(handle, CURLOPT_MAIL_FROM, ("<" + job.sender + ">").c_str());
  curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, recipients.get());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(handle, CURLOPT_MIMEPOST, body.get());
  return transfer.Perform();
}

}  // namespace record
