// What ends around an MP4 file: its name, its handle, copy and uploads.
#ifndef FORMAT_MP4_MP4_OUTPUT_H
#define FORMAT_MP4_MP4_OUTPUT_H

#include "format/record_output.h"

namespace record {

class Mp4Output : public RecordOutput {
 public:
  explicit Mp4Output(CMp4Task& task);
  ~Mp4Output() override;

  void Finish() override;

 protected:
  int OpenFile(Destination& destination) override;
  const char* SilentLapseTag() const override { return "sv"; }
  std::string FixedLocalName() const override;
  void NetworkIsNext() override;
  void CopyToNetwork() override;

 private:
  void Close(Destination& destination);
  void FinishLocal();
  void FinishNetwork();

  CMp4Task& m_mp4Task;
  const bool m_isIpcServer;  // the device flag, as it was when the task was made
};

}  // namespace record

#endif
