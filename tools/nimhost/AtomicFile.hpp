#pragma once

#include <string>

namespace Zel::Tools::Nimhost {

// Replaces `path` with `content` so that a reader sees the old file or the
// new one, never a part: the text goes to a temporary file in the same
// directory, which is then renamed over `path`. The file is readable by
// everyone (0644), since node_exporter reads it as its own user. Throws
// std::system_error naming the path; the temporary file is then removed.
void WriteFileAtomically(const std::string& path, const std::string& content);

} // namespace Zel::Tools::Nimhost
