#pragma once

#include <string>

namespace wm {

// The folders that a user's desktop session keeps for documents, pictures and so on, as stated in
// the user's own file or, without a word there, at their usual places under `home`. `folder` is a
// number of the shell. False for one that has no counterpart. Paths are UTF-8. Reads the file at
// each call, so that a change takes effect without a restart. Nothing is looked at beyond that
// file: the folder need not exist. The file is the user's, and whatever it holds can't hold up the
// caller or make it read elsewhere.
bool FindUserDirectory(const std::string& home, int folder, std::string* path);

}  // namespace wm
