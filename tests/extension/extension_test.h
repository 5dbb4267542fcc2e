#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "actions/register_action_classes.h"
#include "extension/finder_sync.h"
#include "platform/file_manager.h"
#include "platform/volumes.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

// A file manager as a test sets it up.
class FakeFinderSyncController : public FIFinderSyncController {
 public:
  SelectedItemsPtr selected;
  std::optional<SelectedItem> targeted;
  std::vector<UrlSet> directories;

  SelectedItemsPtr selectedItemURLs() const override { return selected; }
  std::optional<SelectedItem> targetedURL() const override { return targeted; }
  void setDirectoryURLs(const UrlSet& urls) override { directories.push_back(urls); }
};

// The real file manager; counts questions about folders.
class AskedFileManager : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  mutable int questions = 0;
  bool hasContainers = true;
  bool refusesWrites = false;
  std::vector<bool> writtenAtomically;

  bool isDirectoryAtPath(const std::string& path) const override {
    ++questions;
    return ForwardingFileManager::isDirectoryAtPath(path);
  }
  bool supportsGroupContainers() const override { return hasContainers; }
  std::optional<Url> containerURLForSecurityApplicationGroupIdentifier(
      const std::string& groupIdentifier) const override {
    if (!hasContainers) return std::nullopt;
    return ForwardingFileManager::containerURLForSecurityApplicationGroupIdentifier(
        groupIdentifier);
  }
  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override {
    if (refusesWrites) return posixError(ENOSPC, path);
    writtenAtomically.push_back(atomically);
    return ForwardingFileManager::writeDataToFile(data, path, atomically);
  }
};

class SetVolumes : public ForwardingVolumes {
 public:
  using ForwardingVolumes::ForwardingVolumes;
  std::vector<Url> urls = {Url("file:///")};
  mutable std::vector<bool> skippedHidden;

  std::vector<Url> mountedVolumeURLs(bool skipHidden) const override {
    skippedHidden.push_back(skipHidden);
    return urls;
  }
};

class ExtensionTest : public testing::Test {
 protected:
  ExtensionTest()
      : platform_(&registry_),
        log_(*platform_.services().log),
        files_(*platform_.services().fileManager),
        volumes_(*platform_.services().volumes),
        workspace_(*platform_.services().workspace) {
    registerActionClasses(registry_);
    platform_.services().log = &log_;
    platform_.services().fileManager = &files_;
    platform_.services().volumes = &volumes_;
    platform_.services().workspace = &workspace_;
  }

  std::string container() { return platform_.home().dataHome() + "/Q4T7N2XR8K.com.vessok.tervano"; }
  const std::string& home() { return platform_.home().path(); }
  static SelectedItem item(const std::string& path, std::optional<bool> isDirectory = false) {
    return {Url::fileURLWithPath(path, isDirectory.value_or(false)), isDirectory};
  }
  static SelectedItemsPtr items(SelectedItems list) {
    return std::make_shared<const SelectedItems>(std::move(list));
  }
  static SelectedItemsPtr files(const std::vector<std::string>& paths) {
    SelectedItems list;
    for (const auto& path : paths) list.push_back(item(path));
    return items(std::move(list));
  }
  static std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static void writeFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }

  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingLog log_;
  AskedFileManager files_;
  SetVolumes volumes_;
  RecordingWorkspace workspace_;
};

// With a started extension.
class FinderSyncTest : public ExtensionTest {
 protected:
  void TearDown() override { finderSync_ = nullptr; }

  // Starts it on first use, so that a test can prepare what it finds.
  FinderSync& finderSync() {
    if (finderSync_ == nullptr) finderSync_ = FinderSync::create(controller_);
    return *finderSync_;
  }

  std::shared_ptr<FakeFinderSyncController> controller_ =
      std::make_shared<FakeFinderSyncController>();
  std::shared_ptr<FinderSync> finderSync_;
};

}  // namespace tervano::test
