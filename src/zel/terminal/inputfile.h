#pragma once

#include <cstddef>
#include <string>

namespace zel {

// Reads a whole small file, or standard input for "-", into `text`. False, with one message in
// `problem` that names the file, when it can't be read or holds more than `most` bytes, of which no
// more is kept; also when the program is interrupted meanwhile. The file may be a pipe. `text` is
// unspecified on failure, and the bytes are not looked at: whether they are UTF-8 or JSON is for
// the caller to ask.
bool ReadInputFile(const std::string& name, std::size_t most, std::string* text,
                   std::string* problem);

}  // namespace zel
