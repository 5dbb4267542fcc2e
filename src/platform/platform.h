#pragma once

namespace tervano {

class Applications;
class Bundle;
class ClassRegistry;
class Clock;
class DefaultsStores;
class FileCoordinator;
class FileManager;
class ImageCodec;
class Log;
class NotificationCenter;
class NotifyChannel;
class Processes;
class RunLoop;
class UniformTypes;
class UserNotifications;
class UserScripts;
class Volumes;
class Workspace;

// What the operating system gives, as small services. Every pointer is set; none is owned.
struct Platform {
  Applications* applications = nullptr;
  Bundle* bundle = nullptr;
  // The archivable classes of this process.
  const ClassRegistry* classRegistry = nullptr;
  Clock* clock = nullptr;
  DefaultsStores* defaultsStores = nullptr;
  FileCoordinator* fileCoordinator = nullptr;
  FileManager* fileManager = nullptr;
  ImageCodec* imageCodec = nullptr;
  Log* log = nullptr;
  NotificationCenter* notificationCenter = nullptr;
  NotifyChannel* notifyChannel = nullptr;
  Processes* processes = nullptr;
  RunLoop* runLoop = nullptr;
  UniformTypes* uniformTypes = nullptr;
  UserNotifications* userNotifications = nullptr;
  UserScripts* userScripts = nullptr;
  Volumes* volumes = nullptr;
  Workspace* workspace = nullptr;
};

// The installed platform. Using it before `installPlatform` ends the process with a message. Any
// thread.
const Platform& platform();

// Installs the services; called by main or a module's entry before anything else. They are never
// destroyed. Tests install others through ScopedPlatform.
void installPlatform(const Platform& services);

}  // namespace tervano
