// A file to an FTP server: directories on the way, a temporary name, then the real one.
#include <algorithm>

#include "platform/host/upload/curl_transfer.h"

namespace record {
namespace {

// The directory as it stands in a URL: relative to the login's, or, behind an escaped slash, to the server's root.
std::string DirectoryPath(CurlTransfer& transfer, const std::string& directory) {
  std::string path = directory.compare(0, 1, "/") == 0 ? "%2F" : "";
  for (size_t begin = 0; begin < directory.size();) {
    const size_t slash = std::min(directory.find('/', begin), directory.size());
    if (slash > begin) path += transfer.Escaped(directory.substr(begin, slash - begin)) + "/";
    begin = slash + 1;
  }
  return path;
}

// Half a file is of no use to anybody, and may be what filled the server's disk.
void RemoveRemains(CurlTransfer& transfer, const std::string& directory, const std::string& temporary) {
  CurlList commands;
  Append(commands, "*DELE " + temporary);
  transfer.Reset(directory);
  curl_easy_setopt(transfer.Handle(), CURLOPT_NOBODY, 1L);
  curl_easy_setopt(transfer.Handle(), CURLOPT_POSTQUOTE, commands.get());
  transfer.Perform();
}

}  // namespace

TransferResult SendByFtp(const UploadJob& job, const TransferLimits& limits) {
  UploadSource source(job.Path());
  if (!source.IsOpen()) return {false, source.IsGone(), Obstacle::kNone, source.Error()};
  CurlTransfer transfer(job, limits, "ftp");
  if (!transfer.Error().empty()) return {false, false, Obstacle::kLogin, transfer.Error()};

  const std::string directory = DirectoryPath(transfer, job.remoteDirectory);
  const std::string temporary = job.remoteName + ".part";
  CurlList commands;
  Append(commands, "*DELE " + job.remoteName);  // servers differ in whether a rename writes over
  Append(commands, "RNFR " + temporary);
  Append(commands, "RNTO " + job.remoteName);
  transfer.Reset(directory + transfer.Escaped(temporary));
  transfer.ReadFrom(source);
  CURL* handle = transfer.Handle();
  curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(source.Size()));
  curl_easy_setopt(handle, CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR_RETRY));
  curl_easy_setopt(handle, CURLOPT_POSTQUOTE, commands.get());
  TransferResult result = transfer.Perform();
  if (!result.done && result.obstacle == Obstacle::kNone && !limits.stop->load())
    RemoveRemains(transfer, directory, temporary);
  return result;
}

}  // namespace record
