#include "platform/linux/interpreter_user_scripts.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/platform_exception.h"
#include "archive/utf.h"
#include "platform/bundle.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/program_lookup.h"
#include "platform/log.h"
#include "platform/notification_center.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr char kErrorDomain[] = "UserScripts";
constexpr std::size_t kLongestFirstLine = 256;
constexpr std::size_t kLongestText = 2000;
// Of what a script writes: the longest line, all that one run adds to the log, and what is kept for
// the error.
constexpr std::size_t kLongestLoggedLine = 4096;
constexpr std::size_t kLoggedBytes = std::size_t{64} * 1024;
constexpr std::size_t kKeptBytes = 4096;
constexpr int kToldLines = 3;

enum ErrorCode {
  kNoFile = 1,
  kUnknownKind,
  kNoInterpreter,
  kBadCall,
  kNotLaunched,
  kNoHandler,
  kScriptFailed,
};

Error failure(ErrorCode code, std::string message) {
  return Error{kErrorDomain, code, std::move(message)};
}

// By errno.
PlatformException systemFailure(const std::string& what) {
  return PlatformException(kInvalidArgumentException, posixError(errno, what).message);
}

// How scripts of one language are run.
struct Language {
  // Also the extension of the loader.
  std::string_view extension;
  // Programs that can run it, best first.
  std::vector<std::string_view> programs;
  std::string_view package;
  // Texts are UTF-8, and the script is named by its URL.
  bool isUnicodeOnly = false;
};

const Language& python() {
  static const Language language{"py", {"python3"}, "python3"};
  return language;
}
const Language& javaScript() {
  static const Language language{"js", {"gjs"}, "gjs", true};
  return language;
}
const Language& shell() {
  static const Language language{"sh", {"bash"}, "bash"};
  return language;
}
const Language& lua() {
  static const Language language{"lua", {"lua5.4", "lua5.3", "lua"}, "lua5.4"};
  return language;
}

std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter + 32 : letter; });
  return text;
}

const Language* languageOfExtension(const std::string& path) {
  const std::string extension = lowercased(pathExtension(path));
  if (extension == "bash") return &shell();
  for (const Language* language : {&python(), &javaScript(), &shell(), &lua()}) {
    if (extension == language->extension) return language;
  }
  return nullptr;
}

