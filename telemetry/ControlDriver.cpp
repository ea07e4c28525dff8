// Commands that know the driver layer: policyText, dump, check, plan.
#include <Driver/Check.h>
#include <Driver/ChipWriter.h>
#include <Zint/Bytes.h>
#include <telemetry/ControlTask.h>
#include <telemetry/NamesRulesChecks.h>

#include <algorithm>
#include <cstring>

namespace Telemetry {
namespace {

using Driver::AuditedShadow;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

std::vector<Zint::Ptr<const HardwareShadow>> shadowsOf(const ControlWorld& world) {
  std::vector<Zint::Ptr<const HardwareShadow>> shadows;
  for (const Zint::Result& each : world.names.results()) {
    const auto* shadow = dynamic_cast<const HardwareShadow*>(each.object.ptr());
    if (shadow != nullptr) shadows.emplace_back(shadow);
  }
  return shadows;
}

// The one of "/" that audits by itself and has the region; null when none does.
Zint::Ptr<const AuditedShadow> shadowOf(const ControlWorld& world, const ChipMemory& region) {
  for (const auto& each : shadowsOf(world)) {
    const auto* shadow = dynamic_cast<const AuditedShadow*>(each.ptr());
    if (shadow != nullptr && shadow->chipMemory(region.address()).ptr() == &region) {
      return Zint::Ptr<const AuditedShadow>(shadow);
    }
  }
  return nullptr;
}

class RegionTask : public PathTask {
 public:
  using PathTask::PathTask;

 protected:
  bool begin(ControlAnswer& answer, std::string&) final {
    // What is read only is so through this: nothing here changes the region.
    auto* region =
        dynamic_cast<ChipMemory*>(const_cast<Zint::PtrInterface*>(place().result.object.ptr()));
    if (region == nullptr) throw Error(place().name() + " is no region");
    region_ = ChipMemory::Ptr(region);
    shadow_ = shadowOf(world(), *region_);
    return beginAt(answer);
  }
  virtual bool beginAt(ControlAnswer& answer) = 0;

  void requireEntry(U64 entry) const {
    if (entry < region_->entries()) return;
    throw Error("entry (" + std::to_string(entry) + ") must be below the entries (" +
                std::to_string(region_->entries()) + ") of " + region_->name().bytes());
  }

  ChipMemory::Ptr region_;
  Zint::Ptr<const AuditedShadow> shadow_;  // null: none audits it by itself
};

class PolicyTextTask : public RegionTask {
 public:
  PolicyTextTask(ControlSession& session, const ControlLine& line)
      : RegionTask(session, textIn(line, "path")), entry_(numberIn(line, "entry", 0)) {}

 protected:
  bool beginAt(ControlAnswer& answer) override {
    requireEntry(entry_);
    if (shadow_ == nullptr) throw Error("no shadow of / audits " + place().name() + " by itself");
    const Zint::String8 text = shadow_->policyText(region_, static_cast<U32>(entry_));
    AnswerFields(answer)
        .text("path", place().name())
        .number("entry", entry_)
        .text("text", text.bytes());
    return true;
  }

 private:
  const U64 entry_;
};

class DumpTask : public RegionTask {
 public:
  // Bytes of an entry that are shown at most.
  static constexpr U32 longestEntry = 256;

  DumpTask(ControlSession& session, const ControlLine& line)
      : RegionTask(session, textIn(line, "path")),
        at_(numberIn(line, "first", 0)),
        count_(numberIn(line, "count", 1)),
        isOnChip_(flagIn(line, "chip")) {
    if (isOnChip_) session.require(Zint::Level::operate, "to read a chip");
  }

 protected:
  bool beginAt(ControlAnswer& answer) override {
    requireEntry(at_);
    end_ = std::min(U64{region_->entries()}, at_ + std::min(count_, U64{region_->entries()}));
    if (isOnChip_) {
      require(region_->mode() != ChipMemory::override(),
              region_->name().bytes() + " is in mode override: it cannot be read");
      require(region_->entrySize() <= longestEntry, "its entries are too long");
      requireAccess(region_->chipHam().ptr(), region_->entrySize(), 1);
    }
    AnswerFields(answer)
        .text("path", place().name())
        .number("entrySize", U64{region_->entrySize()});
    answer.hasItemsIs();
    return at_ >= end_;
  }

