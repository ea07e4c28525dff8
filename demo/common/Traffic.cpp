#include "demo/common/Traffic.h"

#include <algorithm>

namespace Demo {

void Traffic::onTime() {
  slice();
  timeMinIs(Zint::now() + interval);
}

Traffic::Run Traffic::run() {
  std::vector<Table>& tables = switch_.tables();
  Table& table = tables[below(static_cast<U32>(tables.size()))];
  const U32 entry = below(table.layout->entries);
  return {table, entry, std::min(1 + below(entriesPerRun), table.layout->entries - entry)};
}

// Software that writes its configuration again, unchanged, is as common as a change: each run of
// writes is one or the other.
void Traffic::slice() {
  for (U32 i = 0; i < writesPerSlice; ++i) {
    const Run written = run();
    const bool isChange = below(2) == 0;
    for (U32 e = 0; isChange && e < written.entries; ++e)
      ++written.table.versions[written.entry + e];
    switch_.configureEntries(written.table, written.entry, written.entries);
  }
  for (U32 i = 0; i < readsPerSlice; ++i) {
    const Run seen = run();
    buffer_.resize(seen.entries * seen.table.layout->entrySize);
    switch_.read(seen.table, seen.entry, buffer_.data(), seen.entries);
  }
}

}  // namespace Demo
