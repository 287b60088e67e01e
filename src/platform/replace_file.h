#pragma once
// Writing a whole text file so that nobody ever sees part of it: the text
// goes to a temporary file in the same folder, which then takes the file's
// place by rename. A reader, or the process dying at any moment, meets the
// old contents or the new ones, never a cut line. (No fsync: the raw sample
// file is rewritten from the fusion cycle, and a power cut may still lose
// the newest version, though not leave a mixed one.)

#include <cstddef>

#include "platform/paths.h"

namespace imu::platform {

enum class WriteMode {
    kReplace,  // the text becomes the whole file ("w+")
    kAppend,   // the text follows the old contents ("a+")
};

// Writes len bytes of text to the fixed path p. The file keeps its
// permissions (and owner, where the process may set it); a new file gets
// 0666 less the umask, as fopen gives it. Fails where fopen with "w+" or
// "a+" fails, with the same errno (missing folder, a folder in its place,
// no permission), and also when the temporary file cannot be written or
// renamed; the file is then as it was. Returns 0, or -1 with errno set.
int write_file_atomically(FixedPath p, const char* text, std::size_t len,
                          WriteMode mode = WriteMode::kReplace) noexcept;

}  // namespace imu::platform
