#pragma once

#include <memory>
#include <string_view>

#include "records/input/bytestream.h"

namespace zel {

// Streams of one packed file. Each gives what `packed` holds and reads it as far as it must;
// `packed` has to outlive it. What was unpacked ahead of damage, or of the place where a file is
// cut off, is good and is given first; only then comes the failure. Several packed pieces may
// follow one another, as tools that append make them.
//
// By what the bytes begin with; null for what is not packed in such a way (gzip, xz, zstd).
std::unique_ptr<ByteStream> MakeUnpacker(std::string_view head, ByteStream& packed);

}  // namespace zel
