#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "companion/job_runner.h"
#include "extension/hand_off.h"

namespace tervano {

// The receiving end of the hand-off: takes a "tervano://runaction" URL, reads and checks the file
// it names, finds the action in the list as it is now, runs it and removes the file. Whatever goes
// wrong on the way is told in one log line and one notification; a URL that is not of the exact
// form is told in the log only, since any web page can open one. Main thread.
class RequestReceiver : public std::enable_shared_from_this<RequestReceiver> {
 public:
  enum class Result { success, failure, refused };
  // `message` is a sentence, empty for success.
  using Finished = std::function<void(Result result, const std::string& message)>;

  // Asks the user through `askers`.
  explicit RequestReceiver(Askers askers = {},
                           std::shared_ptr<JobRunner> runner = std::make_shared<JobRunner>())
      : askers_(std::move(askers)), runner_(std::move(runner)) {}

  // `finished` is called exactly once, later, on the main queue; may be empty.
  void openURL(const std::string& url, Finished finished = nullptr);
  // Requests that have not ended.
  std::size_t running() const { return running_.size(); }

  // Reveals what a notification's user info names under "path" or "paths".
  static void showFilesOfNotification(const Value::Dictionary& userInfo);
  // Removes hand-off files of this user that nobody has asked for within a day, and what a killed
  // process left half written.
  static void removeStaleHandOffFiles();

 private:
  void end(const HandOff& handOff, const RunOutcome& outcome, const Finished& finished);

  Askers askers_;
  std::shared_ptr<JobRunner> runner_;
  // The names of the hand-off files of running requests.
  std::set<std::string> running_;
};

}  // namespace tervano
