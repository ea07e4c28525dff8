// A fault that lasts until this object ends.
//
//   {
//     const TestKit::Fault gone = chip->absent();
//     ...                      // reads give all-ones, writes are lost
//     EXPECT_GT(gone.hits(), 0u);
//   }                          // the chip is back
//
// FakeChip makes them.
#pragma once

#include <Zint/Types.h>

#include <memory>

namespace TestKit {

// What an absent chip answers.
enum class Absence : U8 { allOnes, zeros, error };

struct FaultState;

class [[nodiscard]] Fault {
 public:
  explicit Fault(std::shared_ptr<FaultState> state) : state_(std::move(state)) {}
  Fault(Fault&&) = default;
  // The fault that was held ends.
  Fault& operator=(Fault&& other) noexcept;
  ~Fault() { end(); }

  // Ends it now.
  void end();
  // How often it had an effect. A test that expects a fault to be survived asks whether there was
  // one. (stuckAt: writes, reads and resets that would have changed a stuck bit.)
  U64 hits() const;

 private:
  std::shared_ptr<FaultState> state_;
};

}  // namespace TestKit
