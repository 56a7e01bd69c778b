// Sharing content, as the application sees it.

#include "engine/embedded/streams/identity.h"
#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/embedded/engine_test.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kStarted = "share 0";
const std::string kFailed = "share 1";
const std::string kDenied = "share 2";
const std::string kTokenGranted = "share 3";
const std::string kTokenDenied = "share 4";
const std::string kStopped = "share 6";
const std::string kTokenRelinquished = "share 7";

class ContentShareTest : public EngineTest {
 protected:
  void join(const std::string& parameters = "participants=0") {
    connect("tessel:demo?" + parameters);
    takeLines();
  }
  Lines request() {
    manager_->RequestContentShareToken();
    return settled();
  }
  Lines release() {
    manager_->ReleaseContentShareToken();
    return settled();
  }
  Lines share(tsl::ShareType type, int screen, int application = -1, int window = -1) {
    manager_->StartPresentation({type, screen, application, window, true});
    return settled();
  }
  Lines stop() {
    manager_->StopPresentation();
    return settled();
  }
  Lines settled() {
    pass(0s);
    return takeLines();
  }
  std::uint32_t detail() { return codeOf(frameOf(support::kContentStream)).value().detail; }
};

TEST_F(ContentShareTest, TheTokenIsGrantedAndReleased) {
  join();
  EXPECT_THAT(request(), ElementsAre(kTokenGranted));
  EXPECT_THAT(request(), ElementsAre(kTokenGranted));
  EXPECT_THAT(release(), ElementsAre(kTokenRelinquished));
  EXPECT_THAT(release(), IsEmpty());
}

TEST_F(ContentShareTest, TheTokenIsDeniedWhileAParticipantPresents) {
  join("participants=1&present=0@1-2");
  pass(1s);
  takeLines();
  EXPECT_THAT(request(), ElementsAre(kTokenDenied));
  EXPECT_THAT(release(), IsEmpty());
  pass(1s);
  takeLines();
  EXPECT_THAT(request(), ElementsAre(kTokenGranted));
}

TEST_F(ContentShareTest, NothingIsGrantedOutsideACall) {
  EXPECT_THAT(request(), ElementsAre(kTokenDenied));
  EXPECT_THAT(share(tsl::ShareType::kScreen, 0), ElementsAre(kDenied));
  EXPECT_THAT(stop(), IsEmpty());
  EXPECT_THAT(release(), IsEmpty());
}

TEST_F(ContentShareTest, SharingWithoutTheTokenIsDenied) {
  join();
  EXPECT_THAT(share(tsl::ShareType::kScreen, 0), ElementsAre(kDenied));
  EXPECT_EQ(manager_->GetFrameManager(support::kContentStream), nullptr);
}

TEST_F(ContentShareTest, SharedContentArrivesAndShowsItsKindOfSource) {
  join();
  request();
  EXPECT_THAT(share(tsl::ShareType::kScreen, 1), ElementsAre("added content 0", kStarted));
  EXPECT_EQ(frameOf(support::kContentStream).width, 1280U);
  EXPECT_EQ(frameOf(support::kContentStream).csrc, csrcOf(1, support::kContentStream));
  EXPECT_EQ(codeOf(frameOf(support::kContentStream)),
            (support::CardCode{2, 0, 1, support::contentDetail(support::ContentKind::kScreen, 1)}));
  pass(1s);
  EXPECT_EQ(frameOf(support::kContentStream).frameId, 16U);
  EXPECT_THAT(stop(), ElementsAre("removed content 0", kStopped));
  EXPECT_EQ(manager_->GetFrameManager(support::kContentStream), nullptr);
  EXPECT_THAT(stop(), IsEmpty());
}

TEST_F(ContentShareTest, TheSharedSourceMayChange) {
  join();
  request();
  share(tsl::ShareType::kScreen, -1);
  EXPECT_EQ(detail(), support::contentDetail(support::ContentKind::kScreen, 0));
  EXPECT_THAT(share(tsl::ShareType::kApplication, 5, 7, 9),
              ElementsAre("updated content 0", kStarted));
  pass(100ms);
  EXPECT_EQ(detail(), support::contentDetail(support::ContentKind::kApplication, 7));
  share(tsl::ShareType::kWindow, 5, 7, 9);
  pass(100ms);
  EXPECT_EQ(detail(), support::contentDetail(support::ContentKind::kWindow, 9));
}

