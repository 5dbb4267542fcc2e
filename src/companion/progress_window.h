#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>

#include "companion/job_progress.h"

namespace tervano {

// One window of the desktop for all jobs that it is told of, with a bar and a button for each. The
// window is a program of its own, from the first job to the last; what is shown goes to its
// standard input, never into its arguments. When it ends before that, closed by the user, without a
// display or in another way, nothing is shown until other jobs begin, and no job notices. Main
// thread.
class ProgressWindow : public ProgressDisplay {
 public:
  ProgressWindow();
  ~ProgressWindow() override;

  void show(std::uint64_t number, const ShownProgress& progress) override;
  void hide(std::uint64_t number) override;
  void setCancelHandler(CancelHandler handler) override;

 private:
  class Program;

  void tellWhatIsNew();

  struct Row {
    ShownProgress wanted;
    std::optional<ShownProgress> told;
  };
  CancelHandler cancelHandler_;
  std::map<std::uint64_t, Row> rows_;
  // Whose rows the program has and is to take away.
  std::set<std::uint64_t> leaving_;
  // Null before the first row, and after the last.
  std::shared_ptr<Program> program_;
};

}  // namespace tervano
