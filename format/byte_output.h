// Record files that the library writes itself, byte by byte: opening, appending, giving up, closing.
#ifndef FORMAT_BYTE_OUTPUT_H
#define FORMAT_BYTE_OUTPUT_H

#include <sys/uio.h>

#include <cstddef>

#include "format/record_output.h"

namespace record {

class ByteOutput : public RecordOutput {
 public:
  using RecordOutput::RecordOutput;

  // Appends to one destination, all or nothing: on failure what came through is taken back as far as the
  // medium allows, the write-failure flag is set, the destination is closed, and `written` tells how much had
  // come through. errno is that of the failure.
  bool Append(Destination& destination, struct iovec* parts, int count, size_t total, size_t& written);
  // The same for one block.
  bool AppendBlock(Destination& destination, const void* data, size_t length);
  // Writes over what stands at `offset` of the destination; on failure as Append, but nothing is taken back.
  bool Overwrite(Destination& destination, long long offset, const void* data, size_t length);
  // Gives a destination up after a failed write; the other one carries on.
  void Fail(Destination& destination);
  // The same, with a log line, when a frame would outgrow the longest file.
  void FailFull(Destination& destination);

  void Finish() override;

 protected:
  int OpenFile(Destination& destination) override;
  // After the notice of the end of a local file.
  virtual void LocalEnded() {}

 private:
  void FinishLocal();
  void FinishNetwork();
};

}  // namespace record

#endif
