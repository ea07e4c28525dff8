// Tries every word over the alphabet on the library and on the model, and compares both after each
// letter.
#pragma once

#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "scopes/Alphabet.h"

namespace Scopes {

// A hash of all that can be observed of the model's world, its logs excepted.
U64 fingerprint(const Model::System& model);

struct Difference {
  Word word;  // after the prefix of the start; its last letter shows the difference
  std::string what;
};

struct Figures {
  U64 sequences = 0;  // words run, each compared after its last letter
  U64 endings = 0;    // of them: ended by a fatal assertion, on both sides alike
  U64 letters = 0;    // operations performed by the library
  U64 states = 0;     // distinct fingerprints
};

class Explorer {
 public:
  enum class Merge {
    none,    // every word
    states,  // of the words of one length that lead to equal states, only the first is continued
  };

  explicit Explorer(const Start& start) : start_(start) {}

  // Runs all words of 1 .. `depth` letters, shorter ones first. Null: the sides agreed in all.
  std::optional<Difference> explore(U32 depth, Merge merge);
  const Figures& figures() const { return figures_; }

 private:
  struct Branch {
    Model::System model;
    std::vector<Call> calls;  // from the world's start on, the prefix included
  };

  Branch branchOf(const Word& word) const;
  // Runs one letter more; null when the sides differ. The model is then after the letter.
  enum class End { goesOn, fatal, differs };
  End runLetter(const Branch& branch, U8 letter, Model::System& model);

  const Start& start_;
  Figures figures_;
  std::unordered_set<U64> states_;
  std::string what_;
};

}  // namespace Scopes
