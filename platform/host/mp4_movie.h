// The boxes of an MP4 file around its media: head, fragments' descriptions, index.
//
//   while it grows    ftyp  free(16)  moov(empty, mvex)  [moof mdat]...
//   finished          ftyp  mdat(everything in between)                moov(index)
//
// The index is appended inside a free box; one write of 16 bytes over the free box in front then turns all that
// lies between into one mdat that ends with the free box's head, and so uncovers the index.
#ifndef PLATFORM_HOST_MP4_MOVIE_H
#define PLATFORM_HOST_MP4_MOVIE_H

#include <vector>

#include "platform/host/mp4_sample_table.h"

namespace record {

constexpr std::uint32_t kMovieTimeScale = 1000;
constexpr size_t kFileTypeSize = 32;
constexpr size_t kSwitchSize = 16;  // the free box behind the file type; never crosses a sector's end
static_assert(kFileTypeSize + kSwitchSize <= 512);

enum Mp4Track : unsigned { kMp4Video, kMp4Audio, kMp4Tracks };

struct TrackDescription {
  std::uint32_t timeScale = 0;  // units a second; 0: the file has no such track
  Bytes sampleDescription;      // the whole stsd box
  int width = 0;                // video: pixels
  int height = 0;
  std::uint32_t lastDuration = 0;  // of the last sample, in units
};

struct MovieDescription {
  TrackDescription tracks[kMp4Tracks];
  std::uint32_t creationTime = 0;  // seconds since 1904
};

// One sample of the group that is being gathered, in the order of arrival.
struct FragmentSample {
  Mp4Track track;
  bool isKey;
  std::uint32_t size;
  std::int64_t time;  // in units of the track
  std::uint32_t duration;
};

// Everything in front of the first fragment.
Bytes FileHead(const MovieDescription& movie);
// moof and the head of the mdat that `samples` fill, one behind the other.
Bytes FragmentHead(const std::vector<FragmentSample>& samples, std::uint32_t number);
// The free box with the index.
Bytes HiddenIndex(const MovieDescription& movie, const SampleTable (&tables)[kMp4Tracks]);
// What is written at kFileTypeSize once the hidden index stands at `indexOffset` and has been synced.
Bytes FinishingSwitch(std::uint64_t indexOffset);
// What stands there until then.
Bytes UnfinishedSwitch();

}  // namespace record

#endif
