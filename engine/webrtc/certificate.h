// Whose certificates are trusted.

#ifndef ENGINE_WEBRTC_CERTIFICATE_H_
#define ENGINE_WEBRTC_CERTIFICATE_H_

#include <gio/gio.h>

#include <string>

namespace webrtc {

// Whether a server's certificate is accepted although the system found `errors`: its authority may
// also be one of the PEM file `authorityFile`, whose name may be empty. May be called on any
// thread.
bool isTrusted(GTlsCertificate* certificate, GTlsCertificateFlags errors,
               GSocketConnectable* server, const std::string& authorityFile);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CERTIFICATE_H_
