#include "history/job_history.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "archive/url.h"
#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr std::int64_t kSchemaVersion = 1;
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kOthers = 0077;
constexpr std::size_t kNumberOfStates = 6;

constexpr char kSchema[] = R"(
CREATE TABLE job (
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  action TEXT NOT NULL, title TEXT NOT NULL, class TEXT NOT NULL, undoes INTEGER NOT NULL,
  state TEXT NOT NULL, told INTEGER NOT NULL DEFAULT 0,
  began INTEGER NOT NULL, ended INTEGER NOT NULL DEFAULT 0,
  pid INTEGER NOT NULL, process TEXT NOT NULL,
  items_done INTEGER NOT NULL DEFAULT 0, items INTEGER NOT NULL, fraction REAL,
  message TEXT NOT NULL DEFAULT '', output TEXT NOT NULL DEFAULT '',
  complaints BLOB NOT NULL DEFAULT x'', complete INTEGER NOT NULL DEFAULT 1);
CREATE INDEX job_state ON job (state);
CREATE TABLE path (
  job INTEGER NOT NULL REFERENCES job ON DELETE CASCADE, place INTEGER NOT NULL,
  path BLOB NOT NULL, PRIMARY KEY (job, place)) WITHOUT ROWID;
CREATE TABLE change (
  job INTEGER NOT NULL REFERENCES job ON DELETE CASCADE, place INTEGER NOT NULL,
  kind TEXT NOT NULL, source BLOB NOT NULL, target BLOB NOT NULL, state TEXT NOT NULL,
  undone INTEGER NOT NULL DEFAULT 0, PRIMARY KEY (job, place)) WITHOUT ROWID;
)";

constexpr char kUndoableKinds[] = "kind IN ('moved', 'copied', 'made')";

// In the order of the states.
const std::array<std::string, kNumberOfStates>& stateNames() {
  static const std::array<std::string, kNumberOfStates> names{
      "waiting", "running", "succeeded", "failed", "cancelled", "interrupted"};
  return names;
}

// In the order of JobChange::Kind.
const std::vector<std::string>& kindNames() {
  static const std::vector<std::string> names{"moved", "copied", "made", "removed", "trashed"};
  return names;
}

RecordedState stateOfName(const std::string& name) {
  const auto& names = stateNames();
  const auto found = std::find(names.begin(), names.end(), name);
  return found == names.end() ? RecordedState::interrupted
                              : static_cast<RecordedState>(found - names.begin());
}

RecordedState recorded(JobState state) {
  return static_cast<RecordedState>(state);
}
static_assert(static_cast<int>(JobState::cancelled) == static_cast<int>(RecordedState::cancelled));

// One after the other, each followed by a zero byte.
std::string joinedComplaints(const std::vector<std::string>& complaints) {
  std::string joined;
  for (std::size_t at = 0; at < std::min(complaints.size(), JobHistory::kKeptComplaints); ++at) {
    joined += complaints[at];
    joined += '\0';
  }
  return joined;
}

std::vector<std::string> splitComplaints(const std::string& joined) {
  std::vector<std::string> complaints;
  for (std::size_t at = 0; at < joined.size();) {
    const auto end = std::min(joined.find('\0', at), joined.size());
    complaints.push_back(joined.substr(at, end - at));
    at = end + 1;
  }
  return complaints;
}

[[noreturn]] void failToMake(const std::string& path) {
  throw HistoryError(posixError(errno, "The history " + path + " cannot be made").message, false);
}

void makeFolder(const std::string& path) {
  if (mkdir(path.c_str(), kFolderMode) == 0 || errno == EEXIST) return;
  if (errno != ENOENT) failToMake(path);
  const std::string above = deletingLastPathComponent(path);
  if (above.empty() || above == path) failToMake(path);
  makeFolder(above);
  if (mkdir(path.c_str(), kFolderMode) != 0 && errno != EEXIST) failToMake(path);
}

// Nothing but a new file is opened here: to close a descriptor of a file that SQLite has open in
// this process would drop its locks.
void makeFile(const std::string& path) {
  const Descriptor made(::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kFileMode));
  if (!made && errno != EEXIST) failToMake(path);
}

// What a copy or a restored backup has opened to others is closed to them again.
void closeToOthers(const std::string& path) {
  struct stat status {};
  for (const char* const suffix : {"", "-wal", "-shm"}) {
    const std::string file = path + suffix;
    if (lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if ((status.st_mode & kOthers) != 0) chmod(file.c_str(), kFileMode);
  }
}

}  // namespace

const std::string& nameOfState(RecordedState state) {
  return stateNames()[static_cast<std::size_t>(state)];
}

bool isEnd(RecordedState state) {
  return state != RecordedState::waiting && state != RecordedState::running;
}

std::string JobHistory::path() {
  return stateHomeFolder() + "/tervano/history.sqlite";
}

