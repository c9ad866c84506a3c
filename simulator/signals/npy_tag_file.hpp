// Tags from a NumPy array file; npy_header.hpp draws its layout.
#pragma once

#include "simulator/signals/file_tags.hpp"
#include "simulator/signals/tag_file_bytes.hpp"

namespace zelk::simulator {

// Reads the whole file, from its front. Throws Failure with what is wrong with
// the header, with a file that does not hold the rows that its header counts,
// or with the number of the row that is wrong, from 0. Asks for no more memory
// than the rows take that the file has.
FileTags read_npy_tag_file(TagFileBytes& file);

}  // namespace zelk::simulator
