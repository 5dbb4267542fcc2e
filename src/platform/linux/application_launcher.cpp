#include "platform/linux/application_launcher.h"

#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <span>

#include "platform/linux/bus_names.h"
#include "platform/linux/workspace_error.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"

namespace tervano {

namespace {

// A bus may take no larger message.
constexpr std::size_t kLargestMessage = std::size_t{16} << 20;

bool canBeSent(const std::vector<Url>& urls) {
  std::size_t size = 0;
  for (const auto& url : urls) {
    const std::string& text = url.absoluteString();
    size += text.size() + sizeof(std::uint64_t);
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return false;
  }
  return size <= kLargestMessage;
}

std::optional<Error> argumentProblem(const std::vector<Url>& urls) {
  for (const auto& url : urls) {
    const std::string& text = url.absoluteString();
    if (text.find('\0') == std::string::npos && text.find(':') != std::string::npos &&
        text.find(':') != 0 && text.front() != '-') {
      continue;
    }
    return workspaceError("\"" + text + "\" is no location that can be opened");
  }
  return std::nullopt;
}

std::optional<Error> startFailure(int code, const std::string& program) {
  switch (code) {
    case E2BIG:
      return Error{"POSIX", code, "\"" + program + "\" cannot be given as much at once"};
    case ENOEXEC:
      return Error{"POSIX", code, "\"" + program + "\" is no program of this system"};
    default:
      return posixError(code, "\"" + program + "\" could not be started");
  }
}

using ArgumentsMaker = std::function<std::vector<std::string>(std::span<const Url>)>;

// Starts one program with all URLs, or as few as take them when that is more than a command line
// holds. `started` counts the URLs that were handed over.
int startWithAll(ProgramLauncher& programs, const ProgramLauncher::Options& options,
                 const ArgumentsMaker& arguments, std::span<const Url> urls, std::size_t& started) {
  auto own = options;
  if (started > 0) own.activationToken = {};
  const int failure = programs.start(arguments(urls), own);
  if (failure == 0) started += urls.size();
  if (failure != E2BIG || urls.size() < 2) return failure;
  const std::size_t half = urls.size() - urls.size() / 2;
  const int first = startWithAll(programs, options, arguments, urls.first(half), started);
  return first != 0 ? first
                    : startWithAll(programs, options, arguments, urls.subspan(half), started);
}

std::optional<Error> startList(ProgramLauncher& programs, const ProgramLauncher::Options& options,
                               const ArgumentsMaker& arguments, const std::vector<Url>& urls,
                               const std::string& program) {
  std::size_t started = 0;
  const int failure = startWithAll(programs, options, arguments, urls, started);
  if (failure == 0) return std::nullopt;
  auto error = startFailure(failure, program);
  if (started > 0) {
    error->message += "; it was given " + std::to_string(started) + " of " +
                      std::to_string(urls.size()) + " files";
  }
  return error;
}

}  // namespace

// Files that follow the first, each with a process of its own.
struct ApplicationLauncher::Remaining {
  std::shared_ptr<const Request> request;
  ExecLine line;
  std::vector<std::string> prefix;
  ProgramLauncher::Options options;
  std::size_t next = 1;
  std::size_t failures = 0;
  std::string firstFailure;
};

void ApplicationLauncher::reportFailure(const Request& request, const std::string& why) {
  const std::string message = whatFailed(request) + ": " + why;
  log(message);
  if (!request.tellsUser) return;
  UserNotification notification;
  notification.title = "Tervano";
  notification.informativeText = message;
  platform().userNotifications->deliverNotification(notification);
}

std::string ApplicationLauncher::whatFailed(const Request& request) {
  if (!request.tellsUser) return "Could not open " + request.urls.front().absoluteString();
  const std::string application = "\"" + request.application.name + "\"";
  switch (request.urls.size()) {
    case 0:
      return "Could not start " + application;
    case 1: {
      const std::string name = request.urls.front().lastPathComponent();
      return "Could not open \"" + (name.empty() ? request.urls.front().absoluteString() : name) +
             "\" with " + application;
    }
    default:
      return "Could not open " + std::to_string(request.urls.size()) + " files with " + application;
  }
}

std::optional<Error> ApplicationLauncher::open(const ApplicationEntry& application,
                                               const std::vector<Url>& urls) {
  if (auto problem = argumentProblem(urls)) return problem;
  const auto request = std::make_shared<Request>(Request{application, urls, true});
  const bool goesThroughBus =
      canGoThroughBus(*request) &&
      isReachable(bus_, application.busName(), reachableTimeoutMilliseconds_);
  if (goesThroughBus || application.takesActivationToken) request->token = takeActivationToken();
  if (!goesThroughBus) return startProgram(request);
  ++pendingRequests_;
  bus_.post([this, request] { openThroughBus(request); });
  return std::nullopt;
}

std::optional<Error> ApplicationLauncher::openWithProgram(const std::string& path,
                                                          const std::vector<Url>& urls) {
  if (auto problem = argumentProblem(urls)) return problem;
  const auto arguments = [&path](std::span<const Url> files) {
    std::vector<std::string> words{path};
    for (const auto& url : files) {
      const std::string local = url.path();
      words.push_back(local.empty() ? url.absoluteString() : local);
    }
    return words;
  };
  return startList(programs_, {std::nullopt, takeActivationToken()}, arguments, urls, path);
}

std::optional<Error> ApplicationLauncher::start(const ApplicationEntry& application,
                                                const std::vector<std::string>& arguments,
                                                bool inTerminal) {
  std::vector<std::string> words;
  ProgramLauncher::Options options;
  if (auto problem = prepare(application, inTerminal, words, options)) return problem;
  if (application.takesActivationToken) options.activationToken = takeActivationToken();
  words.insert(words.end(), arguments.begin(), arguments.end());
  const int failure = programs_.start(words, options);
  return failure == 0 ? std::nullopt : startFailure(failure, arguments.front());
}

void ApplicationLauncher::openLater(const std::string& entryPath, const Url& url,
                                    ActivationToken token) {
  ++pendingRequests_;
  bus_.post([this, entryPath, url, token = std::move(token)] {
    std::optional<Error> error;
    auto application = applicationEntryAtPath(entryPath, &error);
    const auto request = std::make_shared<const Request>(
        Request{application.value_or(ApplicationEntry{}), {url}, false, token});
    if (application && canGoThroughBus(*request)) {
      openThroughBus(request);
      return;
    }
    if (application) error = startProgram(request);
    if (error) reportFailure(*request, error->message);
    --pendingRequests_;
  });
}

bool ApplicationLauncher::canGoThroughBus(const Request& request) const {
  return !request.application.busName().empty() && sessionBusAddress() && canBeSent(request.urls);
}

void ApplicationLauncher::openThroughBus(const std::shared_ptr<const Request>& request) {
  const std::string name = request->application.busName();
  GVariant* parameters = nullptr;
  if (request->urls.empty()) {
    parameters = g_variant_new("(@a{sv})", request->token.platformData());
  } else {
    std::vector<const gchar*> uris;
    uris.reserve(request->urls.size());
    for (const auto& url : request->urls) uris.push_back(url.absoluteString().c_str());
    parameters = g_variant_new("(@as@a{sv})",
                               g_variant_new_strv(uris.data(), static_cast<gssize>(uris.size())),
                               request->token.platformData());
  }
  bus_.call(name, applicationObjectPath(name), "org.freedesktop.Application",
            request->urls.empty() ? "Activate" : "Open", parameters, kReplyTimeoutMilliseconds,
            [this, request](GVariant* /*reply*/, const GError* error) {
              if (error != nullptr && wasNotDelivered(*error)) {
                log(whatFailed(*request) + ": " + error->message +
                    "; the application's command line is used instead");
                if (const auto failure = startProgram(request)) {
                  reportFailure(*request, failure->message);
                }
              } else if (error != nullptr) {
                reportFailure(*request, error->message);
              }
              --pendingRequests_;
            });
}

std::optional<Error> ApplicationLauncher::prepare(const ApplicationEntry& application,
                                                  bool inTerminal, std::vector<std::string>& prefix,
                                                  ProgramLauncher::Options& options) const {
  if (inTerminal) {
    prefix = terminalWords();
    if (prefix.empty()) {
      return workspaceError("There is no terminal for \"" + application.name + "\"");
    }
  }
  if (application.folder.empty()) return std::nullopt;
  options.folder = application.folder;
  struct stat status {};
  const int failure = stat(application.folder.c_str(), &status) != 0 ? errno
                      : S_ISDIR(status.st_mode)                      ? 0
                                                                     : ENOTDIR;
  if (failure == 0) return std::nullopt;
  return posixError(failure,
                    "\"" + application.name + "\" starts in \"" + application.folder + "\"");
}

std::optional<Error> ApplicationLauncher::startProgram(
    const std::shared_ptr<const Request>& request) {
  const ApplicationEntry& application = request->application;
  const auto line = application.execLine();
  if (!line) return workspaceError("\"" + application.name + "\" has no usable command line");
  Remaining remaining{request, *line, {}, {}, 1, 0, {}};
  if (auto problem =
          prepare(application, application.terminal, remaining.prefix, remaining.options)) {
    return problem;
  }
  if (application.takesActivationToken) remaining.options.activationToken = request->token;
  const auto arguments = [&](std::span<const Url> urls) {
    auto words = remaining.prefix;
    const auto own = line->arguments(urls);
    words.insert(words.end(), own.begin(), own.end());
    return words;
  };
  const std::span<const Url> urls(request->urls);
  const std::string program = line->arguments({}).front();
  if (urls.size() <= 1 || line->takesLists()) {
    return startList(programs_, remaining.options, arguments, request->urls, program);
  }
  if (const int failure = programs_.start(arguments(urls.first(1)), remaining.options);
      failure != 0) {
    return startFailure(failure, program);
  }
  remaining.options.activationToken = {};
  ++pendingRequests_;
  bus_.post([this, shared = std::make_shared<Remaining>(std::move(remaining))] {
    startRemaining(shared);
  });
  return std::nullopt;
}

void ApplicationLauncher::startRemaining(const std::shared_ptr<Remaining>& remaining) {
  const auto& urls = remaining->request->urls;
  auto words = remaining->prefix;
  const auto own = remaining->line.arguments(std::span(urls).subspan(remaining->next, 1));
  words.insert(words.end(), own.begin(), own.end());
  if (const int failure = programs_.start(words, remaining->options); failure != 0) {
    if (remaining->failures++ == 0) {
      remaining->firstFailure = startFailure(failure, own.front())->message;
    }
  }
  if (++remaining->next < urls.size()) {
    // Others use the bus thread in between.
    bus_.post([this, remaining] { startRemaining(remaining); });
    return;
  }
  if (remaining->failures > 0) {
    reportFailure(*remaining->request, remaining->firstFailure + "; " +
                                           std::to_string(remaining->failures) +
                                           " of the files were not opened");
  }
  --pendingRequests_;
}

}  // namespace tervano
