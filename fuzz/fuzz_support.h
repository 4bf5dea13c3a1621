// What the fuzz targets share: reading an input's parts, files of their own, and stating what must hold.
#ifndef FUZZ_FUZZ_SUPPORT_H
#define FUZZ_FUZZ_SUPPORT_H

#include <string>
#include <vector>

#include "support/root_directory.h"

namespace Fuzz {

// The process's own directory, which goes with it.
extern const Support::RootDirectory DIRECTORY;

// Ends the process when the claim does not hold, so that the input is kept.
void Check(bool holds, const std::string& claim);

// The input's parts, which lines of "--" separate; as many as asked for, empty where the input has fewer, and
// the last one with the rest. 0 stands for all that there are. "%{300*<a#>}%" in a part stands for 300 times
// "<a#>", the "#" being the number of the repetition.
std::vector<std::string> Parts(const std::string& input, size_t count = 0);

// What the service takes a text field of a request for: it ends at its NUL.
std::string FieldText(const std::string& part);

} // namespace Fuzz

#endif