std::vector<std::string_view> words(std::string_view line) {
  std::vector<std::string_view> result;
  while (true) {
    const auto begin = line.find_first_not_of(" \t\r");
    if (begin == std::string_view::npos) return result;
    line.remove_prefix(begin);
    const auto end = std::min(line.find_first_of(" \t\r"), line.size());
    result.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

// Whether `program` is `name` or `name` with a version.
bool isVersionOf(std::string_view program, std::string_view name) {
  return program.starts_with(name) &&
         program.find_first_not_of("0123456789.", name.size()) == std::string_view::npos;
}

// By the first bytes of a script.
const Language* languageOfFirstLine(std::string_view head) {
  if (!head.starts_with("#!")) return nullptr;
  head.remove_prefix(2);
  for (const std::string_view word : words(head.substr(0, head.find('\n')))) {
    const std::string_view program = word.substr(word.rfind('/') + 1);
    // What stands between "env" and the program.
    if (program == "env" || word.starts_with("-") || word.find('=') != std::string_view::npos) {
      continue;
    }
    if (program == "python" || isVersionOf(program, "python3")) return &python();
    if (program == "gjs" || program == "gjs-console") return &javaScript();
    if (program == "sh" || program == "bash" || program == "dash") return &shell();
    if (isVersionOf(program, "lua")) return &lua();
    return nullptr;
  }
  return nullptr;
}

// Opens a script and reads its beginning.
std::optional<Error> readHead(const std::string& path, std::string& head) {
  const std::string what = "The script " + path + " cannot be read";
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return posixError(errno, what);
  if (!S_ISREG(status.st_mode)) {
    return failure(kNoFile, S_ISDIR(status.st_mode) ? path + " is a folder, no script."
                                                    : path + " is no regular file.");
  }
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return posixError(errno, what);
  head.resize(kLongestFirstLine);
  ssize_t count = 0;
  do {
    count = read(file.get(), head.data(), head.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) return posixError(errno, what);
  head.resize(static_cast<std::size_t>(count));
  return std::nullopt;
}

// A script that can be run.
struct Script {
  std::string path;
  const Language* language = nullptr;
  std::string interpreter;

  std::string named() const { return "The script " + path; }
};

// --- The request and the report.

void addField(std::string& fields, std::string_view text) {
  fields.append(text).push_back('\0');
}

std::optional<Error> addText(std::string& fields, const std::string& text, const Script& script) {
  if (text.find('\0') != std::string::npos) {
    return failure(kBadCall, "A text that holds a NUL character cannot be given to a script.");
  }
  if (script.language->isUnicodeOnly && !isValidUtf8(text)) {
    return failure(kBadCall, "The name " + text + " is no UTF-8 text and cannot be given to " +
                                 script.path + ", since JavaScript has no other texts.");
  }
  addField(fields, text);
  return std::nullopt;
}

std::optional<Error> addArgument(std::string& fields, const AppleEventDescriptor& argument,
                                 const Script& script) {
  if (const std::string* text = argument.string()) {
    addField(fields, "string");
    return addText(fields, *text, script);
  }
  const Error unfit =
      failure(kBadCall, "Only texts and lists of texts can be given to " + script.path + ".");
  const auto* list = argument.list();
  if (list == nullptr) return unfit;
  addField(fields, "list");
  addField(fields, std::to_string(list->size()));
  for (const AppleEventDescriptor& item : *list) {
    if (item.string() == nullptr) return unfit;
    if (auto error = addText(fields, *item.string(), script)) return error;
  }
  return std::nullopt;
}

// What is to be called.
struct Call {
  std::string handlerName;
  std::string request;
};

std::optional<Error> makeCall(const AppleEvent& event, const Script& script, Call& call) {
  const AppleEventDescriptor* name = event.paramDescriptor(kASSubroutineName);
  if (name == nullptr || name->string() == nullptr || name->string()->empty()) {
    return failure(kBadCall, "No handler of " + script.path + " is named.");
  }
  call.handlerName = *name->string();
  if (auto error = addText(call.request, call.handlerName, script)) return error;
  const AppleEventDescriptor* direct = event.paramDescriptor(kDirectObject);
  if (direct == nullptr) return std::nullopt;
  if (direct->list() == nullptr) {
    return failure(kBadCall, "The arguments for " + script.path + " are no list.");
  }
  for (const AppleEventDescriptor& argument : *direct->list()) {
    if (auto error = addArgument(call.request, argument, script)) return error;
  }
  return std::nullopt;
}

// Reads the fields of a report one after the other.
class Fields {
 public:
  explicit Fields(std::string_view bytes) : bytes_(bytes) {}
  // Nil when no whole field is left.
  std::optional<std::string_view> next() {
    const auto end = bytes_.find('\0');
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view field = bytes_.substr(0, end);
    bytes_.remove_prefix(end + 1);
    return field;
  }

 private:
  std::string_view bytes_;
};

std::optional<AppleEventDescriptor> readResult(Fields& fields) {
  const auto kind = fields.next();
  const auto first = kind ? fields.next() : std::nullopt;
  if (!first) return std::nullopt;
  if (*kind == "string") return AppleEventDescriptor::descriptorWithString(std::string(*first));
  std::size_t count = 0;
  const char* const end = first->data() + first->size();
  if (*kind != "list" || std::from_chars(first->data(), end, count).ptr != end) return std::nullopt;
  AppleEventDescriptor list = AppleEventDescriptor::listDescriptor();
  for (std::size_t index = 1; index <= count; ++index) {
    const auto item = fields.next();
    if (!item) return std::nullopt;
    list.insertDescriptor(AppleEventDescriptor::descriptorWithString(std::string(*item)), index);
  }
  return list;
}

// The file in memory that the loader gets.
class Exchange {
 public:
  // Throws PlatformException when there is no memory or no descriptor for it.
  explicit Exchange(const std::string& request)
      : requestSize_(static_cast<off_t>(request.size())),
        file_(memfd_create("tervano-script", MFD_CLOEXEC)) {
    if (!file_ || !writeFully(file_.get(), request.data(), request.size()) ||
        lseek(file_.get(), 0, SEEK_SET) != 0 || fcntl(file_.get(), F_SETFL, O_APPEND) != 0) {
      throw systemFailure("No memory for the arguments");
    }
  }
  int descriptor() const { return file_.get(); }

  std::string report() const {
    struct stat status {};
    if (fstat(file_.get(), &status) != 0 || status.st_size <= requestSize_) return "";
    std::string bytes(static_cast<std::size_t>(status.st_size - requestSize_), '\0');
    std::size_t filled = 0;
    while (filled < bytes.size()) {
      const ssize_t count = pread(file_.get(), bytes.data() + filled, bytes.size() - filled,
                                  requestSize_ + static_cast<off_t>(filled));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      filled += static_cast<std::size_t>(count);
    }
    bytes.resize(filled);
    return bytes;
  }

 private:
  off_t requestSize_;
  Descriptor file_;
};

// --- What a script writes.

// Not more than `limit` bytes, cut where a character ends.
std::string shortened(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return std::string(text.substr(0, limit)) + "...";
}

// Logs the lines of a script's outputs and keeps the end of one. Any thread.
class Output {
 public:
  explicit Output(std::string name) : name_(std::move(name)) {}

  void append(bool isError, const Data& chunk) {
    const std::lock_guard lock(mutex_);
    const std::string_view text(reinterpret_cast<const char*>(chunk.data()), chunk.size());
    if (isError) {
      kept_.append(text.substr(text.size() - std::min(text.size(), kKeptBytes)));
      if (kept_.size() > kKeptBytes) kept_.erase(0, kept_.size() - kKeptBytes);
    }
    if (isFull_) return;
    std::string& line = unfinished_[isError ? 1 : 0];
    line.append(text);
    std::size_t begin = 0;
    while (!isFull_) {
      const auto end = line.find('\n', begin);
      const std::size_t length = std::min(end, line.size()) - begin;
      if (length > kLongestLoggedLine) {
        write(std::string_view(line).substr(begin, kLongestLoggedLine));
        begin += kLongestLoggedLine;
      } else if (end != std::string::npos) {
        write(std::string_view(line).substr(begin, length));
        begin = end + 1;
      } else {
        break;
      }
    }
    line.erase(0, isFull_ ? line.size() : begin);
  }

  // Logs what no line end follows.
  void finish() {
    const std::lock_guard lock(mutex_);
    for (std::string& line : unfinished_) {
      if (!line.empty() && !isFull_) write(line);
      line.clear();
    }
  }

  // Of standard error; without blank lines.
  std::string lastLines() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string_view> lines;
    std::string_view rest = kept_;
    while (!rest.empty() && lines.size() < kToldLines) {
      const auto lineEnd = rest.rfind('\n');
      const std::size_t begin = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
      const std::string_view line = rest.substr(begin);
      if (line.find_first_not_of(" \t\r") != std::string_view::npos) lines.push_back(line);
      rest.remove_suffix(rest.size() - (begin == 0 ? 0 : begin - 1));
    }
    std::string text;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
      text.append(text.empty() ? "" : "\n").append(*line);
    }
    return text;
  }

 private:
  void write(std::string_view line) {
    log(name_ + ": " + std::string(line));
    loggedBytes_ += line.size() + 1;
    if (loggedBytes_ <= kLoggedBytes) return;
    isFull_ = true;
    log(name_ + ": Further output is not logged.");
  }

  const std::string name_;
  mutable std::mutex mutex_;
  std::array<std::string, 2> unfinished_;
  std::string kept_;
  std::size_t loggedBytes_ = 0;
  bool isFull_ = false;
};

// --- One run.

// Held by its place in the main queue, then by the observation of its process.
class Run : public std::enable_shared_from_this<Run> {
 public:
  Run(Script script, Processes& processes, UserScriptTask::CompletionHandler handler)
      : script_(std::move(script)),
        processes_(processes),
        handler_(std::move(handler)),
        output_(std::make_shared<Output>(lastPathComponent(script_.path))) {}

  // Later, on the main thread.
  void start(Call call) {
    later([run = shared_from_this(), call = std::make_shared<Call>(std::move(call))] {
      run->launch(*call);
    });
  }
  void fail(Error error) {
    later([run = shared_from_this(), error = std::move(error)] {
      run->complete(std::nullopt, error);
    });
  }

 private:
  static void later(std::function<void()> item) {
    platform().runLoop->dispatchAsyncOnMainQueue(std::move(item));
  }

  void complete(const std::optional<AppleEventDescriptor>& result,
                const std::optional<Error>& error) {
    const auto handler = std::exchange(handler_, nullptr);
    if (handler) handler(result, error);
  }

  void launch(Call& call) {
    handlerName_ = std::move(call.handlerName);
    const std::string type(script_.language->extension);
    const auto loader = platform().bundle->pathForResource("runner", type, "user-scripts");
    if (!loader) {
      return complete(std::nullopt, failure(kNotLaunched, script_.named() +
                                                              " cannot be run: the resource "
                                                              "user-scripts/runner." +
                                                              type + " is missing."));
    }
    try {
      launch(*loader, call.request);
    } catch (const PlatformException& exception) {
      end_.cancel();
      if (process_ != nullptr) stopReading();
      complete(std::nullopt,
               failure(kNotLaunched, script_.named() + " cannot be run: " + exception.reason()));
    }
  }

  void launch(const std::string& loader, const std::string& request) {
    exchange_.emplace(request);
    process_ = processes_.createProcess();
    process_->setLaunchPath(script_.interpreter);
    const bool takesURL = script_.language->isUnicodeOnly;
    std::vector<std::string> arguments;
    if (takesURL) arguments.emplace_back("-m");
    arguments.push_back(loader);
    arguments.push_back(takesURL ? Url::fileURLWithPath(script_.path).absoluteString()
                                 : script_.path);
    process_->setArguments(std::move(arguments));
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!nothing) throw systemFailure("No empty standard input");
    process_->setStandardInput(nothing.get());
    process_->setExtraDescriptor(exchange_->descriptor());
    process_->setStandardOutput(processes_.createPipe());
    process_->setStandardError(processes_.createPipe());
    read(*process_->standardOutput(), false);
    read(*process_->standardError(), true);
    end_ = platform().notificationCenter->addObserver(
        kTaskDidTerminateNotification, process_.get(),
        [run = shared_from_this()](const Notification&) { run->didEnd(); });
    process_->launch();
  }

  // To the end of the pipe, beyond that of the process: what a process that the script has left
  // behind writes must not end it.
  void read(const Pipe& pipe, bool isError) {
    const auto& end = pipe.fileHandleForReading();
    end->setReadabilityHandler([end, isError, output = output_](FileHandle& handle) {
      const Data chunk = handle.availableData();
      if (chunk.empty()) {
        output->finish();
        handle.setReadabilityHandler(nullptr);
      } else {
        output->append(isError, chunk);
      }
    });
  }
  void stopReading() {
    for (const auto& pipe : {process_->standardOutput(), process_->standardError()}) {
      if (pipe != nullptr) pipe->fileHandleForReading()->setReadabilityHandler(nullptr);
    }
  }

  void didEnd() {
    const auto keptToTheEnd = shared_from_this();
    end_.cancel();
    output_->finish();
    const std::string report = exchange_->report();
    exchange_.reset();
    Fields fields(report);
    const auto kind = fields.next();
    const bool endedWell = process_->terminationReason() == TerminationReason::exit &&
                           process_->terminationStatus() == 0;
    if (kind == "done" && endedWell) {
      complete(readResult(fields), std::nullopt);
    } else if (kind == "missing") {
      complete(std::nullopt, failure(kNoHandler, script_.named() + " has no handler named " +
                                                     handlerName_ + "."));
    } else if (kind == "error") {
      complete(std::nullopt, raisedError(fields));
    } else {
      complete(std::nullopt, failure(kScriptFailed, script_.named() + ending()));
    }
    process_ = nullptr;
  }

  Error raisedError(Fields& fields) const {
    const auto text = fields.next().value_or("");
    const auto line = fields.next().value_or("");
    std::string sentence = script_.named() + " failed";
    if (!line.empty()) sentence.append(" in line ").append(line);
    return failure(kScriptFailed, sentence + ": " + shortened(text, kLongestText));
  }

  // How a process ended that should have reported.
  std::string ending() const {
    const int status = process_->terminationStatus();
    const std::string number = std::to_string(status);
    std::string text;
    if (process_->terminationReason() == TerminationReason::uncaughtSignal) {
      const char* description = sigdescr_np(status);
      text = " was ended by signal " + number;
      if (description != nullptr) text.append(" (").append(description).append(")");
    } else if (status == 0) {
      return " ended itself before its handler " + handlerName_ + " was finished.";
    } else {
      text = " ended with status " + number;
    }
    const std::string lines = output_->lastLines();
    return text + (lines.empty() ? "." : ": " + shortened(lines, kLongestText));
  }

  const Script script_;
  Processes& processes_;
  UserScriptTask::CompletionHandler handler_;
  const std::shared_ptr<Output> output_;
  std::string handlerName_;
  std::optional<Exchange> exchange_;
  std::shared_ptr<Process> process_;
  Subscription end_;
};

