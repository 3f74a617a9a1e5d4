// Streams a file's lines through a bounded buffer, so a log of gigabytes is read once,
// without ever holding it whole. Lines are split at "\n"; empty lines are skipped; a last
// line without a newline is still delivered. A log whose name ends in ".zst" is
// decompressed on the way (LogBytes), into the same bounded buffer.
#pragma once

#include "core/log_bytes.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string_view>

namespace usagekit::Scan {

// Every line either function below hands out is followed in memory by "\n" and at least
// this many readable bytes in all (the rest of the read buffer, then slack past its end),
// so that a parser that reads a little past the end of its input, as On-Demand JSON does,
// can parse the line where it lies instead of a copy. The byte right after a line is "\n"
// even for a last line without one: On-Demand reads it as the line's last structural
// character when the brackets do not balance, and what it finds there must not depend on
// what came before.
inline constexpr size_t kLineSlack = 64;

// Lines this long or longer are not handed out by either function below: such a line is
// passed over as a malformed one is, so that a log of one endless line costs a bounded
// buffer instead of all memory. No tool writes a line anywhere near this long.
inline constexpr size_t kMaxLineBytes = size_t{64} << 20;

// Calls `line(text)` for each non-empty line; the view is valid only during the call.
// Returns false when the file cannot be opened (no line is delivered then); a read error
// part-way ends the file early, as if it were cut off there.
bool forEachLineInFile(const std::filesystem::path& path,
                       const std::function<void(std::string_view)>& line);

// Calls `line(text)` only for the lines that contain `needle`, found by searching the
// stream for the needle rather than splitting every line: most log bytes sit in lines a
// reader would skip anyway. The same lines, in the same order, as forEachLineInFile
// followed by a contains() test.
bool forEachLineContaining(const std::filesystem::path& path, std::string_view needle,
                           const std::function<void(std::string_view)>& line);

}  // namespace usagekit::Scan
