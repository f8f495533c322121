// Delivers the packets of a KMV file with their payloads, from any position on; the file may still grow.
#ifndef FORMAT_KMV_KMV_PACKET_READER_H
#define FORMAT_KMV_KMV_PACKET_READER_H

#include "format/frame_window.h"
#include "format/kmv/kmv_format.h"

namespace record {

class KmvPacketReader {
 public:
  explicit KmvPacketReader(FileSource& source);

  // Starts at the first packet of an opened source. `dataEnd`: where a finished file's packets end; negative
  // for a file that may still grow.
  void Begin(long long dataEnd);
  void Seek(long long offset);

  // The next packet. False at the end of what is there: then a later call delivers what has been appended
  // meanwhile.
  bool Next(KmvPacketHead& packet, bool mayLend, FramePayload& payload);

  // The head of the next packet, without moving behind it.
  bool Peek(KmvPacketHead& packet) { return Find(packet); }

  long long Offset() const { return m_next; }  // of the next read
  long long DataEnd() const;                   // packets that end beyond it are not whole

 private:
  bool HeadIsThere() const { return KmvPayloadOffset(m_next) <= DataEnd(); }
  bool Grown();
  bool ReadHead(KmvPacketHead& packet);
  bool BeginsEnd(const KmvPacketHead& packet) const;
  bool Resynchronise(KmvPacketHead& packet);
  bool Find(KmvPacketHead& packet);
  bool IsWhole(const KmvPacketHead& packet);

  FileSource& m_source;
  FrameWindow m_frames;
  long long m_next = kKmvHeadSize;
  long long m_finishedEnd = -1;  // the end of the packets, once the file is known to be finished
};

}  // namespace record

#endif
