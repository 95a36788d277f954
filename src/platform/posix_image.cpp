#include "platform/posix_image.h"

#include <linux/magic.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "platform/posix_array.h"

namespace zb {
namespace {

// Larger reads are left to pread: there the call is a small share of the cost,
// and the pages copied don't count as the process's own.
constexpr uint32_t LargestCopy = 4096;

// A mapping reaches beyond the end of its file, so that the file can grow into it,
// but not far: at every change of the file's size the system looks through all of
// the mapping that lies behind the new end, and with one that held every position
// it would be at that for longer than at the change itself.
constexpr int64_t MappingStep = 32 << 20;

size_t SizeToMap(int64_t length) {
    return static_cast<size_t>(std::min((length / MappingStep + 2) * MappingStep, MaxPosition + 1));
}

PosixArray<FileImage*> images;

size_t PageSize() {
    static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

// What may be mapped are the file systems whose pages in memory are the file, for
// every reader and writer there is. They are listed, and not those that are
// otherwise: a network or user-space file system that nobody has thought of then
// costs time and not truth.
MapRule RuleOf(decltype(statfs::f_type) fileSystem) {
    constexpr uint32_t XfsMagic = 0x58465342;
    constexpr uint32_t ZfsMagic = 0x2FC12FC1;
    constexpr uint32_t BcachefsMagic = 0xCA451A4E;
    constexpr uint32_t RamfsMagic = 0x858458F6;
    switch (static_cast<uint32_t>(fileSystem)) {
        case EXT4_SUPER_MAGIC:  // and ext2, ext3
        case XfsMagic:
        case BTRFS_SUPER_MAGIC:
        case TMPFS_MAGIC:
        case RamfsMagic:
        case F2FS_SUPER_MAGIC:
        case ZfsMagic:
        case BcachefsMagic:
        case MSDOS_SUPER_MAGIC:
        case ISOFS_SUPER_MAGIC:
        case SQUASHFS_MAGIC: return MapRule::Always;
        // Here the first open for writing moves a file to another place, and a
        // mapping that was made for reading would stay with the old one.
        case OVERLAYFS_SUPER_MAGIC: return MapRule::ByWriters;
        default: return MapRule::Never;
    }
}

bool ReadsForcedToCalls() {
    const char* reads = getenv("ZB_READS");
    return reads && strcmp(reads, "pread") == 0;
}

// The same file once more, for reading only; -1 where that can't be had.
int OpenAgain(int fd) {
    char name[32];
    snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
    return posixCalls.open(name, O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, 0);
}

// Makes the mapping, if there may be one. A mapping keeps the open that it was
// made through, and that open's locks and marks, for as long as it is there: it
// gets an open of its own, so that those of a handle end with the handle.
bool ImageMap(FileImage& image, int fd, bool writable) {
    if constexpr (SIZE_MAX / 4 < MaxPosition) return false;
    if (image.rule == MapRule::NotAsked) {
        struct statfs system {};
        bool known = posixCalls.fstatfs(fd, &system) == 0;
        image.rule = known && !ReadsForcedToCalls() ? RuleOf(system.f_type) : MapRule::Never;
    }
    if (image.rule == MapRule::Never || (image.rule == MapRule::ByWriters && !writable)) return false;
    void* bytes = MAP_FAILED;
    size_t size = SizeToMap(image.length);
    int again = GuardInstall() ? OpenAgain(fd) : -1;
    if (again >= 0) {
        bytes = posixCalls.mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_NORESERVE, again, 0);
        posixCalls.close(again);
    }
    if (bytes == MAP_FAILED) {
        image.rule = MapRule::Never;
        return false;
    }
    image.mapping = {static_cast<const unsigned char*>(bytes), size};
    return true;
}

// Lets the mapping reach beyond the known end again. False when the system refuses.
bool ImageGrow(FileImage& image) {
    size_t size = SizeToMap(image.length);
    void* bytes = posixCalls.mremap(const_cast<unsigned char*>(image.mapping.bytes), image.mapping.size, size,
                                    MREMAP_MAYMOVE);
    if (bytes == MAP_FAILED) return false;
    image.mapping = {static_cast<const unsigned char*>(bytes), size};
    return true;
}

// Whether a read of `size` bytes that ends at `end` may be of zeros that a cut has
// left behind the true end.
bool MayBeCut(const FileImage& image, const void* buffer, size_t size, int64_t end) {
    if (image.paged || static_cast<const unsigned char*>(buffer)[size - 1] != 0) return false;
    auto page = static_cast<int64_t>(PageSize());
    return (end - 1) / page == (image.length - 1) / page;
}

bool RefreshLength(FileImage& image, int fd) {
    struct stat status {};
    if (posixCalls.fstat(fd, &status) != 0) return false;
    image.length = status.st_size;
    return true;
}

int64_t ReadByCall(int fd, void* buffer, uint32_t count, int64_t position) {
    auto* to = static_cast<unsigned char*>(buffer);
    int64_t total = 0;
    while (total < count) {
        ssize_t got = posixCalls.pread(fd, to + total, count - static_cast<size_t>(total), position + total);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        total += got;
    }
    return total;
}

}  // namespace

FileImage* ImageJoin(const struct stat& status) {
    for (size_t i = 0; i < images.count; i++) {
        FileImage* image = images[i];
        if (image->device != status.st_dev || image->inode != status.st_ino) continue;
        image->handles++;
        image->length = status.st_size;
        return image;
    }
    if (!images.Reserve()) return nullptr;
    auto* image = static_cast<FileImage*>(posixCalls.realloc(nullptr, sizeof(FileImage)));
    if (!image) return nullptr;
    *image = {status.st_dev, status.st_ino, 1, MapRule::NotAsked, status.st_size, false, {nullptr, 0}};
    images.Insert(images.count, image);
    return image;
}

void ImageLeave(FileImage* image) {
    if (--image->handles > 0) return;
    size_t index = 0;
    while (images[index] != image) index++;
    images.Remove(index);
    if (image->mapping.bytes)
        posixCalls.munmap(const_cast<unsigned char*>(image->mapping.bytes), image->mapping.size);
    free(image);
}

void ImageHint(FileImage& image, ReadHint hint) {
    if (hint == ReadHint::Pages)
        image.paged = true;
    else if (!image.mapping.bytes)
        image.rule = MapRule::Never;
}

void ImageRelease(FileImage& image) {
    if (image.mapping.bytes)
        posixCalls.madvise(const_cast<unsigned char*>(image.mapping.bytes), image.mapping.size,
                           MADV_DONTNEED);
}

bool ImageCopy(const FileImage& image, void* buffer, uint32_t count, int64_t position) {
    int64_t end = position + count;
    if (position < 0 || count - 1 >= LargestCopy || end > image.length ||
        end > static_cast<int64_t>(image.mapping.size))
        return false;
    return GuardedCopy(buffer, image.mapping, static_cast<size_t>(position), count) &&
           !MayBeCut(image, buffer, count, end);
}

int64_t ImageRead(FileImage& image, int fd, bool writable, void* buffer, uint32_t count, int64_t position) {
    int64_t end = position + count;
    if (count > LargestCopy || end > MaxPosition) return ReadByCall(fd, buffer, count, position);
    if (!image.mapping.bytes && !ImageMap(image, fd, writable))
        return ReadByCall(fd, buffer, count, position);

    if (end > image.length) {
        if (!RefreshLength(image, fd)) return -1;
        if (position >= image.length) return 0;
        if (end > image.length) end = image.length;
    }
    auto size = static_cast<size_t>(end - position);
    if (end > static_cast<int64_t>(image.mapping.size) && !ImageGrow(image))
        return ReadByCall(fd, buffer, static_cast<uint32_t>(size), position);
    if (!GuardedCopy(buffer, image.mapping, static_cast<size_t>(position), size)) {
        if (!RefreshLength(image, fd)) return -1;
        return ReadByCall(fd, buffer, count, position);
    }
    if (MayBeCut(image, buffer, size, end)) {
        if (!RefreshLength(image, fd)) return -1;
        if (image.length < end) return ReadByCall(fd, buffer, count, position);
    }
    return static_cast<int64_t>(size);
}

}  // namespace zb
