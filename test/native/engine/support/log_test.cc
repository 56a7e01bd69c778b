#include "engine/support/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "test/native/engine/support/temporary_directory.h"

namespace support {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

TEST(Log, AppendsLinesToAFileInADirectoryThatItCreates) {
  const TemporaryDirectory directory;
  const auto logs = directory.path() / "a" / "b";
  Log(logs, "my-").write("first");
  Log(logs, "my-").write("second");
  EXPECT_THAT(TemporaryDirectory::read(logs / "my-tesselclient.log"),
              ContainsRegex("^[0-9-]+T[0-9:.]+Z first\n[0-9-]+T[0-9:.]+Z second\n$"));
}

TEST(Log, EscapesTextThatWouldForgeALine) {
  const TemporaryDirectory directory;
  Log(directory.path(), "").write("one\ntwo\x7f%s");
  EXPECT_THAT(TemporaryDirectory::read(directory.path() / "tesselclient.log"),
              HasSubstr(" one?two?%s\n"));
}

TEST(Log, TruncatesALongText) {
  const TemporaryDirectory directory;
  Log(directory.path(), "").write(std::string(5000, 'x'));
  EXPECT_LT(std::filesystem::file_size(directory.path() / "tesselclient.log"), 2100U);
}

TEST(Log, IsSilentWhereItCannotWrite) {
  const TemporaryDirectory directory;
  directory.write("file", "");
  ASSERT_EQ(::mkfifo((directory.path() / "pipe-tesselclient.log").c_str(), 0600), 0);
  Log("", "").write("x");
  Log(directory.path() / "file", "").write("x");
  Log("/proc/nowhere", "").write("x");
  Log(directory.path(), "pipe-").write("x");
}

TEST(Log, StaysInItsDirectory) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "logs");
  Log(directory.path() / "logs", "../").write("x");
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "tesselclient.log"));
}

}  // namespace
}  // namespace support
