// The diagnostic lines that several classes here write.

#ifndef ADDON_SHAREDMEM_DIAGNOSTIC_LINES_H_
#define ADDON_SHAREDMEM_DIAGNOSTIC_LINES_H_

#include <unistd.h>

#include "base/diagnostic_line.h"
#include "tesselclient/types.h"

namespace sharedmem {

// "<what><address>, pid:<process id>, <event>" with the process id in hexadecimal. Later integers
// print in decimal.
inline void printObject(const char* what, const void* object, const char* event) {
  base::DiagnosticLine(what)
      .hexadecimal()
      .address(object)
      .text(", pid:")
      .integer(getpid())
      .decimal()
      .text(", ")
      .text(event);
}

// "<what> StreamKey:<kind>, index:<index>"
inline void printStream(const char* what, const StreamKey& key) {
  base::DiagnosticLine(what)
      .text(" StreamKey:")
      .integer(key.first)
      .text(", index:")
      .integer(key.second);
}

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_DIAGNOSTIC_LINES_H_
