#include "platform/linux/linux_platform.h"

#include "platform/linux/desktop_applications.h"
#include "platform/linux/desktop_image_codec.h"
#include "platform/linux/freedesktop_notifications.h"
#include "platform/linux/gio_workspace.h"
#include "platform/linux/glib_run_loop.h"
#include "platform/linux/inotify_channel.h"
#include "platform/linux/installed_bundle.h"
#include "platform/linux/interpreter_user_scripts.h"
#include "platform/linux/lock_file_coordinator.h"
#include "platform/linux/mount_table_volumes.h"
#include "platform/linux/plist_defaults_stores.h"
#include "platform/linux/posix_file_manager.h"
#include "platform/linux/posix_processes.h"
#include "platform/linux/stderr_log.h"
#include "platform/linux/system_clock.h"
#include "platform/linux/tool_table.h"
#include "platform/linux/uniform_type_table.h"
#include "platform/notification_center.h"

namespace tervano {

namespace {

struct LinuxServices {
  explicit LinuxServices(const LinuxPlatformOptions& options)
      : defaultsStores(options.applicationIdentifier),
        userNotifications(options.applicationIdentifier),
        services{&applications,
                 &bundle,
                 options.classRegistry,
                 &clock,
                 &defaultsStores,
                 &fileCoordinator,
                 &fileManager,
                 &imageCodec,
                 &log,
                 &notificationCenter,
                 &notifyChannel,
                 &processes,
                 &runLoop,
                 &uniformTypes,
                 &userNotifications,
                 &userScripts,
                 &volumes,
                 &workspace} {
    processes.setToolTable(toolTable(bundle));
  }

  DesktopApplications applications;
  InstalledBundle bundle;
  SystemClock clock;
  PlistDefaultsStores defaultsStores;
  LockFileCoordinator fileCoordinator;
  PosixFileManager fileManager;
  DesktopImageCodec imageCodec;
  StderrLog log;
  NotificationCenter notificationCenter;
  InotifyChannel notifyChannel;
  PosixProcesses processes;
  GlibRunLoop runLoop;
  UniformTypeTable uniformTypes;
  FreedesktopNotifications userNotifications;
  InterpreterUserScripts userScripts{processes};
  MountTableVolumes volumes;
  GioWorkspace workspace;
  Platform services;
};

}  // namespace

const Platform& linuxPlatform(const LinuxPlatformOptions& options) {
  static auto* const services = new LinuxServices(options);
  return services->services;
}

}  // namespace tervano
