#pragma once

#include "archive/coding.h"

namespace tervano {

// Makes every class of an action list known to an archive's reader and writer: the model's classes,
// images and all concrete actions. Called once by main or a module's entry, before anything is
// archived; whatever is not registered here cannot be decoded.
void registerActionClasses(ClassRegistry& registry);

}  // namespace tervano
