#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/descriptor.h"

namespace tervano {

// The folders of the user that the environment names (XDG Base Directory Specification). Each call
// reads the environment anew. Any thread.

// HOME when it is absolute, else the account's home folder.
std::string homeFolder();
// $XDG_DATA_HOME, $XDG_CONFIG_HOME and $XDG_STATE_HOME; a relative or empty value is ignored for
// ~/.local/share, ~/.config and ~/.local/state.
std::string dataHomeFolder();
std::string configHomeFolder();
std::string stateHomeFolder();
// $XDG_DATA_HOME, then the absolute paths in $XDG_DATA_DIRS, else /usr/local/share and /usr/share:
// the more important folder first.
std::vector<std::string> dataFolders();

// The folder that the user's "user-dirs.dirs" has under "XDG_NAME_DIR", as "DOWNLOAD"
// (freedesktop's xdg-user-dirs; the home folder means that the user wants none). Nil when the file
// does not say.
std::optional<std::string> userDirectory(const std::string& name);

// Where the processes of one user meet: a folder "tervano" that lies in $XDG_RUNTIME_DIR, in
// /run/user/UID or, with neither, a folder /tmp/tervano-UID. Not every process of a session has
// the variable, so whoever wants to be found looks at all of them.
//
// A base counts when it is an absolute path to a folder of ours that nobody else may write to.
// What lies in /tmp must besides be no symbolic link and closed to everybody else (0700).
class RuntimeFolders {
 public:
  // A base folder and the name of our own folder inside it.
  struct Candidate {
    std::string base;
    std::string name;
    // Others may write to the base itself, so our folder is checked at every use.
    bool shared = false;

    std::string path() const { return base + "/" + name; }
    friend bool operator==(const Candidate&, const Candidate&) = default;
  };

  // The candidates whose base can be used, best first.
  static std::vector<Candidate> usable();

  // Opens the folder `name` inside the candidate's folder, making both (0700) when `create`. An
  // empty descriptor, with errno set, when it is missing or unsafe.
  static Descriptor open(const Candidate& candidate, const std::string& name, bool create);
};

// `name` as one file name of at most 200 bytes: letters, digits, "-", "_" and inner "." stay, other
// bytes become %XX; what grows too long becomes "%%" and its SHA-256. Distinct names give distinct
// file names; none begins with a dot.
std::string escapedFileName(const std::string& name);
// The name that escapedFileName made this of; a shortened one stays as it is.
std::string unescapedFileName(const std::string& fileName);

// `length` random letters and digits, for names that nobody can guess.
std::string randomFileNameSuffix(std::size_t length = 16);

}  // namespace tervano
