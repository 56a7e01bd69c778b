// A place for a test's files.

#ifndef TEST_NATIVE_ENGINE_SUPPORT_TEMPORARY_DIRECTORY_H_
#define TEST_NATIVE_ENGINE_SUPPORT_TEMPORARY_DIRECTORY_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace support {

// A new directory that is removed with the object.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string path = std::filesystem::temp_directory_path() / "embedded_engine_XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = path;
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // The path of a new file.
  std::string write(const std::string& name, const std::string& content) const {
    const auto file = path_ / name;
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

  static std::string read(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

 private:
  std::filesystem::path path_;
};

}  // namespace support

#endif  // TEST_NATIVE_ENGINE_SUPPORT_TEMPORARY_DIRECTORY_H_
