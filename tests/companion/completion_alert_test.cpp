#include "companion/completion_alert.h"

#include <gtest/gtest.h>

#include "actions/tv_apple_script_action.h"
#include "actions/tv_bundled_script_action.h"
#include "actions/tv_compress_password_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_new_file_action.h"
#include "actions/tv_open_faves_action.h"
#include "actions/tv_open_with_app_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_send_via_email_action.h"
#include "platform/platform.h"
#include "prefs/tv_user_defaults.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

class CompletionAlertTest : public testing::Test {
 protected:
  CompletionAlertTest() : notifications_(*platform_.services().userNotifications) {
    platform_.services().userNotifications = &notifications_;
  }
  template <typename T>
  int alertsOf() {
    const int before = notifications_.alerts();
    alertOfCompletion(*action<T>());
    return notifications_.alerts() - before;
  }

  ScopedPlatform platform_;
  RecordingUserNotifications notifications_;
};

}  // namespace

TEST_F(CompletionAlertTest, KindsWithoutASoundOfTheirOwnGetOne) {
  TVUserDefaults::create()->setPlayAlertOnCompletion(true);
  EXPECT_EQ(alertsOf<TVNewFileAction>(), 1);
  EXPECT_EQ(alertsOf<TVShellScriptAction>(), 1);
  EXPECT_EQ(alertsOf<TVBundledScriptAction>(), 1);
  EXPECT_EQ(alertsOf<TVAppleScriptAction>(), 1);
  EXPECT_EQ(alertsOf<TVOpenWithAppAction>(), 1);
  EXPECT_EQ(alertsOf<TVSendViaEmailAction>(), 1);
  EXPECT_EQ(alertsOf<TVOpenFavesAction>(), 1);
}

TEST_F(CompletionAlertTest, KindsWhoseNotificationsHaveASoundGetNoOther) {
  TVUserDefaults::create()->setPlayAlertOnCompletion(true);
  EXPECT_EQ(alertsOf<TVMoveToAction>(), 0);
  EXPECT_EQ(alertsOf<TVConvertImageAction>(), 0);
  EXPECT_EQ(alertsOf<TVSecureRemoveAction>(), 0);
  EXPECT_EQ(alertsOf<TVResetAppPreferencesAction>(), 0);
}

TEST_F(CompletionAlertTest, CopiesAndArchivesHaveOneSoundWithAndWithoutTheirNotification) {
  TVUserDefaults::create()->setPlayAlertOnCompletion(true);
  EXPECT_EQ(alertsOf<TVCopyToAction>(), 0);
  EXPECT_EQ(alertsOf<TVCompressPasswordAction>(), 0);
  TVUserDefaults::create()->setDisableActionNotifications(true);
  EXPECT_EQ(alertsOf<TVCopyToAction>(), 1);
  EXPECT_EQ(alertsOf<TVCompressPasswordAction>(), 1);
}

TEST_F(CompletionAlertTest, WithoutThePreferenceThereIsNoSound) {
  EXPECT_EQ(alertsOf<TVNewFileAction>(), 0);
}

}  // namespace tervano::test
