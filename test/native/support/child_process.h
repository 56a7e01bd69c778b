// A second process for tests with two processes.

#ifndef TEST_NATIVE_SUPPORT_CHILD_PROCESS_H_
#define TEST_NATIVE_SUPPORT_CHILD_PROCESS_H_

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace test {

// One end of a channel that synchronises two processes: each side notifies the other when it has
// reached a step, and waits until the other has.
class Conversation {
 public:
  void tell() const {
    const char step = '.';
    EXPECT_EQ(write(to_, &step, 1), 1);
  }
  // False when the other side has ended instead.
  [[nodiscard]] bool awaitOther() const {
    char step;
    return read(from_, &step, 1) == 1;
  }

 private:
  friend class ChildProcess;
  int to_ = -1;
  int from_ = -1;
};

// A forked child that runs a body and ends. Expectations that fail in the child fail in join().
class ChildProcess {
 public:
  // `body` gets the child's end of the channel.
  explicit ChildProcess(const std::function<void(const Conversation& parent)>& body) {
    int toChild[2];
    int toParent[2];
    if (pipe(toChild) != 0 || pipe(toParent) != 0) ADD_FAILURE() << "no pipes";
    std::fflush(stdout);
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(toChild[1]);
      close(toParent[0]);
      Conversation parent;
      parent.to_ = toParent[1];
      parent.from_ = toChild[0];
      body(parent);
      std::fflush(stdout);
      _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    close(toChild[0]);
    close(toParent[1]);
    conversation_.to_ = toChild[1];
    conversation_.from_ = toParent[0];
  }
  ~ChildProcess() {
    join();
    close(conversation_.to_);
    close(conversation_.from_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  const Conversation& conversation() const { return conversation_; }

  // Waits until the child has ended, and expects that it ended without an error.
  void join() {
    if (joined_) return;
    joined_ = true;
    int status = 0;
    ASSERT_EQ(waitpid(pid_, &status, 0), pid_);
    EXPECT_EQ(status, 0) << "the child failed";
  }

 private:
  pid_t pid_ = -1;
  bool joined_ = false;
  Conversation conversation_;
};

}  // namespace test

#endif  // TEST_NATIVE_SUPPORT_CHILD_PROCESS_H_
