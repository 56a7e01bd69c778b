# node_api: what a Node-API addon compiles against. Node's own headers lie beside the node binary
# that will load the addon, so nothing is downloaded; node-addon-api is an npm dependency.

find_program(NODE_EXECUTABLE node REQUIRED)
execute_process(
  COMMAND "${NODE_EXECUTABLE}" -p "require('fs').realpathSync(process.execPath)"
  OUTPUT_VARIABLE node_path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
cmake_path(GET node_path PARENT_PATH node_bin)
cmake_path(GET node_bin PARENT_PATH node_prefix)
find_path(NODE_INCLUDE_DIR node_api.h PATHS "${node_prefix}/include/node" NO_DEFAULT_PATH REQUIRED)
find_path(UV_INCLUDE_DIR uv.h PATHS "${NODE_INCLUDE_DIR}" NO_DEFAULT_PATH REQUIRED)
# Where npm put it: in an installed package that is beside the package, not in it.
execute_process(
  COMMAND "${NODE_EXECUTABLE}" -p "require('path').dirname(require.resolve('node-addon-api/napi.h'))"
  WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
  OUTPUT_VARIABLE node_addon_api OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
find_path(NODE_ADDON_API_DIR napi.h PATHS "${node_addon_api}" NO_DEFAULT_PATH REQUIRED)

add_library(node_api INTERFACE)
target_include_directories(node_api SYSTEM INTERFACE
  "${NODE_INCLUDE_DIR}" "${NODE_ADDON_API_DIR}")
# Errors are C++ exceptions; any std::exception that leaves a method becomes a JavaScript Error. An
# error that JavaScript cannot be given, because its environment is just being ended, is dropped
# instead of ending the process.
target_compile_definitions(node_api INTERFACE
  NAPI_VERSION=8 NODE_ADDON_API_CPP_EXCEPTIONS_ALL NODE_API_SWALLOW_UNTHROWABLE_EXCEPTIONS
  NODE_ADDON_API_DISABLE_DEPRECATED)

# add_node_addon(NAME SOURCES...): a loadable NAME.node in the build directory's root.
function(add_node_addon name)
  add_library(${name} MODULE ${ARGN})
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".node")
  target_link_libraries(${name} PRIVATE node_api)
endfunction()
