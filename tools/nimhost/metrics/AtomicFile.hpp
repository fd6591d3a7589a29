#pragma once

#include <string>

namespace Zel::Tools::Nimhost {

// Replaces `path` with `content` so that a reader sees the old file or the
// new one, never a part, also after a power cut: the text goes to a
// temporary file in the same directory, is flushed to the disk and renamed
// over `path`, and the directory is flushed, so that once the call returns
// the new file survives a power cut. The file is readable by everyone
// (0644), since node_exporter reads it as its own user. Throws
// std::system_error naming the path; the temporary file is then removed (a
// power cut may leave it, under a hidden name the collector ignores).
void WriteFileAtomically(const std::string& path, const std::string& content);

} // namespace Zel::Tools::Nimhost
