#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>

namespace Zel::System::Commons::Io {

class ZEL_API File {
public:
    // Copies source to destination. With overwrite false an existing
    // destination is left alone and false returned. With atomic true the
    // destination is replaced crash-safely: the copy is written to a
    // temporary file in the destination's directory, flushed to disk, given
    // the destination's permission bits and owner, renamed over it, and the
    // directory is flushed; a reader sees either the old or the new content,
    // never a part. Returns false (with errno set) on any failure, leaving
    // the destination as it was.
    static bool Copy(const BasicString& source, const BasicString& destination, bool overwrite, bool atomic);

    // Removes the file; false (with errno set) when it could not be removed.
    static bool Delete(const BasicString& path);

    static bool Exists(const BasicString& path);
};

} // namespace Zel::System::Commons::Io
