// What becomes of an exception that a handler throws.
#include <Zint/Request.h>

#include <gmock/gmock.h>
#include <pthread.h>
#include <runtime/Probes.h>
#include <support/ManualLoop.h>
#include <support/TraceCapture.h>

#include <stdexcept>

namespace {

using Probes::Watch;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::Ptr;

struct NotifieeGuardTest : testing::Test {
  Support::TraceCapture trace;
  Support::ManualLoop loop;
  Ptr<Zint::Request> request = makePtr<Zint::Request>("request");
  Ptr<Watch> first = makePtr<Watch>(loop.activity, request);
  Ptr<Watch> second = makePtr<Watch>(loop.activity, request);
};

TEST_F(NotifieeGuardTest, anExceptionDoesNotLeaveTheSetter) {
  first->reaction = [] { throw std::runtime_error("broken"); };
  EXPECT_NO_THROW(request->statusIs(Zint::Request::done_));
  EXPECT_EQ(request->status(), Zint::Request::done_);
}

TEST_F(NotifieeGuardTest, theRemainingNotifieesAreStillTold) {
  first->reaction = [] { throw std::runtime_error("broken"); };
  request->statusIs(Zint::Request::done_);
  request->statusIs(Zint::Request::done_);
  EXPECT_THAT(second->told, ElementsAre(259, 259));
  EXPECT_THAT(first->told, ElementsAre(259, 259));
}

TEST_F(NotifieeGuardTest, theNotifieeIsGivenTheAttribute) {
  first->reaction = [] { throw std::runtime_error("broken"); };
  request->statusIs(Zint::Request::done_);
  EXPECT_THAT(first->reported, ElementsAre(259));
  EXPECT_THAT(second->reported, IsEmpty());
  EXPECT_EQ(first->attribute(), 0u);
}

TEST_F(NotifieeGuardTest, theExceptionIsTracedAtLevel0ByTheRuntimesHandle) {
  first->reaction = [] { throw std::runtime_error("broken"); };
  request->statusIs(Zint::Request::done_);
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].handle, "Zint");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].text, "exception in a handler of Zint::Request attribute 259: broken");
}

TEST_F(NotifieeGuardTest, anExceptionOfAnyTypeIsGuarded) {
  first->reaction = [] { throw 7; };
  request->statusIs(Zint::Request::done_);
  EXPECT_THAT(first->reported, ElementsAre(259));
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text,
            "exception in a handler of Zint::Request attribute 259: an exception of another kind");
}

TEST_F(NotifieeGuardTest, onNotificationExceptionIsGuardedToo) {
  first->reaction = [] { throw std::runtime_error("broken"); };
  first->onReport = [] { throw std::runtime_error("again"); };
  EXPECT_NO_THROW(request->statusIs(Zint::Request::done_));
  EXPECT_THAT(second->told, ElementsAre(259));
  ASSERT_EQ(trace.full.size(), 2u);
  EXPECT_EQ(trace.full[1].text,
            "exception in onNotificationException of Zint::NotifieeConst attribute 259: again");
  EXPECT_EQ(trace.full[1].level, 0u);
}

TEST_F(NotifieeGuardTest, aHandlerMayThrowAfterItDroppedItself) {
  first->reaction = [this] {
    first = nullptr;
    throw std::runtime_error("broken");
  };
  request->statusIs(Zint::Request::done_);
  EXPECT_THAT(second->told, ElementsAre(259));
  EXPECT_EQ(trace.full.size(), 1u);
}

TEST_F(NotifieeGuardTest, anExceptionThrownInANestedChangeStaysInside) {
  second->reaction = [] { throw std::runtime_error("broken"); };
  first->reaction = [this] {
    if (first->attribute() == 259) request->stateIs(Zint::Request::start_);
  };
  request->statusIs(Zint::Request::done_);
  EXPECT_THAT(first->reported, IsEmpty());
  EXPECT_THAT(second->reported, ElementsAre(258, 260, 259));
}

// The end of a thread inside a handler is no exception: it unwinds through the guard.
TEST_F(NotifieeGuardTest, forcedUnwindingIsLetThrough) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizers object to what g++ binds a catch of forced unwinding to";
#endif
  struct Story {
    bool handled = false;
    bool cameBack = false;
    bool unwound = false;
  } story;
  const auto body = [](void* argument) -> void* {
    auto* s = static_cast<Story*>(argument);
    struct Unwound {
      ~Unwound() { flag = true; }
      bool& flag;
    } const unwound{s->unwound};
    const Ptr<Zint::Request> of = makePtr<Zint::Request>("request");
    const Ptr<Watch> watch = makePtr<Watch>(nullptr, of);
    watch->reaction = [s] {
      s->handled = true;
      pthread_exit(nullptr);
    };
    of->statusIs(Zint::Request::done_);
    s->cameBack = true;
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, body, &story), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_TRUE(story.handled);
  EXPECT_TRUE(story.unwound);
  EXPECT_FALSE(story.cameBack);
  EXPECT_THAT(trace.full, IsEmpty());
}

}  // namespace
