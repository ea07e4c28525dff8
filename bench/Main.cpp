// The program around the module: as little as possible, so that all that is measured lies in one
// place. It is compiled without PIC, and so is the access method that it lends to the module.
#include <Hardware/ChipHam.h>

namespace Bench {
namespace {

class ProgramHam : public Hardware::ChipHam {
 public:
  using ChipHam::ChipHam;
  void doRead(const Hardware::ChipAddress&, U8*, U32, U32) override {}
  void doWrite(const Hardware::ChipAddress&, U8*, U32, U32) override {}
};

Hardware::ChipHam::Ptr makeHam() { return Zint::makePtr<ProgramHam>("program"); }

}  // namespace

// Defined in the module.
int run(int count, char** arguments, Hardware::ChipHam::Ptr (*makeProgramHam)());

}  // namespace Bench

int main(int count, char** arguments) { return Bench::run(count, arguments, Bench::makeHam); }
