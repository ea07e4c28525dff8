#include "demo/common/Report.h"

#include <Zint/Strep.h>

namespace Demo {
namespace {

std::string rowText(const Report::Row& row) {
  const auto number = [](U64 value) { return static_cast<unsigned long long>(value); };
  const Account& account = row.account;
  return Zint::format(" %-8s %7llu %9llu %9llu %12llu %7llu %10llu %9u\n", row.name.c_str(),
                      number(account.injected), number(account.repaired), number(account.restored),
                      number(account.overwritten), number(account.undone),
                      number(account.remaining), row.registersDiffering)
      .bytes();
}

}  // namespace

U32 Report::registersDiffering() const {
  U32 differing = 0;
  for (const Row& row : rows) differing += row.registersDiffering;
  return differing;
}

std::vector<std::string> Report::faults() const {
  std::vector<std::string> faults;
  const auto fault = [&faults](U64 count, const char* what) {
    if (count != 0) faults.push_back(std::to_string(count) + " " + what);
  };
  if (!isChipOrderly)
    faults.push_back("the chip process did not end in order: its log may have a gap");
  if (!isSettled) faults.push_back("the audit did not come to two clean passes");
  fault(all.remaining, "errors remain on the chip");
  fault(registersDiffering(), "registers differ between chip and shadow");
  fault(all.repairsWithoutDamage, "repairs met no damage");
  fault(all.unexplained, "changes of bits have no explanation");
  return faults;
}

std::string Report::tableText() const {
  std::string text =
      "                  -------------------- of these --------------------- registers\n"
      " table     errors  repaired  restored  overwritten  undone  remaining differing\n";
  for (const Row& row : rows) text += rowText(row);
  text += rowText({"all", all, registersDiffering()});
  text +=
      Zint::format(
          "\n Passes %u, differences found %u, entries repaired %u, of them without damage %llu.\n"
          " Overwritten: by newer writes of the traffic.\n",
          passes, differences, repairs, static_cast<unsigned long long>(all.repairsWithoutDamage))
          .bytes();
  if (all.undone != 0) text += " Undone: a second error flipped the same bit back.\n";
  if (all.restored != 0) text += " Restored: by the replay after a reset.\n";
  return text;
}

std::string Report::text() const {
  std::string text = tableText();
  const std::vector<std::string> wrong = faults();
  for (const std::string& fault : wrong) text += " FAILED: " + fault + "\n";
  if (wrong.empty()) text += " OK: every error is accounted for and none remains\n";
  return text;
}

}  // namespace Demo
