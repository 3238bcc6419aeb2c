#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

namespace phonelog {

// Calls `take` for each line of a file that can hold a message of the node, without its newline;
// lines that cannot are passed over unread. Takes a text, or the zip file of a bug report, of which
// it reads the texts that are the report; of a bug report only the system log. The memory that is
// used does not depend on the file's length: of a line of more than 64 KiB the rest is taken for a
// line of its own. Throws UseError for what cannot be read, UTF-16, compressed and binary files
// among it, and for a line without end.
void ForEachLine(const std::filesystem::path& file,
                 const std::function<void(std::string_view)>& take);

} // namespace phonelog
