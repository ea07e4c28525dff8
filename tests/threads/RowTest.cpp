// Rows that one thread writes while others read them. The thread sanitizer shows that every access
// is atomic; the order of the accesses is shown by rows-tests, with processes.
#include <gtest/gtest.h>
#include <telemetry/Row.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

constexpr U32 rowWords = 32;

U64 publications() {
  const char* text = std::getenv("UMBRA_POSTS");  // as many as functions are posted
  return text == nullptr ? 100'000 : std::strtoull(text, nullptr, 10);
}

TEST(Row, readersSeeWholePublicationsOfAThread) {
  alignas(Telemetry::rowAlignment) std::array<Telemetry::Word, rowWords> row{};
  std::atomic<bool> isEnded{false};
  std::atomic<U64> wrong{0};
  std::atomic<U64> whole{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      std::vector<U32> copy(rowWords);
      do {
        if (!Telemetry::readRow(row.data(), copy)) continue;
        ++whole;
        for (U32 at = 2; at < rowWords; ++at) {
          if (copy[at] != copy[1] * at) ++wrong;
        }
      } while (!isEnded.load(std::memory_order_relaxed));
    });
  }
  const U64 count = publications();
  for (U64 publication = 1; publication <= count; ++publication) {
    const U32 value = static_cast<U32>(publication);
    Telemetry::RowWriter writer(row.data());
    writer.word(1, value);
    for (U32 at = 2; at < rowWords; ++at) writer.word(at, value * at);
  }
  isEnded = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0u);
  EXPECT_GT(whole, 0u);
}

}  // namespace
