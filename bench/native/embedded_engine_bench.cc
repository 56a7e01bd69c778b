// What the embedded engine costs: the share of one processor core that a call takes while it runs
// in real time, and how many frames it delivers meanwhile.
//
// Usage: embedded_engine_bench [seconds for each call]

#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tesselclient/tesselclient.h"

namespace {

using Seconds = std::chrono::duration<double>;

// Waits for the call to be joined; ignores everything else.
class JoinWitness final : public INotifyCallback {
 public:
  void waitUntilJoined() { joined_.get_future().wait(); }

  void NotifyInitCompleted() override {}
  void NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int>, unsigned int) override {}
  void NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int>, unsigned int) override {}
  void NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int>, unsigned int) override {}
  void NotifyGracefulEvent(std::string, bool) override { joined_.set_value(); }
  void NotifyCallConnectionStatus(bool) override {}
  void NotifyScreenShareStatus(ShareStatus) override {}
  void NotifyContentReceiveStatus(bool, std::string) override {}
  void NotifyCallDisconnect(int, std::string reason, int) override {
    std::fprintf(stderr, "%s\n", reason.c_str());
    std::_Exit(EXIT_FAILURE);
  }
  void NotifyMediaMuteState(MediaType, bool) override {}
  void NotifyMicLevel(unsigned int) override {}
  void NotifyRtpMediaState(MediaType, bool) override {}
  void NotifyDeviceChange(std::string, DeviceType) override {}
  void NotifyEvent(const std::string&, const std::string&) override {}
  void NotifyUpdateVOQualityIndex(VSPVoQualityIndex) override {}

 private:
  std::promise<void> joined_;
};

double processorSeconds() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void measure(int participants, const std::string& size, Seconds length) {
  const auto witness = std::make_shared<JoinWitness>();
  const std::unique_ptr<TSLM::TSLMManager> manager(
      TSLM::TSLMManager::CreateTSLMManager(tsl::CreateParams()));
  manager->RegisterNotifyCallback(witness);
  manager->Initialize();
  tsl::ConnectParams params;
  params.uri = "tessel:bench?fps=30&size=" + size + "&participants=" + std::to_string(participants);
  params.mediaStreamState.incomingVideoEnabled = true;
  params.gracefulEvents = {{"joined", true}};
  manager->ConnectCall(params);
  witness->waitUntilJoined();
  // The first second fills the pool.
  std::this_thread::sleep_for(std::chrono::seconds(1));

  const auto lastFrames = [&] {
    std::uint64_t sum = 0;
    for (int i = 0; i < participants; ++i) {
      VideoFrame frame;
      manager->GetFrameManager({TSLM_STREAM_REMOTE, i})->GetFrame(0, frame);
      sum += frame.frameId;
    }
    return sum;
  };
  const auto start = std::chrono::steady_clock::now();
  const double processorStart = processorSeconds();
  const std::uint64_t framesStart = lastFrames();
  std::this_thread::sleep_for(length);
  const auto frames = static_cast<double>(lastFrames() - framesStart);
  const double processor = processorSeconds() - processorStart;
  const Seconds real = std::chrono::steady_clock::now() - start;
  std::printf("%2d streams %9s @30: %5.1f %% of a core, %7.1f frames/s of %d, %5.1f us a frame\n",
              participants, size.c_str(), 100 * processor / real.count(), frames / real.count(),
              participants * 30, frames > 0 ? 1e6 * processor / frames : 0);
}

}  // namespace

int main(int argc, char** argv) {
  const Seconds length(argc > 1 ? std::atof(argv[1]) : 5);
  measure(0, "640x360", length);
  measure(1, "640x360", length);
  measure(10, "640x360", length);
  measure(50, "640x360", length);
  measure(50, "160x90", length);
  measure(10, "1280x720", length);
}
