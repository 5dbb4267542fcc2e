#include "tests/support/user_locale.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/run_program.h"

namespace tervano::test {

void useLocale(TemporaryHome& home, const std::string& name) {
  ASSERT_TRUE(exists(TERVANO_TEST_LOCALES "/" + name + ".UTF-8/LC_MESSAGES")) << name;
  home.setVariable("LOCPATH", TERVANO_TEST_LOCALES);
  home.setVariable("LANG", name + ".UTF-8");
  // The tests' own, which would come first.
  home.setVariable("LC_ALL", std::nullopt);
}

void writeCatalogue(const std::string& folder, const std::string& language,
                    const std::string& entries) {
  const std::string catalogues = folder + "/" + language + "/LC_MESSAGES";
  std::filesystem::create_directories(catalogues);
  const std::string source = catalogues + "/tervano.po";
  std::ofstream(source) << "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n"
                           "\"Plural-Forms: nplurals=2; plural=(n != 1);\\n\"\n\n"
                        << entries;
  ProgramStart start;
  start.path = TERVANO_MSGFMT;
  start.arguments = {"--output-file=" + catalogues + "/tervano.mo", source};
  const auto outcome = runProgram(start);
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
}

}  // namespace tervano::test