TEST_F(ContentShareTest, AnUnknownSourceCannotBeShared) {
  join();
  request();
  EXPECT_THAT(share(tsl::ShareType::kScreen, 2), ElementsAre(kFailed));
  EXPECT_THAT(share(tsl::ShareType::kScreen, -2), ElementsAre(kFailed));
  EXPECT_THAT(share(tsl::ShareType::kApplication, 0), ElementsAre(kFailed));
  EXPECT_THAT(share(tsl::ShareType::kWindow, 0, 0), ElementsAre(kFailed));
  EXPECT_THAT(share(static_cast<tsl::ShareType>(9), 0, 0, 0), ElementsAre(kFailed));
  EXPECT_EQ(manager_->GetFrameManager(support::kContentStream), nullptr);
}

TEST_F(ContentShareTest, NoScreenCanBeSharedWithoutAMonitor) {
  join("monitors=none");
  request();
  EXPECT_THAT(share(tsl::ShareType::kScreen, -1), ElementsAre(kFailed));
}

TEST_F(ContentShareTest, AFailedChangeKeepsTheSharedSource) {
  join();
  request();
  share(tsl::ShareType::kScreen, 1);
  EXPECT_THAT(share(tsl::ShareType::kScreen, 2), ElementsAre(kFailed));
  pass(100ms);
  EXPECT_EQ(detail(), support::contentDetail(support::ContentKind::kScreen, 1));
}

TEST_F(ContentShareTest, ReleasingTheTokenStopsTheSharing) {
  join();
  request();
  share(tsl::ShareType::kScreen, 0);
  EXPECT_THAT(release(), ElementsAre("removed content 0", kStopped, kTokenRelinquished));
}

TEST_F(ContentShareTest, TheEndOfTheCallEndsTheSharing) {
  join();
  request();
  share(tsl::ShareType::kScreen, 0);
  manager_->DisconnectCall();
  EXPECT_THAT(settled(), ElementsAre("removed content 0", kStopped, kTokenRelinquished,
                                     "not connected", "disconnect 1 0 the call was left"));
}

TEST_F(ContentShareTest, APresenterAddsAContentStream) {
  const std::string guid = guidOf(1, 1);
  join("participants=2&present=1@1-2");
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("content " + guid + " on", "added content 0"));
  EXPECT_EQ(detail(), support::contentDetail(support::ContentKind::kParticipant, 1));
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("removed content 0", "content " + guid + " off"));
  EXPECT_EQ(manager_->GetFrameManager(support::kContentStream), nullptr);
}

TEST_F(ContentShareTest, APresentationEndsWhenThePresenterLeavesOrTheCallEnds) {
  join("participants=2&present=1@1,0@3&leave=1@2&drop=4");
  pass(1s);
  takeLines();
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("removed content 0", "content " + guidOf(1, 1) + " off",
                                       "removed remote 1"));
  pass(1s);
  takeLines();
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("removed content 0", "content " + guidOf(1, 0) + " off",
                                       "removed remote 0", "not connected",
                                       "disconnect 1 503 the call was dropped"));
}

TEST_F(ContentShareTest, OnlyOneParticipantPresentsAtATime) {
  join("participants=2&present=0@1-5,1@2-3");
  pass(1s);
  takeLines();
  pass(3s);
  EXPECT_THAT(takeLines(), IsEmpty());
  EXPECT_EQ(detail(), support::contentDetail(support::ContentKind::kParticipant, 0));
}

TEST_F(ContentShareTest, NoParticipantPresentsWhileTheTokenIsHeld) {
  join("participants=1&present=0@1-2");
  request();
  pass(3s);
  EXPECT_THAT(takeLines(), IsEmpty());
}

}  // namespace
}  // namespace embedded
