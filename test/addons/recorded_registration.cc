// Writes to standard error what the record says that the addon registers while it is loaded, and
// passes it on to Node-API.

#include <node_api.h>
#include <unistd.h>

#include <cstdio>

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker's --wrap looks for
extern "C" void __real_napi_module_register(napi_module* record);
extern "C" void __wrap_napi_module_register(napi_module* record) {
  dprintf(STDERR_FILENO, "registered %s, version %d, flags %u, file %s\n", record->nm_modname,
          record->nm_version, record->nm_flags, record->nm_filename);
  __real_napi_module_register(record);
}
// NOLINTEND(bugprone-reserved-identifier)