  bool proceed(ControlAnswer& answer, std::string& out) override {
    const auto entry = static_cast<U32>(at_);
    requireEntry(entry);  // the region may have shrunk
    std::string item;
    JsonMembers members(item);
    const Driver::RegisterNames::Ptr names =
        shadow_ == nullptr ? nullptr : shadow_->registerNames();
    members.number("entry", at_)
        .text("address", region_->entryAddress(entry).stringValue().bytes());
    appendBytes(members, "expected", region_->shadow().ptr(), entry);
    members.flag("known", isKnown(entry));
    bool isReadable = true;
    chipBytes_.clear();
    if (shadow_ != nullptr) {
      members.flag("isWritten", shadow_->isWritten(region_, entry));
      if (const auto policy = shadow_->policy(region_); policy != nullptr) {
        const Driver::Rule rule = policy->rule(entry);
        members.text("policy", Driver::stringValue(rule).bytes());
        isReadable = rule != Driver::Rule::noRead && rule != Driver::Rule::writeOnly;
      }
    }
    if (!isOnChip_) {
      appendBytes(members, "actual", region_->hardware().ptr(), entry);
    } else if (isReadable) {
      readChip(members, entry);
    }
    if (names != nullptr) appendNames(members, *names, entry);
    members.end();
    answer.item(item, out);
    return ++at_ >= end_;
  }

 private:
  // What the names say of the entry; those that throw say nothing.
  void appendNames(JsonMembers& members, const Driver::RegisterNames& names, U32 entry) {
    const std::span<const U8> expected = entryOf(region_->shadow().ptr(), entry);
    const std::span<const U8> actual =
        isOnChip_ ? std::span<const U8>(chipBytes_) : entryOf(region_->hardware().ptr(), entry);
    std::string name, value, difference;
    try {
      name = names.entryName(*region_, entry).bytes();
      if (!expected.empty()) value = names.valueText(*region_, entry, expected).bytes();
      if (isOnChip_ && isKnown(entry) && expected.size() == actual.size()) {
        std::vector<U8> mask;
        const auto policy = shadow_->policy(region_);
        const U8* const bits = policy == nullptr ? nullptr : policy->mask(entry);
        if (bits != nullptr) mask.assign(bits, bits + region_->entrySize());
        difference = names.differenceText(*region_, entry, expected, actual, mask).bytes();
      }
    } catch (const std::exception&) {
      return;
    }
    if (!name.empty()) members.text("name", name);
    if (!value.empty()) members.text("fields", value);
    if (!difference.empty()) members.text("difference", difference);
  }

  // The entry's bytes; empty where the buffer does not hold them.
  std::span<const U8> entryOf(const Hal::BufBase* buffer, U32 entry) const {
    const U64 offset = U64{entry} * region_->entrySize();
    if (buffer == nullptr || offset + region_->entrySize() > buffer->size()) return {};
    return {buffer->data() + offset, region_->entrySize()};
  }

  void appendBytes(JsonMembers& members, const char* name, const Hal::BufBase* buffer, U32 entry) {
    const U64 offset = U64{entry} * region_->entrySize();
    if (buffer == nullptr || offset + region_->entrySize() > buffer->size()) return;
    const U8* first = buffer->data() + offset;
    const U32 size = std::min(region_->entrySize(), longestEntry);
    members.text(name, Zint::valueToStrep(Zint::Bytes{{first, first + size}}).bytes());
  }

  void readChip(JsonMembers& members, U32 entry) {
    Zint::Bytes bytes{std::vector<U8>(region_->entrySize())};
    const auto ham = region_->chipHam();
    ham->doRead(region_->entryAddress(entry), bytes.bytes.data(), region_->entrySize(), 1);
    members.text("actual", Zint::valueToStrep(bytes).bytes());
    chipBytes_ = std::move(bytes.bytes);
  }

