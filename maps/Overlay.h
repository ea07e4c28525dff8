// Decisions of a person on a plan, as a small text file. One decision a line; `#` begins a comment.
//
//   # what            rule         details
//   UART0.CTRL        repaired
//   UART0.CTRL.BUSY   masked zero                 # a field: its bits are not compared
//   UART0.STATUS      readOnly     mask 0xff00
//   DMA.CH[0..3].*    repaired     mask 0x1 zero
//   TIMER?.COUNT      volatile
//   SPI*.DATA         undecided                   # takes back what was proposed
//
// What: BLOCK.REGISTER, or BLOCK.REGISTER.FIELD with masked and compared. `*` stands for any
// characters, `?` for one, [a..b] for an index from a to b. Rules: those of Driver::Rule (volatile
// without the underscore) and undecided. Details: mask BITS (not compared) with what a rewrite puts
// there: kept (the default), zero or shadow; once (not repeated at a replay). A later line replaces
// what earlier ones said. A rule without a mask leaves the mask as it is: the bits that no field
// names.
//
// An Error with file and line: a line that is not understood, or matches nothing; a decision for a
// register that no region can hold; two decided registers that share bytes; a mask beyond the
// width. A decision that contradicts the map (a read-only register repaired) is a note of the plan:
// a person may know better than the file.
#pragma once

#include <maps/Plan.h>

namespace Maps {

struct Overlay {
  struct Line {
    U32 number = 0;
    std::string pattern;
    enum class Kind : U8 { rule, undecided, masked, compared } kind = Kind::rule;
    Driver::Rule rule = Driver::Rule::repaired;
    std::optional<U64> mask;
    Driver::Rewrite rewrite = Driver::Rewrite::kept;
    bool isOnce = false;
  };
  std::string file;
  std::vector<Line> lines;
};

// At most 1 MiB and 10,000 lines.
UMBRA_API Overlay readOverlay(const std::string& path);
UMBRA_API Overlay parseOverlay(std::string_view text, const std::string& name);

// All or nothing: after an Error the plan is as it was. Contradictions are returned, each as
// "FILE:LINE: text".
UMBRA_API std::vector<std::string> decide(Plan& plan, const Overlay& overlay);

// Whether a name matches a pattern as above.
UMBRA_API bool matches(std::string_view pattern, std::string_view name);

}  // namespace Maps
