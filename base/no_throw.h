// Nothing throws across the public interface. Behind the body of a function that may run out of memory:
//
//   int Exported() try {
//     ...
//   }
//   RECORD_NO_THROW(-1)
//
// What memory runs out for fails with that result. Not for constructors: what cannot be made throws, as `new`
// does.
#ifndef BASE_NO_THROW_H
#define BASE_NO_THROW_H

#include <exception>

#include "base/log.h"

#define RECORD_NO_THROW(failure)        \
  catch (const std::exception& error) { \
    RECORD_LOG("%s\n\n", error.what()); \
    return failure;                     \
  }

#endif