  bool isKnown(U32 entry) const {
    const auto bits = region_->initialized();
    return bits != nullptr && entry < U64{bits->size()} * 8 && region_->entryInitialized(entry);
  }

  U64 at_;
  U64 end_ = 0;
  const U64 count_;
  const bool isOnChip_;
  std::vector<U8> chipBytes_;  // that were read last
};

class CheckTask : public PathTask {
 public:
  CheckTask(ControlSession& session, const ControlLine& line) : PathTask(session, pathIn(line)) {
    session.require(Zint::Level::operate, "check");
  }

 protected:
  bool begin(ControlAnswer& answer, std::string&) override {
    all_ = shadowsOf(world());
    if (place().kind == Place::root) {
      shadows_ = all_;
    } else {
      const auto* shadow = dynamic_cast<const HardwareShadow*>(place().result.object.ptr());
      if (shadow == nullptr) throw Error(place().name() + " is no shadow");
      shadows_.emplace_back(shadow);
    }
    answer.hasItemsIs();
    return shadows_.empty();
  }

  bool proceed(ControlAnswer& answer, std::string& out) override {
    ++world().operations;
    Driver::CheckWith with;
    with.shadows = all_;
    for (const auto& complaint : Driver::check(shadows_[at_], with)) {
      std::string item;
      appendQuoted(item, complaint->stringValue().bytes());
      answer.item(item, out);
    }
    return ++at_ == shadows_.size();
  }

 private:
  std::vector<Zint::Ptr<const HardwareShadow>> all_, shadows_;
  std::size_t at_ = 0;
};

class PlanTask : public PathTask {
 public:
  PlanTask(ControlSession& session, const ControlLine& line)
      : PathTask(session, textIn(line, "path")) {
    session.require(Zint::Level::operate, "plan");
  }

 protected:
  bool begin(ControlAnswer& answer, std::string& out) override {
    auto* object = const_cast<Zint::PtrInterface*>(place().result.object.ptr());
    AuditedShadow::Ptr shadow(dynamic_cast<AuditedShadow*>(object));
    Driver::ChipWriteRequest::Ptr request(dynamic_cast<Driver::ChipWriteRequest*>(object));
    if (shadow != nullptr) {
      request = Driver::chipWriteRequestFactory("plan");
      for (auto each = shadow->chipMemoryIterator(); each; ++each) {
        request->chipMemoryIs(each->chipMemory());
      }
    } else if (request != nullptr) {
      shadow = anyShadow();
    } else {
      throw Error(place().name() + " is no shadow that audits by itself and no write request");
    }
    ++world().operations;
    // Its reactors stay off: it plans and does nothing.
    const auto writer = Zint::makePtr<Driver::ChipWriter>(
        shadow->zintFwkActivity(), shadow, request, shadow->clock(), 64u, 1024u, 0.001);
    const std::string text = writer->plan().stringValue().bytes();
    answer.hasItemsIs();
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      std::string item;
      appendQuoted(item, std::string_view(text).substr(at, end - at));
      answer.item(item, out);
      at = end + 1;
    }
    return true;
  }

 private:
  AuditedShadow::Ptr anyShadow() {
    for (const Zint::Result& each : world().names.results()) {
      auto* object = const_cast<Zint::PtrInterface*>(each.object.ptr());
      if (auto* shadow = dynamic_cast<AuditedShadow*>(object); shadow != nullptr) {
        return AuditedShadow::Ptr(shadow);
      }
    }
    throw Error("/ has no shadow that audits by itself");
  }
};

}  // namespace

std::unique_ptr<ControlTask> driverTask(ControlSession& session, const std::string& command,
                                        const ControlLine& line) {
  if (command == "policyText") return std::make_unique<PolicyTextTask>(session, line);
  if (command == "dump") return std::make_unique<DumpTask>(session, line);
  if (command == "check") return std::make_unique<CheckTask>(session, line);
  if (command == "plan") return std::make_unique<PlanTask>(session, line);
  return nullptr;
}

}  // namespace Telemetry
