// Reading without system calls. Every distinct file that is open has one image,
// which the handles on it share: a read-only mapping and the file's length as
// last known. The page cache is one, so a copy out of the mapping sees what any
// process has written, and no more than the length needs watching:
//
// - A read that goes beyond the known length asks for the true one first. The
//   process's own writes and cuts keep the known length true at once.
// - Another process may cut the file. Pages that are gone by it raise a signal,
//   which the copy survives (posix_guard.h), and pread answers instead. In the
//   page of the new end the cut raises nothing and leaves zeros; so a copy that
//   ends in the page of the known end with a zero is confirmed, unless the file
//   is said to count its pages itself.
// - What stays open: a foreign cut in the middle of a file may show as zeros in
//   the rest of that one page until a read meets the end.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "platform/posix_calls.h"
#include "platform/posix_guard.h"

namespace zb {

// Whether a file may be mapped: that depends on its file system.
enum class MapRule { NotAsked, Never, Always, ByWriters };

struct FileImage {
    dev_t device;
    ino_t inode;
    unsigned handles;
    MapRule rule;
    int64_t length;   // as last known
    bool paged;       // ReadHint::Pages: reads at the end needn't be confirmed
    Mapping mapping;  // no bytes while there is none
};

// The image of an open file, given its fresh status; made at the first handle.
// Null when there is no memory. ImageLeave gives it back.
FileImage* ImageJoin(const struct stat& status);
void ImageLeave(FileImage* image);

void ImageHint(FileImage& image, ReadHint hint);

// Takes the pages that reads have mapped out of the process.
void ImageRelease(FileImage& image);

// Reads what can be read without a call of the system. False when that isn't all,
// and then `buffer` holds nothing of use.
bool ImageCopy(const FileImage& image, void* buffer, uint32_t count, int64_t position);

// Reads like pread: the bytes read, or -1 with errno. `writable` tells whether
// the descriptor is.
int64_t ImageRead(FileImage& image, int fd, bool writable, void* buffer, uint32_t count, int64_t position);

}  // namespace zb