std::unique_ptr<JobHistory> JobHistory::open(const std::string& path) {
  makeFolder(deletingLastPathComponent(path));
  makeFile(path);
  closeToOthers(path);
  return std::unique_ptr<JobHistory>(new JobHistory(path));
}

std::unique_ptr<JobHistory> JobHistory::openExisting(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 && errno == ENOENT) return nullptr;
  closeToOthers(path);
  return std::unique_ptr<JobHistory>(new JobHistory(path));
}

JobHistory::JobHistory(const std::string& path) : path_(path), database_(path) {
  prepare();
}

void JobHistory::prepare() {
  const auto version = [this] {
    Statement statement(database_, "PRAGMA user_version");
    statement.step();
    return statement.integer(0);
  };
  if (version() == 0) {
    // These take effect on an empty file and outside of transactions only.
    database_.execute("PRAGMA auto_vacuum = FULL; PRAGMA journal_mode = WAL");
    Transaction transaction(database_);
    // Another process may have been quicker.
    if (version() == 0) {
      database_.execute(kSchema);
      database_.execute("PRAGMA user_version = " + std::to_string(kSchemaVersion));
    }
    transaction.commit();
  }
  if (version() != kSchemaVersion) {
    throw HistoryError(
        "The history " + path_ + " is of a newer version of Tervano and is left as it is.", false);
  }
  database_.execute(
      "PRAGMA foreign_keys = ON; PRAGMA synchronous = NORMAL; "
      "PRAGMA journal_size_limit = 1048576");
}

std::unique_ptr<Transaction> JobHistory::begin() {
  return std::make_unique<Transaction>(database_);
}

