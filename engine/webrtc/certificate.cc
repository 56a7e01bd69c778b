#include "engine/webrtc/certificate.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "engine/support/file_descriptor.h"
#include "engine/webrtc/glib.h"

namespace webrtc {
namespace {

// The certificates of a PEM file; null when they cannot be read.
ObjectPtr<GTlsDatabase> readAuthority(const std::string& name) {
  // Not blocking, so that a pipe of that name cannot stop the thread.
  const auto file = support::FileDescriptor::open(name, O_RDONLY | O_NONBLOCK);
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return nullptr;
  }
  // What was opened, whatever has this name by now.
  const std::string opened = "/proc/self/fd/" + std::to_string(file.get());
  GError* raised = nullptr;
  ObjectPtr<GTlsDatabase> authority(g_tls_file_database_new(opened.c_str(), &raised));
  const ErrorPtr error(raised);
  return authority;
}

}  // namespace

bool isTrusted(GTlsCertificate* certificate, GTlsCertificateFlags errors,
               GSocketConnectable* server, const std::string& authorityFile) {
  if (errors == G_TLS_CERTIFICATE_NO_FLAGS) return true;
  // Another authority makes up for an unknown one, and for nothing else.
  if (errors != G_TLS_CERTIFICATE_UNKNOWN_CA || authorityFile.empty()) return false;
  const auto authority = readAuthority(authorityFile);
  if (!authority) return false;
  return g_tls_database_verify_chain(
             authority.get(), certificate, G_TLS_DATABASE_PURPOSE_AUTHENTICATE_SERVER, server,
             nullptr, G_TLS_DATABASE_VERIFY_NONE, nullptr, nullptr) == G_TLS_CERTIFICATE_NO_FLAGS;
}

}  // namespace webrtc
