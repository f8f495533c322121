// One record file being read, whatever its container: the reader that its name asks for, opened, and each frame
// with its time within the file. Whoever plays, replays or exports reads through this.
#ifndef FORMAT_MEDIA_FILE_H
#define FORMAT_MEDIA_FILE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/log.h"
#include "record/video_file.h"

namespace record {

// As CreateVideoFile, without its log line.
std::unique_ptr<CVideoFile> NewVideoFile(const char* path);

// A frame as its reader delivers it; frees the bytes that were allocated for the caller.
struct MediaFrame {
  const unsigned char* data = nullptr;  // valid until the next read of the same file, or of this frame
  int length = 0;
  bool isVideo = false;
  bool isKey = false;
  std::uint32_t offsetMs = 0;  // within the file
  std::uint32_t stamp = 0;     // the reader's own time stamp
  bool isStreamStamp = false;  // of the stream that was recorded; else it counts from the begin of the file
  std::unique_ptr<unsigned char[]> owned;
  std::shared_ptr<CVideoFile> lender;  // else lives as long as the frame, whoever closes the file meanwhile
};

// How a caller tells of a file that cannot be read: they differ in nothing else.
struct MediaFileLog {
  int module = kLogModule;
  const char* lineEnd = "\n\n";
};

// No writer makes so many frames without bytes in a row: a reader that gives them has come to its end.
constexpr int kMostEmptyReads = 1000;

class MediaFile {
 public:
  explicit MediaFile(const MediaFileLog& log = {}) : m_log(log) {}

  // Closes what is open. 0, or -1 with a log line: the name belongs to no container, or the file cannot be opened.
  int Open(const std::string& path);
  // The parameters of the streams that the open file has; all zero for one that it has not. 0, or -1 with a log
  // line; the file is closed then.
  int GetParams(VIDEO_PARAM& video, AUDIO_PARAM& audio);
  void Close();
  bool IsOpen() const { return m_reader != nullptr; }

  // The next frame and its length: positive, 0 (nothing this time, read on) or negative (none: the file's end, or
  // an error; `frame` is empty). REQUIRES: IsOpen()
  int Read(MediaFrame& frame);
  // What Read will deliver next, unless a seek comes before; null when there is none. REQUIRES: IsOpen()
  const MediaFrame* Peek();
  int Seek(unsigned long seconds);  // into the file; the reader's result. REQUIRES: IsOpen()

  // The stream's own time stamp of the file's first frame; false when the container keeps none, or for an empty
  // file.
  bool GetFirstStamp(std::uint32_t& stamp) const { return m_kmv && m_kmv->GetFirstTimeStamp(stamp); }

  // Whether stamps are those of the stream that was recorded; else they count from the begin of the file.
  bool HasStreamStamps() const { return m_kmv != nullptr; }

  // Whether sound has stamps of its own; else it bears that of the picture before it.
  bool HasSoundStamps() const { return m_kmv || dynamic_cast<CMp4File*>(m_reader.get()); }

  // Reading goes on with a key frame at or before that second of the file, and the frames are the same, stamps
  // included, as when all before them had been read. 0, or -1: then where it goes on is not known.
  int SkipTo(unsigned long second);

  CVideoFile& Reader() { return *m_reader; }  // REQUIRES: IsOpen()

 private:
  std::uint32_t OffsetOf(std::uint32_t stamp) const;

  const MediaFileLog m_log;
  std::string m_path;
  std::shared_ptr<CVideoFile> m_reader;
  CKmvFile* m_kmv = nullptr;  // the reader, when its time stamps are the stream's own
  std::optional<MediaFrame> m_peeked;
};

}  // namespace record

#endif
