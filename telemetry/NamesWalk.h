// The members of a collection, one after the other: the walk may rest between two of them while the
// system runs, and members may leave meanwhile. No installed header.
#pragma once

#include <telemetry/Names.h>
#include <memory>

namespace Telemetry {

class MemberWalk {
 public:
  virtual ~MemberWalk() = default;
  // Goes to the first member, then to the next one. False: there is none.
  virtual bool next() = 0;
  // REQUIRES: at a member. The text of its key, as the library writes it.
  virtual std::string key() const = 0;
  virtual Zint::Result value() const = 0;
  // Whether that is the text of its key, or its own name, bare or in its quotes.
  virtual bool answersTo(const std::string& name) const {
    return key() == name || isNamed(value().text, name);
  }
};

// REQUIRES: a collection. A collection that can be read only as a whole is refused when it has more
// members than that: Error.
std::unique_ptr<MemberWalk> walkOf(const Place& collection, U32 mostWhole);

}  // namespace Telemetry
