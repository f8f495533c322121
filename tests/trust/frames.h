// Frames whose bytes follow from their number, so that what is read back can be told to the byte.
#ifndef TESTS_TRUST_FRAMES_H
#define TESTS_TRUST_FRAMES_H

#include <cstdint>
#include <vector>

namespace trust {

enum class FrameKind { kSound, kPicture, kKeyPicture };

// The bytes of frame `number`: pictures are H.264 access units by their looks, key pictures with parameter sets in
// front. REQUIRES: length >= 100.
std::vector<unsigned char> FrameBytes(std::uint32_t number, int length, FrameKind kind);
// REQUIRES: such a frame.
std::uint32_t FrameNumber(const char* data, int length);
// The parameter sets, which AVI files repeat in front of their first picture.
std::vector<unsigned char> ConfigBytes();

struct FeedPlan {
  int framesPerSecond = 25;  // of main, sub and audio each
  int framesPerGroup = 10;
  int frameLength = 20000;  // of video, about
  int hugeLength = 0;       // of every eighth video frame, when above 0
};

// Publishes main, sub and audio frames to the host's stream hub on a thread of its own, for as long as the
// process lives. Returns once all three streams are there.
void StartFeeding(const FeedPlan& plan);

}  // namespace trust

#endif
