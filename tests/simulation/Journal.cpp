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

std::string formatted(const char* pattern, ...) {
  char text[400];
  va_list arguments;
  va_start(arguments, pattern);
  std::vsnprintf(text, sizeof text, pattern, arguments);
  va_end(arguments);
  return text;
}

std::string hexadecimal(const U8* data, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += formatted("%02x", data[i]);
  return text;
}

void Journal::timeIs(Zint::Seconds time) {
  if (time == time_) return;
  time_ = time;
  U64 bits;
  std::memcpy(&bits, &time, sizeof bits);
  mixed(bits);
}

void Journal::happened(Event event, U32 region, U32 entry, U64 value) {
  ++counts_[static_cast<std::size_t>(event)];
  mixed(static_cast<U64>(event) << 32 | region);
  mixed(U64{entry} << 32 ^ value);
  if (keptLines_ == 0) return;
  std::string text = eventName(static_cast<std::size_t>(event));
  if (region != nowhere) text += formatted(" region %u entry %u", region, entry);
  line(text + formatted(" value %llu", static_cast<unsigned long long>(value)));
}

void Journal::accessed(const char* kind, U32 chip, U32 offset, const U8* data, U32 size) {
  mixed(U64{chip} << 48 ^ U64{static_cast<U8>(kind[0])} << 40 ^ offset);
  mixed(data, size);
  if (keptLines_ == 0) return;
  line(formatted("chip %u %s 0x%x ", chip, kind, offset) + hexadecimal(data, size));
}

void Journal::answered(bool answer, const U8* data, U32 size) {
  mixed(answer);
  mixed(data, size);
  if (keptLines_ == 0) return;
  line(std::string("  answer ") + (answer ? "true " : "false ") + hexadecimal(data, size));
}

void Journal::traced(U32 level, const char* text) {
  mixed(level);
  mixed(reinterpret_cast<const U8*>(text), std::strlen(text));
  if (keptLines_ != 0) line(formatted("  trace %u: ", level) + text);
}

void Journal::broken(Rule rule, const std::string& text) {
  broken_ |= 1u << static_cast<U32>(rule);
  const std::string whole =
      formatted("rule \"%s\" broken at %.3f s: ", ruleName(rule), time_) + text;
  if (failure_.empty()) failure_ = whole;
  if (keptLines_ != 0) line(whole);
  closed_ = isOver();
}

void Journal::mixed(const U8* data, std::size_t size) {
  mixed(size);
  for (std::size_t at = 0; at < size; at += 8) {
    U64 word = 0;
    std::memcpy(&word, data + at, size - at < 8 ? size - at : 8);
    mixed(word);
  }
}

void Journal::line(const std::string& text) {
  if (closed_) return;
  const std::string whole = formatted("%14.3f  ", time_) + text;
  if (echo_ != nullptr) *echo_ << whole << "\n";
  lines_.push_back(whole);
  if (lines_.size() > keptLines_) lines_.pop_front();
}

}  // namespace Simulation
