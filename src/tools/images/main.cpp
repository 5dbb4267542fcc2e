#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "tools/images/convert_picture.h"

namespace tervano {

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;

int complain(int complaints, const std::string& sentence, int status) {
  const std::string line = "tervano-images: " + sentence + "\n";
  writeFully(complaints, line.data(), line.size());
  return status;
}

int printFormats(int results, int complaints) {
  std::string complaint;
  const std::string words = writableFormatWords(complaint);
  if (words.empty()) return complain(complaints, complaint, kFailure);
  return writeFully(results, words.data(), words.size()) ? EXIT_SUCCESS : kFailure;
}

int run(int argc, char** argv, int results, int complaints) {
  constexpr int kConvert = 7;
  if (argc == 2 && std::string_view(argv[1]) == "--formats") {
    return printFormats(results, complaints);
  }
  // By their places, so that a name may look like an option.
  if (argc != kConvert || std::string_view(argv[1]) != "-s" ||
      std::string_view(argv[2]) != "format" || std::string_view(argv[5]) != "--out") {
    return complain(complaints, "Usage: -s format FORMAT IN --out OUT, or --formats", kUsage);
  }
  const std::string sentence = convertPicture(argv[3], argv[4], argv[6], complaints);
  return sentence.empty() ? EXIT_SUCCESS : complain(complaints, sentence, kFailure);
}

// Nothing of ours may get the number of a standard stream that the caller has closed.
bool haveStandardStreams() {
  int number = -1;
  do {
    number = open("/dev/null", O_RDWR);
  } while (number >= 0 && number <= STDERR_FILENO);
  if (number >= 0) close(number);
  return number >= 0;
}

}  // namespace

}  // namespace tervano

// Converts a picture to another format: "-s format FORMAT IN --out OUT". Says nothing and answers 0
// when OUT is there, which it never replaces; else one sentence on standard error: 1 when the
// picture could not be converted, 2 for wrong arguments. "--formats" prints the formats that this
// machine can write.
int main(int argc, char** argv) {
  if (!tervano::haveStandardStreams()) _exit(EXIT_FAILURE);
  // A limit on the size of files and a closed standard error are failures like others.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  const int results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  const int complaints = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  int status = EXIT_FAILURE;
  try {
    status = tervano::run(argc, argv, results, complaints);
  } catch (const std::bad_alloc&) {
    status = tervano::complain(complaints, "There is not enough memory.", EXIT_FAILURE);
  }
  // Without what the libraries would still do: their threads may be at work.
  _exit(status);
}
