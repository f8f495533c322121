// The byte images of docs/formats.md, so that a structure is checked against what its readers are told.
#ifndef TESTS_SUPPORT_DOCUMENT_IMAGE_H
#define TESTS_SUPPORT_DOCUMENT_IMAGE_H

#include <string>

namespace fake {

// The bytes of the image of that name; "" when there is none.
std::string DocumentImage(const std::string& name);

}  // namespace fake

#endif
