// The terminal of `melk watch`: takes it over and gives it back as it was, also
// when the program is interrupted, stopped or ended from outside.
#pragma once

#include "melk/panel.h"

namespace melk {

class Terminal : public Screen {
 public:
  // Standard input and output are a terminal that knows how to move its cursor.
  static bool usable();

  void enter() override;
  void leave() override;
  std::size_t rows() override;
  std::size_t columns() override;
  void draw(const std::vector<PanelLine>& lines) override;
  bool quit_asked() override;
  bool resized() override;
};

}  // namespace melk
