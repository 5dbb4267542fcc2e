#pragma once

#include <string>

#include "tests/support/temporary_home.h"

namespace tervano::test {

// Makes "de_DE" or "fr_FR", with the characters of UTF-8, the locale of LANG for this process and
// those that it starts, until the end of the home. Such locales are built for the tests, so that
// the system need not have them.
void useLocale(TemporaryHome& home, const std::string& name);

// Makes the catalogue of a language in a folder of catalogues from the entries of a po file.
void writeCatalogue(const std::string& folder, const std::string& language,
                    const std::string& entries);

}  // namespace tervano::test
