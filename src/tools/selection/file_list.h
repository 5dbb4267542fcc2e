#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tervano {

// The kinds of content in which files are copied from one program to another, the better first.
inline constexpr const char* kFileListTypes[] = {"text/uri-list", "x-special/gnome-copied-files",
                                                 "text/plain;charset=utf-8", "text/plain"};

// The local files that a content of one of these kinds names, each once, in their order.
//
// A list of URIs (RFC 2483) may hold others than files of this machine, which are left out. Of
// "x-special/gnome-copied-files" the first line tells what is to be done with the files and is
// passed over. A text names files when each of its lines that is not empty is an absolute path or a
// file URI, and none otherwise.
std::vector<std::string> filesOfContent(std::string_view type, std::string_view content);

}  // namespace tervano
