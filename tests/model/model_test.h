#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "model/register_model_classes.h"
#include "model/tv_action_group.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

// A concrete class whose `init` sets everything that an archive must not take from it.
class SampleAction : public TVAction {
 public:
  void init() override {
    TVAction::init();
    setIcon(Image::imageNamed("icon-move"));
    setIsDefault(true);
    setActionDescription("From init");
    setFileTypes(std::vector<std::string>{"public.text"});
  }
  std::optional<std::string> defaultTitle() const override { return "Sample"; }
  std::string_view className() const override { return "TVSampleAction"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override { return std::make_shared<SampleAction>(); }
};

class ModelTest : public testing::Test {
 protected:
  ModelTest() : platform_(&registry_), log_(*platform_.services().log) {
    registerModelClasses(registry_);
    registerActionClass<SampleAction>(registry_, {"TVSampleAction"});
    platform_.services().log = &log_;
  }

  Data archived(const std::shared_ptr<TVAction>& action) const {
    return Archiver::archivedDataWithRootObject(action, registry_);
  }
  template <typename T = TVAction>
  std::shared_ptr<T> unarchived(const Data& archive) const {
    const Value root = Unarchiver::unarchiveObjectWithData(archive, registry_);
    const auto* object = root.getIf<Value::Object>();
    return object == nullptr ? nullptr : std::dynamic_pointer_cast<T>(*object);
  }
  std::vector<std::string> logged() const { return log_.lines(); }

  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingLog log_;
};

}  // namespace tervano::test
