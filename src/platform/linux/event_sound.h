#pragma once

#include <functional>
#include <string>

namespace tervano {

// Plays a sound of the desktop's sound theme by its name there, such as "complete", through the
// event-sound library of the desktop, which is loaded at the first use. `ended` is called once, on
// another thread, when it has been heard, unless the answer is false: there is no such library, no
// sound service, or no such sound. May wait for the sound service; one call at a time.
bool playEventSound(const std::string& name, std::function<void()> ended);

}  // namespace tervano
