// Commands of qel that work on many files: "batch" runs one chain of
// operations on every input file on several threads, "info" describes files.
#pragma once

#include <string>
#include <vector>

namespace qeltool {

// qel batch IN... -o DIR [--format EXT] [-j N] [options] -- OP [ARGS]...
// `words` start with "batch". Returns the exit status: 0 when every file was
// written, 1 when any failed, 2 for a wrong command line.
int BatchCommand(const std::vector<std::string>& words);

// qel info FILE... [--json]: one line (or one JSON object) per file.
int InfoCommand(const std::vector<std::string>& words);

// "photos/IMG_1.jpeg" -> "IMG_1": the output name's stem in a batch.
std::string FileStem(const std::string& path);

// Text as a JSON string literal, quotes included.
std::string JsonString(const std::string& text);

}  // namespace qeltool