class Task : public UserScriptTask {
 public:
  Task(Script script, Processes& processes) : script_(std::move(script)), processes_(processes) {}

  void executeWithAppleEvent(const AppleEvent& event, CompletionHandler handler) override {
    const auto run = std::make_shared<Run>(script_, processes_, std::move(handler));
    Call call;
    if (auto error = makeCall(event, script_, call)) {
      run->fail(std::move(*error));
    } else {
      run->start(std::move(call));
    }
  }

 private:
  const Script script_;
  Processes& processes_;
};

std::optional<Error> findScript(const std::optional<Url>& url, Script& script) {
  if (!url) return failure(kNoFile, "No script is set.");
  script.path = url->path();
  if (script.path.empty()) return failure(kNoFile, url->absoluteString() + " is no file.");
  std::string head;
  if (auto error = readHead(script.path, head)) return error;
  script.language = languageOfExtension(script.path);
  if (script.language == nullptr) script.language = languageOfFirstLine(head);
  if (script.language == nullptr) {
    return failure(kUnknownKind,
                   script.named() +
                       " is of no known kind: neither its extension (py, js, sh, bash, lua) nor a "
                       "first line with #! names Python, gjs, a shell or Lua.");
  }
  for (const std::string_view program : script.language->programs) {
    if (auto found = programInPath(program)) {
      script.interpreter = std::move(*found);
      return std::nullopt;
    }
  }
  const std::string package(script.language->package);
  return failure(kNoInterpreter, script.named() + " needs " +
                                     std::string(script.language->programs.front()) +
                                     ", which is not installed (Debian package " + package + ").");
}

}  // namespace

std::shared_ptr<UserScriptTask> InterpreterUserScripts::taskWithURL(const std::optional<Url>& url,
                                                                    std::optional<Error>* error) {
  Script script;
  if (auto failed = findScript(url, script)) {
    if (error != nullptr) *error = std::move(failed);
    return nullptr;
  }
  return std::make_shared<Task>(std::move(script), processes_);
}

}  // namespace tervano
