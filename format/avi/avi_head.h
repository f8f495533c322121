// The header of an AVI record file, as far as reading it needs: one of the two templates, told by its streams.
#ifndef FORMAT_AVI_AVI_HEAD_H
#define FORMAT_AVI_AVI_HEAD_H

#include "format/avi/avi_format.h"
#include "format/file_source.h"

namespace record {

struct AviHead {
  AVI_HEADER_BEGIN begin = {};
  AVI_STREAM_HEADER video = {};
  AVI_STREAM_HEADER audio = {};  // zero without audio, and the format
  AVI_AUDIO_FORMAT audioFormat = {};
  AVI_LIST_HEAD movi = {};

  bool HasAudio() const { return begin.main.streams == 2; }
  long long ListStart() const { return AviListStart(HasAudio()); }
  long long FirstChunk() const { return AviHeaderSize(HasAudio()); }
  // The writer ended it, with nothing in it: then it writes no index.
  bool EndedWithoutFrames(long long fileSize) const {
    return movi.size != 0 && IndexOffset() == FirstChunk() && fileSize == FirstChunk();
  }
  long long IndexOffset() const { return AviIndexOffset(HasAudio(), movi.size); }
  VideoCodec Codec() const;
  // Whether its names stand where the templates have them: other programs' files have others.
  bool IsRecorded() const;
};

enum class AviHeadState { Short, UnknownStreams, ShortTemplate, Read };

// With UnknownStreams and ShortTemplate only `begin` is filled.
AviHeadState AviReadHead(const FileSource& source, AviHead& head);

}  // namespace record

#endif
