#include "engine/webrtc/certificate.h"

#include "engine/webrtc/glib.h"

namespace webrtc {

bool isTrusted(GTlsCertificate* certificate, GTlsCertificateFlags errors,
               GSocketConnectable* server, const std::string& authorityFile) {
  if (errors == G_TLS_CERTIFICATE_NO_FLAGS) return true;
  // Another authority makes up for an unknown one, and for nothing else.
  if (errors != G_TLS_CERTIFICATE_UNKNOWN_CA || authorityFile.empty()) return false;
  GError* raised = nullptr;
  const ObjectPtr<GTlsDatabase> authority(g_tls_file_database_new(authorityFile.c_str(), &raised));
  const ErrorPtr error(raised);
  if (!authority) return false;
  return g_tls_database_verify_chain(
             authority.get(), certificate, G_TLS_DATABASE_PURPOSE_AUTHENTICATE_SERVER, server,
             nullptr, G_TLS_DATABASE_VERIFY_NONE, nullptr, nullptr) == G_TLS_CERTIFICATE_NO_FLAGS;
}

}  // namespace webrtc
