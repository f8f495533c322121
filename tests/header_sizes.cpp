// Compiled twice, see header_sizes.cmake.
#include "header_sizes.h"

#include "record/record.h"

#define PUBLIC_TYPE(type) {#type, sizeof(type), alignof(type)},

const PublicTypeSize PUBLIC_TYPE_SIZES[] = {
#include "public_types.inc"
    {nullptr, 0, 0}};
