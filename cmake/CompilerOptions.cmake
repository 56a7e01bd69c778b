# What every target of the project is compiled with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
# Everything may end up in a shared object.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Only what is marked for export leaves a shared object.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

find_package(Threads REQUIRED)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    -Wnon-virtual-dtor -Woverloaded-virtual)
if(TESSEL_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # gcc's optimiser guesses here, and each version sees other variables: gcc 14 one in std::optional.
    add_compile_options(-Wno-error=maybe-uninitialized)
  endif()
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  add_compile_options(-Wthread-safety -Werror=thread-safety)
endif()
if(TESSEL_SANITIZERS)
  add_compile_options(-fsanitize=${TESSEL_SANITIZERS} -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${TESSEL_SANITIZERS})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # What a sanitizer adds to the code makes gcc see uninitialised variables where there are none.
    add_compile_options(-Wno-maybe-uninitialized)
    if(TESSEL_SANITIZERS MATCHES undefined)
      # As shared libraries the two runtimes share a symbol through which this one's `log_path` ends
      # up in the other: its reports would then be lost with the output of the process.
      add_link_options(-static-libubsan -Wl,--exclude-libs,libubsan.a)
    endif()
  endif()
endif()

include_directories("${PROJECT_SOURCE_DIR}")
