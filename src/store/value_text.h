#pragma once

#include <string>

#include "archive/value.h"

namespace tervano {

// A value as a log line shows it: nil "(null)", a text as it is, YES and NO as 1 and 0, numbers in
// their shortest form whatever the locale, a URL its URI, an array "(a, b)", a dictionary
// "{k = v; }", data "<N bytes>", an object its class in angle brackets.
std::string textOfValue(const Value& value);

}  // namespace tervano
