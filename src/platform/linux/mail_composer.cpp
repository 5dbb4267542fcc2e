#include "platform/linux/mail_composer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/default_handlers.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/desktop_entry.h"
#include "platform/linux/mail_programs.h"
#include "platform/linux/workspace_error.h"

namespace tervano {

namespace {

// A descriptor that names the file without opening it.
std::optional<Error> attachment(const Url& url, Descriptor& file) {
  const std::string path = url.path();
  if (path.empty() || path.find('\0') != std::string::npos) {
    return workspaceError("\"" + url.absoluteString() + "\" is no file that can be attached");
  }
  const std::string what = "Could not attach \"" + path + "\"";
  file.reset(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return posixError(errno, what);
  if (S_ISDIR(status.st_mode)) {
    return workspaceError("\"" + path + "\" is a folder, and a folder cannot be attached");
  }
  if (!S_ISREG(status.st_mode)) {
    return workspaceError("\"" + path + "\" is no file that can be attached");
  }
  if (faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) return posixError(errno, what);
  return std::nullopt;
}

}  // namespace

std::optional<Error> MailComposer::compose(const ApplicationEntry& mailProgram,
                                           const std::vector<Url>& files) {
  std::vector<std::string> paths;
  std::vector<Descriptor> descriptors;
  for (const auto& file : files) {
    Descriptor descriptor;
    if (auto problem = attachment(file, descriptor)) return problem;
    paths.push_back(file.path());
    if (files.size() <= MailPortal::kMaximumFiles) descriptors.push_back(std::move(descriptor));
  }
  Error why;
  const auto command = mailCommandAttaching(paths, mailProgram, why);
  if (!command && !isKnownMailProgram(mailProgram) && !mailProgram.isBrowser &&
      !descriptors.empty()) {
    const auto answer = portal_.compose(std::move(descriptors), takeActivationToken());
    if (answer.taken) return std::nullopt;
    if (!answer.reason.empty()) why.message += "; " + answer.reason;
  }
  if (!command) return why;
  auto failure = launcher_.start(mailProgram, command->arguments, command->inTerminal);
  if (failure && failure->domain == "POSIX" && failure->code == E2BIG) {
    failure->message = std::to_string(files.size()) + " files are more than the mail program \"" +
                       mailProgram.name + "\" can be given for one message";
  }
  return failure;
}

bool isMailHandler(const std::string& entryPath) {
  const auto handler = handlerEntryOfURL(Url("mailto:"));
  return handler &&
         DesktopEntry::identifierAtPath(*handler) == DesktopEntry::identifierAtPath(entryPath);
}

}  // namespace tervano
