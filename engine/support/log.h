// The engine's log file.

#ifndef ENGINE_SUPPORT_LOG_H_
#define ENGINE_SUPPORT_LOG_H_

#include <string>
#include <string_view>

#include "engine/support/file_descriptor.h"

namespace support {

// Lines of text, each with the time of day, added to the file "tesselclient.log", its name preceded
// by a prefix, in a directory that is made when it is missing. A log that cannot be written is
// silent: logging never fails anything. Shared by everything that belongs to an engine; lines may
// be written from any thread, and by several processes into one file.
class Log {
 public:
  // An empty directory means no log.
  Log(const std::string& directory, const std::string& prefix);

  // Control characters, which could forge lines, are replaced; an overlong text is cut.
  void write(std::string_view text) const;

 private:
  FileDescriptor file_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_LOG_H_
