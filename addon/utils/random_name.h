// Names for shared-memory objects and semaphores.

#ifndef ADDON_UTILS_RANDOM_NAME_H_
#define ADDON_UTILS_RANDOM_NAME_H_

#include <cstddef>
#include <string>

namespace Utils {

// "/", the prefix, then `length` characters out of 0-9, A-Z, a-z.
//
// The characters follow from the process id and the current second alone: calls within one second
// draw the same ones, and anybody can compute them. Reseeds the C library's rand().
std::string gen_random(const std::string& prefix, std::size_t length);

}  // namespace Utils

#endif  // ADDON_UTILS_RANDOM_NAME_H_
