// Memory that runs out on demand, and an account of every block.
//
// The program's own operator new, calloc and free serve the library as well. While `counting`, each
// block is numbered (1, 2, ...) and entered into an account until it is freed; the blocks that the
// plan names are refused.
#pragma once

#include <Zint/Types.h>

#include <cstddef>

namespace Sweep::Memory {

enum class Refusal { none, once, fromThenOn };

// A new count: numbers begin at 1, and the account is empty. Block `number` is refused, or that one
// and all after it.
void begin(Refusal refusal, U64 number);
// Memory is back; counting goes on.
void endRefusal();

U64 blocksAsked();  // since begin()
bool refused();     // whether any was
// Blocks of this count that are not freed yet, and the number of the first of them (0: none).
std::size_t blocksLive();
U64 firstLive();

// Counts, and refuses, while one is alive; not nested in another.
class Counting {
 public:
  Counting();
  ~Counting();
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;
};

}  // namespace Sweep::Memory
