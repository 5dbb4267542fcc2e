#include "actions/tv_apple_script_action.h"

#include <array>
#include <cstring>

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {
namespace {

// A process serial number: its high and its low word, each in the machine's byte order.
AppleEventDescriptor currentProcessDescriptor() {
  const std::array<std::uint32_t, 2> serialNumber = {0, kCurrentProcess};
  Data bytes(sizeof serialNumber);
  std::memcpy(bytes.data(), serialNumber.data(), bytes.size());
  return AppleEventDescriptor::descriptorWithDescriptorType(kTypeProcessSerialNumber,
                                                            std::move(bytes));
}

AppleEvent runWithPathsEvent(const TVAction::FilePaths& filePaths) {
  auto paths = AppleEventDescriptor::listDescriptor();
  for (std::size_t index = 0; index < filePaths.size(); ++index) {
    paths.insertDescriptor(AppleEventDescriptor::descriptorWithString(filePaths[index]), index + 1);
  }
  auto arguments = AppleEventDescriptor::listDescriptor();
  arguments.insertDescriptor(std::move(paths), 1);
  AppleEvent event;
  event.eventClass = kASAppleScriptSuite;
  event.eventID = kASSubroutineEvent;
  event.targetDescriptor = currentProcessDescriptor();
  event.returnID = kAutoGenerateReturnID;
  event.transactionID = kAnyTransactionID;
  event.setParamDescriptor(AppleEventDescriptor::descriptorWithString("runWithPaths"),
                           kASSubroutineName);
  event.setParamDescriptor(std::move(arguments), kDirectObject);
  return event;
}

}  // namespace

void TVAppleScriptAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setScriptURL(coder.decodeUrl("scriptURL"));
}

void TVAppleScriptAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(scriptURL(), "scriptURL");
}

std::shared_ptr<TVAction> TVAppleScriptAction::makeBlank() const {
  return std::make_shared<TVAppleScriptAction>();
}

void TVAppleScriptAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  static_cast<TVAppleScriptAction&>(copy).setScriptURL(scriptURL());
}

std::optional<std::string> TVAppleScriptAction::editorClassName() const {
  return "TVAppleScriptModule";
}

void TVAppleScriptAction::runWithFilePaths(const FilePaths& filePaths,
                                           const CompletionBlock& completionBlock) {
  std::optional<Error> loadError;
  setTask(platform().userScripts->taskWithURL(scriptURL(), &loadError));
  if (task() == nullptr) {
    log("Could not init task with error: " + (loadError ? loadError->message : "(null)"));
    if (completionBlock) completionBlock(false, std::nullopt);
    return;
  }
  // The block is handed on, not copied, so that the main queue releases what it holds.
  task()->executeWithAppleEvent(
      runWithPathsEvent(filePaths), [block = CompletionBlock(completionBlock)](
                                        const std::optional<AppleEventDescriptor>& /*result*/,
                                        const std::optional<Error>& error) mutable {
        platform().runLoop->dispatchAsyncOnMainQueue([block = std::move(block), error] {
          if (block) block(!error, error);
        });
      });
}

}  // namespace tervano
