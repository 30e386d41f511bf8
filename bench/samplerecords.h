#pragma once

#include <string>
#include <vector>

namespace bench {

// The records of the sample, which real sensors sent. Ends the program where they can't be read.
const std::vector<std::string>& SampleRecords();

}  // namespace bench