std::int64_t JobHistory::add(const Job& job, std::int64_t began) {
  const auto process = ProcessIdentity::ofThisProcess();
  const auto& subject = job.subject();
  Statement statement(database_,
                      "INSERT INTO job (action, title, class, undoes, state, began, pid, process, "
                      "items) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
  statement.bind(subject.actionUid)
      .bind(subject.title)
      .bind(subject.className)
      .bind(subject.undoes)
      .bind(nameOfState(recorded(job.state())))
      .bind(began)
      .bind(process.pid)
      .bind(process.start)
      .bind(static_cast<std::int64_t>(subject.paths.size()))
      .run();
  const std::int64_t number = database_.lastNumber();
  Statement addPath(database_, "INSERT INTO path VALUES (?, ?, ?)");
  for (std::size_t at = 0; at < std::min(subject.paths.size(), kKeptPaths); ++at) {
    addPath.bind(number).bind(static_cast<std::int64_t>(at)).bindBytes(subject.paths[at]).run();
  }
  prune();
  return number;
}

void JobHistory::prune() {
  Statement jobs(database_,
                 "DELETE FROM job WHERE state NOT IN ('waiting', 'running') AND number <= "
                 "(SELECT number FROM job ORDER BY number DESC LIMIT 1 OFFSET ?)");
  jobs.bind(static_cast<std::int64_t>(kKeptJobs)).run();
  Statement numbers(database_, "SELECT job, count(*) FROM change GROUP BY job ORDER BY job DESC");
  std::size_t kept = 0;
  std::vector<std::int64_t> emptied;
  while (numbers.step()) {
    kept += static_cast<std::size_t>(numbers.integer(1));
    if (kept > kKeptChangesOfAllJobs) emptied.push_back(numbers.integer(0));
  }
  for (const auto number : emptied) {
    Statement(database_, "DELETE FROM change WHERE job = ?").bind(number).run();
    setIncomplete(number);
  }
}

void JobHistory::addChanges(std::int64_t number, const std::vector<RecordedChange>& changes) {
  Statement statement(database_,
                      "INSERT OR REPLACE INTO change (job, place, kind, source, target, state) "
                      "VALUES (?, ?, ?, ?, ?, ?)");
  for (const auto& change : changes) {
    statement.bind(number)
        .bind(static_cast<std::int64_t>(change.index))
        .bind(kindNames()[static_cast<std::size_t>(change.change.kind)])
        .bindBytes(change.change.from)
        .bindBytes(change.change.to)
        .bind(change.state ? change.state->text() : "")
        .run();
  }
}

void JobHistory::setIncomplete(std::int64_t number) {
  Statement(database_, "UPDATE job SET complete = 0 WHERE number = ?").bind(number).run();
}

void JobHistory::setProgress(std::int64_t number, JobState state, const JobProgress& progress) {
  Statement(database_,
            "UPDATE job SET state = ?, items_done = ?, fraction = ? WHERE number = ? AND ended = 0")
      .bind(nameOfState(recorded(state)))
      .bind(static_cast<std::int64_t>(progress.itemsDone))
      .bind(progress.fraction())
      .bind(number)
      .run();
}

void JobHistory::end(std::int64_t number, const Job& job, const std::string& message,
                     std::int64_t ended) {
  Statement(database_,
            "UPDATE job SET state = ?, items_done = ?, ended = ?, message = ?, output = ?, "
            "complaints = ? WHERE number = ?")
      .bind(nameOfState(recorded(job.state())))
      .bind(static_cast<std::int64_t>(job.progress().itemsDone))
      .bind(ended)
      .bind(message)
      .bind(job.output())
      .bindBytes(joinedComplaints(job.complaints()))
      .bind(number)
      .run();
}

void JobHistory::setUndone(std::int64_t number, const std::vector<std::size_t>& indexes) {
  Transaction transaction(database_);
  Statement statement(database_, "UPDATE change SET undone = 1 WHERE job = ? AND place = ?");
  for (const auto index : indexes) {
    statement.bind(number).bind(static_cast<std::int64_t>(index)).run();
  }
  transaction.commit();
}

void JobHistory::findInterruptedJobs() {
  for (const auto& job : openJobs()) {
    if (job.process.isAlive()) continue;
    // A change is written before the progress that it makes.
    Statement(database_,
              "UPDATE job SET state = 'interrupted', items_done = max(items_done, min(items, "
              "(SELECT count(*) FROM change WHERE job = number AND kind <> 'removed'))) "
              "WHERE number = ? AND state IN ('waiting', 'running')")
        .bind(job.number)
        .run();
  }
}

std::vector<RecordedJob> JobHistory::takeUntoldInterruptedJobs() {
  Transaction transaction(database_);
  auto untold = select("state = 'interrupted' AND told = ? ORDER BY number", 0);
  database_.execute("UPDATE job SET told = 1 WHERE state = 'interrupted'");
  transaction.commit();
  return untold;
}

std::vector<RecordedJob> JobHistory::jobs(std::size_t limit) {
  return select("1 ORDER BY number DESC LIMIT ?", static_cast<std::int64_t>(limit));
}

std::vector<RecordedJob> JobHistory::openJobs() {
  return select("state IN ('waiting', 'running') AND number > ? ORDER BY number", 0);
}

std::optional<RecordedJob> JobHistory::job(std::int64_t number) {
  auto jobs = select("number = ?", number);
  if (jobs.empty()) return std::nullopt;
  return std::move(jobs.front());
}

std::vector<RecordedJob> JobHistory::select(const std::string& condition, std::int64_t value) {
  Statement statement(
      database_,
      std::string("SELECT number, action, title, class, undoes, state, began, ended, pid, process, "
                  "items_done, items, fraction, message, output, complaints, complete, "
                  "(SELECT count(*) FROM change WHERE job = number AND ") +
          kUndoableKinds + "), (SELECT count(*) FROM change WHERE job = number AND undone = 1) " +
          "FROM job WHERE " + condition);
  statement.bind(value);
  std::vector<RecordedJob> jobs;
  while (statement.step()) {
    int column = 0;
    RecordedJob job;
    job.number = statement.integer(column++);
    job.subject.actionUid = statement.text(column++);
    job.subject.title = statement.text(column++);
    job.subject.className = statement.text(column++);
    job.subject.undoes = statement.integer(column++);
    job.state = stateOfName(statement.text(column++));
    job.began = statement.integer(column++);
    job.ended = statement.integer(column++);
    job.process.pid = statement.integer(column++);
    job.process.start = statement.text(column++);
    job.itemsDone = static_cast<std::size_t>(statement.integer(column++));
    job.itemsTotal = static_cast<std::size_t>(statement.integer(column++));
    job.fraction = statement.real(column++);
    job.message = statement.text(column++);
    job.output = statement.text(column++);
    job.complaints = splitComplaints(statement.text(column++));
    job.isComplete = statement.integer(column++) != 0;
    job.changes = static_cast<std::size_t>(statement.integer(column++));
    job.undone = static_cast<std::size_t>(statement.integer(column));
    jobs.push_back(std::move(job));
  }
  return jobs;
}

std::vector<std::string> JobHistory::paths(std::int64_t number) {
  Statement statement(database_, "SELECT path FROM path WHERE job = ? ORDER BY place");
  statement.bind(number);
  std::vector<std::string> paths;
  while (statement.step()) paths.push_back(statement.text(0));
  return paths;
}

std::vector<RecordedChange> JobHistory::changes(std::int64_t number) {
  Statement statement(database_,
                      "SELECT place, kind, source, target, state, undone FROM change WHERE job = ? "
                      "ORDER BY place");
  statement.bind(number);
  std::vector<RecordedChange> changes;
  while (statement.step()) {
    int column = 0;
    RecordedChange change;
    change.index = static_cast<std::size_t>(statement.integer(column++));
    const auto& kinds = kindNames();
    const auto kind = std::find(kinds.begin(), kinds.end(), statement.text(column++));
    if (kind == kinds.end()) continue;
    change.change.kind = static_cast<JobChange::Kind>(kind - kinds.begin());
    change.change.from = statement.text(column++);
    change.change.to = statement.text(column++);
    change.state = ItemState::ofText(statement.text(column++));
    change.isUndone = statement.integer(column) != 0;
    changes.push_back(std::move(change));
  }
  return changes;
}

}  // namespace tervano
