// Passwords: where they are, never what they are.
#ifndef PLATFORM_HOST_UPLOAD_UPLOAD_SECRET_H
#define PLATFORM_HOST_UPLOAD_UPLOAD_SECRET_H

#include <string>

namespace record {

// "file:PATH", "env:NAME" or "" (no password).
bool IsSecretReference(const std::string& reference);

// The password itself. "", or why there is none.
std::string ReadSecret(const std::string& reference, std::string* secret);

}  // namespace record

#endif
