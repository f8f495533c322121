// The right to make one output file.
#ifndef RECORDCTL_OUTPUT_CLAIM_H
#define RECORDCTL_OUTPUT_CLAIM_H

#include <string>

namespace recordctl {

// While it lives, "<path>.part" is there, and no other run gets a claim to it. It is empty at first.
class OutputClaim {
 public:
  OutputClaim(const std::string& path, bool overwrite);
  ~OutputClaim();
  OutputClaim(const OutputClaim&) = delete;
  OutputClaim& operator=(const OutputClaim&) = delete;

  // "" when the output can be made, else why not.
  const std::string& Complaint() const { return m_complaint; }

 private:
  std::string Claim(const std::string& path, bool overwrite);

  int m_file = -1;
  std::string m_complaint;
};

}  // namespace recordctl

#endif
