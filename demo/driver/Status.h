// Shows the status at regular times: a picture that is redrawn in place on a terminal, else lines.
#pragma once

#include <Zint/Clock.h>

#include <functional>

#include "demo/common/StatusText.h"

namespace Demo {

class Status : public Zint::Clock::NotifieeConst {
 public:
  using Source = std::function<StatusView()>;

  // Begins at once. What `source` reads must outlive it or its last wake-up.
  Status(const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::Ptr<const Zint::Clock>& clock,
         bool isPicture, Source source);

  // Whether standard output is a terminal that is large enough for the picture.
  static bool isPicturePossible();

  void onTime() override;
  // Shows the last state and no more.
  void showLast();

 private:
  void show();

  const bool isPicture_;
  const Source source_;
  std::size_t drawn_ = 0;  // lines of the picture that stands on the terminal
};

}  // namespace Demo
