#include "simulation/Journal.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ostream>

namespace Simulation {

const char* eventName(std::size_t kind) {
  static constexpr const char* names[] = {
#define X(name) #name,
      SIMULATION_EVENTS(X)
#undef X
  };
  return names[kind];
}

const char* ruleName(Rule rule) {
  static constexpr const char* names[] = {"attributed", "repaired", "settled", "answered", "paced"};
  return names[static_cast<U32>(rule)];
}

std::string format(const char* pattern, ...) {
  char text[400];
  va_list arguments;
  va_start(arguments, pattern);
  std::vsnprintf(text, sizeof text, pattern, arguments);
  va_end(arguments);
  return text;
}

std::string hexadecimal(const U8* data, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += format("%02x", data[i]);
  return text;
}

void Journal::timeIs(Zint::Seconds time) {
  if (time == time_) return;
  time_ = time;
  U64 bits;
  std::memcpy(&bits, &time, sizeof bits);
  mix(bits);
}

void Journal::record(Event event, U32 region, U32 entry, U64 value) {
  ++counts_[static_cast<std::size_t>(event)];
  mix(static_cast<U64>(event) << 32 | region);
  mix(U64{entry} << 32 ^ value);
  if (keptLines_ == 0) return;
  std::string text = eventName(static_cast<std::size_t>(event));
  if (region != nowhere) text += format(" region %u entry %u", region, entry);
  line(text + format(" value %llu", static_cast<unsigned long long>(value)));
}

void Journal::recordAccess(const char* kind, U32 chip, U32 offset, const U8* data, U32 size) {
  mix(U64{chip} << 48 ^ U64{static_cast<U8>(kind[0])} << 40 ^ offset);
  mix(data, size);
  if (keptLines_ == 0) return;
  line(format("chip %u %s 0x%x ", chip, kind, offset) + hexadecimal(data, size));
}

void Journal::recordAnswer(bool answer, const U8* data, U32 size) {
  mix(answer);
  mix(data, size);
  if (keptLines_ == 0) return;
  line(std::string("  answer ") + (answer ? "true " : "false ") + hexadecimal(data, size));
}

void Journal::recordTrace(U32 level, const char* text) {
  mix(level);
  mix(reinterpret_cast<const U8*>(text), std::strlen(text));
  if (keptLines_ != 0) line(format("  trace %u: ", level) + text);
}

void Journal::broken(Rule rule, const std::string& text) {
  broken_ |= 1u << static_cast<U32>(rule);
  const std::string whole = format("rule \"%s\" broken at %.3f s: ", ruleName(rule), time_) + text;
  if (failure_.empty()) failure_ = whole;
  if (keptLines_ != 0) line(whole);
  closed_ = isOver();
}

void Journal::mix(const U8* data, std::size_t size) {
  mix(size);
  for (std::size_t at = 0; at < size; at += 8) {
    U64 word = 0;
    std::memcpy(&word, data + at, size - at < 8 ? size - at : 8);
    mix(word);
  }
}

void Journal::line(const std::string& text) {
  if (closed_) return;
  const std::string whole = format("%14.3f  ", time_) + text;
  if (echo_ != nullptr) *echo_ << whole << "\n";
  lines_.push_back(whole);
  if (lines_.size() > keptLines_) lines_.pop_front();
}

}  // namespace Simulation
