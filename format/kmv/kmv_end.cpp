#include "format/kmv/kmv_end.h"

namespace record {
namespace {

bool IndexFits(long long fileSize, std::uint32_t indexOffset) {
  return indexOffset >= kKmvHeadSize && KmvFinishedSize(indexOffset) <= fileSize;
}

}  // namespace

KmvEndState KmvReadEnd(const FileSource& source, long long fileSize, KmvEnd& end) {
  if (fileSize <= kKmvNoTailSize) return KmvEndState::Missing;
  const long long usual = KmvUsualIndexOffset(fileSize);
  if (usual >= kKmvHeadSize) {
    // Index and tail stand side by side in every file that the writer made: one read for both.
    if (source.ReadAt(usual, &end.index, sizeof(end.index), &end.tail, sizeof(end.tail)) != kKmvEndSize) {
      return KmvEndState::Missing;
    }
  } else if (source.ReadAt(KmvTailOffset(fileSize), &end.tail, sizeof(end.tail)) != sizeof(end.tail)) {
    return KmvEndState::Missing;
  }
  if (end.tail.magic != KMV_TAIL_MAGIC) return KmvEndState::Missing;
  if (!IndexFits(fileSize, end.tail.indexOffset)) return KmvEndState::NoIndex;
  if (end.tail.indexOffset != usual &&
      source.ReadAt(end.tail.indexOffset, &end.index, sizeof(end.index)) != sizeof(end.index)) {
    return KmvEndState::NoIndex;
  }
  if (end.index.magic != KMV_INDEX_MAGIC) return KmvEndState::NoIndex;
  return KmvEndState::Whole;
}

}  // namespace record
