#include <telemetry/Publisher.h>

#include <telemetry/Publishing.h>
#include <telemetry/Telemetry.h>

#include <array>
#include <atomic>

namespace Telemetry {
namespace {

// Those that an assertion tells, before it ends the process. More than that are not told.
std::array<std::atomic<Publishing*>, 8> failingPublishings{};
std::atomic<Zint::AssertionHook> hookBefore{nullptr};

void tellFailure(const Zint::AssertionFailure& failure) {
  for (const auto& each : failingPublishings) {
    if (Publishing* publishing = each.load()) publishing->handleAssertion(failure);
  }
  if (const Zint::AssertionHook before = hookBefore.load()) before(failure);
}

// A hook that was installed after this one stays, and calls this one or not.
void enterFailing(Publishing* publishing) {
  const Zint::AssertionHook before = Zint::assertionHookIs(&tellFailure);
  if (before != &tellFailure) hookBefore.store(before);
  for (auto& each : failingPublishings) {
    Publishing* none = nullptr;
    if (each.compare_exchange_strong(none, publishing)) return;
  }
}

void leaveFailing(Publishing* publishing) {
  for (auto& each : failingPublishings) {
    Publishing* it = publishing;
    each.compare_exchange_strong(it, nullptr);
  }
}

constexpr const char* nullObject = "null object to be published not allowed";

template <class T>
std::vector<Zint::Ptr<T>> objectsOf(const Publishing& publishing, TableId table) {
  std::vector<Zint::Ptr<T>> found;
  for (const auto& subject : publishing.objects()) {
    if (subject->table != table) continue;
    const auto* object = static_cast<const T*>(subject->weak->notifier());
    if (object != nullptr) found.emplace_back(const_cast<T*>(object));
  }
  return found;
}

}  // namespace

Publisher::Ptr publisherFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                const Zint::Ptr<const Zint::Clock>& clock, Zint::Name name,
                                const PublisherOptions& options) {
  return Zint::makePtr<Publisher>(std::move(name), activity, clock, options);
}

Publisher::Publisher(Zint::Name name, const Zint::Ptr<Zint::ActivityConfig>& activity,
                     const Zint::Ptr<const Zint::Clock>& clock, const PublisherOptions& options)
    : Entity(std::move(name)) {
  refuseNull(activity, "null activity parameter to Telemetry::Publisher not allowed");
  refuseNull(clock, "null clock parameter to Telemetry::Publisher not allowed");
  publishing_ = std::make_unique<Publishing>(*this, activity, clock, options);
  publishing_->addObject(TableId::publisher, Zint::Ptr<const Publisher>(this), {});
  enterFailing(publishing_.get());
}

Publisher::~Publisher() {
  if (publishing_ == nullptr) return;
  leaveFailing(publishing_.get());
  publishing_->close();
}

const Zint::Type* Publisher::fwkType() const { return &publisherType; }

// --- What is shown ---

void Publisher::shadowIs(const Hardware::HardwareShadow::Ptr& shadow, const Zint::String8& name) {
  publishing_->addShadow(refuseNull(shadow, nullObject), name.bytes());
}
void Publisher::readerIs(const Zint::Ptr<Hardware::ChipReader>& reader, const Zint::String8& name) {
  publishing_->addObject(TableId::reader, refuseNull(reader, nullObject), name.bytes());
}
void Publisher::alarmBoardIs(const Driver::AlarmBoard::Ptr& board) {
  publishing_->addBoard(refuseNull(board, nullObject));
}
void Publisher::governorIs(const Driver::Governor::Ptr& governor, const Zint::String8& name) {
  publishing_->addObject(TableId::governor, refuseNull(governor, nullObject), name.bytes());
}

std::vector<Hardware::HardwareShadow::Ptr> Publisher::shadows() const {
  std::vector<Hardware::HardwareShadow::Ptr> found;
  for (const auto& shadow : publishing_->shadows()) {
    if (Hardware::HardwareShadow::Ptr hardware = shadow->hardware(); hardware != nullptr) {
      found.push_back(std::move(hardware));
    }
  }
  return found;
}
std::vector<Driver::AlarmBoard::Ptr> Publisher::alarmBoards() const {
  std::vector<Driver::AlarmBoard::Ptr> found;
  for (const auto& board : publishing_->boards()) {
    if (Driver::AlarmBoard::Ptr held = board->board(); held != nullptr) {
      found.push_back(std::move(held));
    }
  }
  return found;
}
std::vector<Zint::Ptr<Hardware::ChipReader>> Publisher::readers() const {
  return objectsOf<Hardware::ChipReader>(*publishing_, TableId::reader);
}
std::vector<Driver::Governor::Ptr> Publisher::governors() const {
  return objectsOf<Driver::Governor>(*publishing_, TableId::governor);
}

Zint::String8 Publisher::nameOf(const Zint::PtrInterface& object) const {
  for (const auto& shadow : publishing_->shadows()) {
    if (shadow->weak->notifier() == &object) return shadow->name;
  }
  for (const auto& subject : publishing_->objects()) {
    if (subject->weak->notifier() == &object) return subject->name;
  }
  return {};
}

// --- For the control socket ---

void Publisher::socketsAre(const std::string& look, const std::string& admin) {
  publishing_->view().socketsAre(look, admin);
}
void Publisher::commandIs(U32 uid, U32 pid, std::string_view line) {
  publishing_->events().command(uid, pid, line, publishing_->times());
}
void Publisher::eventIs(const EventLog::Data& event) {
  publishing_->events().add(event, publishing_->times());
}
void Publisher::doPublish() {
  const Ptr self(this);
  publishing_->doPublish();
}

// --- What it has done ---

Zint::String8 Publisher::directory() const { return publishing_->options().directory; }
std::string Publisher::livePath() const {
  return publishing_->options().directory + "/" + name().bytes() + ".live";
}
std::string Publisher::eventsPath() const {
  return publishing_->options().directory + "/" + name().bytes() + ".events";
}
std::string Publisher::tracePath() const {
  return publishing_->options().directory + "/" + name().bytes() + ".trace";
}
U64 Publisher::publications() const { return publishing_->view().publications(); }
U32 Publisher::notFit() const { return publishing_->view().notFit(); }
U32 Publisher::fileBytes() const { return publishing_->view().bytes(); }
U64 Publisher::events() const { return publishing_->events().last(); }
U64 Publisher::eventsSuppressed() const { return publishing_->events().suppressed(); }
U64 Publisher::errors() const { return errors_; }
Zint::String8 Publisher::lastError() const { return lastError_; }
Zint::Seconds Publisher::longestTurn() const { return publishing_->longestTurn(); }

void Publisher::errorIs(const std::string& error) {
  ++errors_;
  lastError_ = error;
  TELEMETRY_TRACE(0, name() << ": " << error);
  notify(Id::errors);
}

// --- Notifiees ---

Publisher::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const Zint::Ptr<const Publisher>& publisher, bool active)
    : Entity::NotifieeConst(activity, publisher, active) {}
Publisher::NotifieeConst::~NotifieeConst() = default;

void Publisher::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  if (attribute() == Id::errors) return onErrors();
  return Entity::NotifieeConst::handleNotification(activity);
}

}  // namespace Telemetry
