#include "companion/consent.h"

#include "companion/asker.h"

namespace tervano {

bool consentsOnTerminal(const Question& question, bool otherwise) {
  bool consented = otherwise;
  if (const Asker ask = askerOfTerminal()) {
    ask(question, [&](bool consents, const std::string& /*reason*/) { consented = consents; });
  }
  return consented;
}

}  // namespace tervano
