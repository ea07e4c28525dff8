#include <Zint/Request.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>

namespace {

using Probes::Watch;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::Ptr;
using Zint::Request;

constexpr Zint::AttributeId state = 258;
constexpr Zint::AttributeId status = 259;
constexpr Zint::AttributeId generation = 260;

struct RequestTest : testing::Test {
  std::string log;
  Ptr<Request> request = makePtr<Request>("request");
  Ptr<Watch> watch = makePtr<Watch>(nullptr, request);
};

TEST_F(RequestTest, startsWithoutCommandAndAnswer) {
  EXPECT_EQ(request->state(), 0);
  EXPECT_EQ(request->status(), 0);
  EXPECT_EQ(request->generation(), 0u);
  EXPECT_EQ(request->name(), "request");
}

TEST_F(RequestTest, numbersOfCommandsAndAnswersAreFixed) {
  EXPECT_EQ(Request::idle_, 0);
  EXPECT_EQ(Request::start_, 1);
  EXPECT_EQ(Request::stop_, 2);
  EXPECT_EQ(Request::failed_, 2);
  EXPECT_EQ(Request::done_, 3);
}

TEST_F(RequestTest, stateIs_storesAndAnnouncesAlsoTheSameState) {
  request->stateIs(Request::start_);
  request->stateIs(Request::start_);
  EXPECT_EQ(request->state(), Request::start_);
  EXPECT_THAT(watch->told, ElementsAre(state, generation, state, generation));
}

TEST_F(RequestTest, statusIs_storesAndAnnouncesAlsoTheSameStatus) {
  request->statusIs(Request::done_);
  request->statusIs(Request::done_);
  EXPECT_EQ(request->status(), Request::done_);
  EXPECT_THAT(watch->told, ElementsAre(status, status));
}

TEST_F(RequestTest, stateIs_advancesTheGenerationAndStatusIsDoesNot) {
  request->stateIs(Request::start_);
  request->stateIs(Request::start_);
  request->stateIs(Request::stop_);
  EXPECT_EQ(request->generation(), 3u);
  request->statusIs(Request::done_);
  EXPECT_EQ(request->generation(), 3u);
}

TEST_F(RequestTest, generation_wraps) {
  request->generationIs(0xffffffff);
  request->stateIs(Request::start_);
  EXPECT_EQ(request->generation(), 0u);
}

TEST_F(RequestTest, generationIs_announcesAChangeOnly) {
  request->generationIs(0);
  EXPECT_THAT(watch->told, IsEmpty());
  request->generationIs(5);
  request->generationIs(5);
  EXPECT_THAT(watch->told, ElementsAre(generation));
}

TEST_F(RequestTest, status_isNeverResetByACommand) {
  request->statusIs(Request::done_);
  request->stateIs(Request::stop_);
  EXPECT_EQ(request->status(), Request::done_);
  request->stateIs(Request::start_);
  EXPECT_EQ(request->status(), Request::done_);
}

TEST_F(RequestTest, stateIs_hasStoredTheCommandWhenItIsAnnounced) {
  watch->reaction = [this] {
    EXPECT_EQ(request->state(), Request::start_);
    EXPECT_EQ(request->generation(), 1u);
  };
  request->stateIs(Request::start_);
  EXPECT_THAT(watch->told, ElementsAre(state, generation));
}

TEST_F(RequestTest, attributeString_namesItsMembers) {
  EXPECT_EQ(request->attributeString(257), "isNondestructing");
  EXPECT_EQ(request->attributeString(state), "state");
  EXPECT_EQ(request->attributeString(status), "status");
  EXPECT_EQ(request->attributeString(generation), "generation");
  EXPECT_EQ(request->attributeString(261), "unknown");
}

// Reacts to its own command.
class Serving : public Request {
 public:
  Serving(Zint::Name name, std::string& log) : Request(std::move(name)), log_(log) {}
  void handleState() override {
    log_ += "own;";
    if (reaction) reaction();
  }
  std::function<void()> reaction;

 protected:
  ~Serving() override { log_ += "gone;"; }

 private:
  std::string& log_;
};

TEST_F(RequestTest, stateIs_runsTheOwnHandlerBeforeTheNotifiees) {
  const Ptr<Serving> serving = makePtr<Serving>("serving", log);
  watch->notifierIs(serving);
  watch->reaction = [&] { log += "notifiee;"; };
  serving->stateIs(Request::start_);
  EXPECT_EQ(log, "own;notifiee;notifiee;");
}

TEST_F(RequestTest, stateIs_survivesAHandlerThatDropsTheRequest) {
  Ptr<Serving> serving = makePtr<Serving>("serving", log);
  serving->reaction = [&] {
    serving = nullptr;
    log += "dropped;";
  };
  serving->stateIs(Request::start_);
  EXPECT_EQ(log, "own;dropped;gone;");
}

// Dispatches to a handler per attribute.
class TypedWatch : public Request::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onState() override { log += "state;"; }
  void onStatus() override { log += "status;"; }
  void onGeneration() override { log += "generation;"; }
  void onIsNondestructing() override { log += "isNondestructing;"; }
  std::string log;

 protected:
  ~TypedWatch() override = default;
};

TEST_F(RequestTest, aTypedNotifieeIsCalledPerAttribute) {
  const Ptr<TypedWatch> typed = makePtr<TypedWatch>(nullptr, request);
  request->stateIs(Request::start_);
  request->statusIs(Request::failed_);
  request->generationIs(9);
  request->isNondestructingIs(false);
  EXPECT_EQ(typed->log, "state;generation;status;generation;isNondestructing;");
}

TEST_F(RequestTest, stateIs_announcesTheGenerationAfterTheState) {
  request->stateIs(Request::start_);
  EXPECT_THAT(watch->told, ElementsAre(state, generation));
  struct Seen : Request::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onGeneration() override { seen = static_cast<const Request*>(notifier())->generation(); }
    U32 seen = 0;
  };
  const Ptr<Seen> seen = makePtr<Seen>(nullptr, request);
  request->stateIs(Request::stop_);
  EXPECT_EQ(seen->seen, 2u);
}

// Each generation is announced once: the later command announces its own.
TEST_F(RequestTest, stateIs_whileTheStateIsAnnouncedAnnouncesEachGenerationOnce) {
  watch->reaction = [this] {
    if (watch->attribute() == state && request->state() == Request::start_)
      request->stateIs(Request::stop_);
  };
  request->stateIs(Request::start_);
  EXPECT_THAT(watch->told, ElementsAre(state, state, generation));
  EXPECT_EQ(request->generation(), 2u);
}

}  // namespace
