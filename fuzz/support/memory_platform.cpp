#include "support/memory_platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

using zb::PlatformHandle;

void Broken(const char* what, const char* file, int line) {
    fprintf(stderr, "%s:%d: %s\n", file, line, what);
    abort();
}

MemoryPlatform::MemoryPlatform() : previous(zb::platform) { zb::platform = this; }

MemoryPlatform::~MemoryPlatform() { zb::platform = previous; }

void MemoryPlatform::Put(const std::string& name, std::string bytes) {
    if (bytes.size() > MaxFile) bytes.resize(MaxFile);
    if (std::string* old = Find(name))
        *old = std::move(bytes);
    else
        files.push_back(std::make_shared<File>(File{name, std::move(bytes)}));
}

std::string* MemoryPlatform::Find(const std::string& name) {
    auto file = FileOf(name);
    return file ? &file->bytes : nullptr;
}

size_t MemoryPlatform::TotalBytes() const {
    size_t total = 0;
    for (auto& file : files) total += file->bytes.size();
    return total;
}

size_t MemoryPlatform::OpenFiles() const {
    return static_cast<size_t>(
        std::count_if(handles.begin(), handles.end(), [](const Handle& handle) { return handle.file; }));
}

void MemoryPlatform::CloseAll() { handles.clear(); }

void MemoryPlatform::Count() {
    if (left-- == 0) Broken("a call asks the platform for more than the file gives reason to");
}

std::shared_ptr<MemoryPlatform::File> MemoryPlatform::FileOf(const std::string& name) const {
    for (auto& file : files)
        if (file->name == name) return file;
    return nullptr;
}

MemoryPlatform::Handle* MemoryPlatform::HandleOf(PlatformHandle file) {
    Count();
    auto index = static_cast<size_t>(file);
    if (index < handles.size() && handles[index].file) return &handles[index];
    Failed(zb::ErrorBadHandle);
    return nullptr;
}

PlatformHandle MemoryPlatform::Open(const char* name, unsigned flags) {
    Count();
    auto file = FileOf(name);
    if (!file && flags & zb::OpenExisting) {
        Failed(zb::ErrorNotFound);
        return PlatformHandle::None;
    }
    if (!file) {
        file = std::make_shared<File>(File{name, {}});
        files.push_back(file);
    }
    for (const Handle& other : handles) {
        if (other.file != file) continue;
        auto refused = [](unsigned share, unsigned wanted) {
            return (wanted & zb::OpenRead && !(share & zb::ShareRead)) ||
                   (wanted & zb::OpenWrite && !(share & zb::ShareWrite));
        };
        if (refused(other.flags, flags) || refused(flags, other.flags)) {
            Failed(zb::ErrorSharing);
            return PlatformHandle::None;
        }
    }
    if (!(flags & zb::OpenExisting)) file->bytes.clear();
    size_t index = 0;
    while (index < handles.size() && handles[index].file) index++;
    if (index == handles.size()) handles.emplace_back();
    handles[index] = {file, flags, 0, {}};
    return static_cast<PlatformHandle>(index);
}

bool MemoryPlatform::Read(PlatformHandle file, void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    const std::string& bytes = handle->file->bytes;
    if (handle->position < static_cast<int64_t>(bytes.size()))
        *done =
            std::min(count, static_cast<uint32_t>(bytes.size()) - static_cast<uint32_t>(handle->position));
    memcpy(buffer, bytes.data() + (*done ? handle->position : 0), *done);
    handle->position += *done;
    return true;
}

bool MemoryPlatform::ReadMapped(PlatformHandle file, int64_t position, void* buffer, uint32_t count) {
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    auto length = static_cast<int64_t>(handle->file->bytes.size());
    if (position < 0 || position > length || count > length - position) return false;
    memcpy(buffer, handle->file->bytes.data() + position, count);
    handle->position = position + count;
    return true;
}

bool MemoryPlatform::Write(PlatformHandle file, const void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    if (!(handle->flags & zb::OpenWrite)) return Failed(zb::ErrorAccess);
    auto end = static_cast<size_t>(handle->position) + count;
    if (end > MaxFile) return Failed(zb::ErrorDiskFull);
    std::string& bytes = handle->file->bytes;
    if (count && end > bytes.size()) bytes.resize(end);
    if (count) memcpy(bytes.data() + handle->position, buffer, count);
    handle->position += count;
    *done = count;
    return true;
}

bool MemoryPlatform::Seek(PlatformHandle file, int64_t offset, zb::SeekFrom origin, uint32_t* position) {
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    if (origin == zb::SeekFrom::Current) offset += handle->position;
    if (origin == zb::SeekFrom::End) offset += static_cast<int64_t>(handle->file->bytes.size());
    if (offset < 0 || offset > zb::MaxPosition) return Failed(zb::ErrorBadPosition);
    handle->position = offset;
    *position = static_cast<uint32_t>(offset);
    return true;
}

bool MemoryPlatform::SetEnd(PlatformHandle file) {
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    if (!(handle->flags & zb::OpenWrite)) return Failed(zb::ErrorAccess);
    if (handle->position > static_cast<int64_t>(MaxFile)) return Failed(zb::ErrorDiskFull);
    handle->file->bytes.resize(static_cast<size_t>(handle->position));
    return true;
}

bool MemoryPlatform::Close(PlatformHandle file) {
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    *handle = {};
    return true;
}

bool MemoryPlatform::Delete(const char* name) {
    Count();
    auto at = std::find_if(files.begin(), files.end(), [&](auto& file) { return file->name == name; });
    if (at == files.end()) return Failed(zb::ErrorNotFound);
    files.erase(at);
    return true;
}

bool MemoryPlatform::Lock(PlatformHandle file, uint32_t offset, uint32_t length) {
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    for (const Handle& other : handles)
        if (other.file == handle->file)
            for (const Range& range : other.locks)
                if (offset < uint64_t{range.offset} + range.length &&
                    range.offset < uint64_t{offset} + length)
                    return Failed(zb::ErrorLockViolation);
    handle->locks.push_back({offset, length});
    return true;
}

bool MemoryPlatform::Unlock(PlatformHandle file, uint32_t offset, uint32_t length) {
    Handle* handle = HandleOf(file);
    if (!handle) return false;
    for (size_t i = 0; i < handle->locks.size(); i++) {
        if (handle->locks[i].offset != offset || handle->locks[i].length != length) continue;
        handle->locks.erase(handle->locks.begin() + static_cast<ptrdiff_t>(i));
        return true;
    }
    return Failed(zb::ErrorNotLocked);
}

int MemoryPlatform::Rename(const char* newName, const char* oldName) {
    Count();
    auto file = FileOf(oldName);
    if (!file) return 2;
    if (strcmp(newName, oldName) == 0) return 0;
    Delete(newName);
    file->name = newName;
    return 0;
}

bool MemoryPlatform::Exists(const char* name) {
    Count();
    return FileOf(name) != nullptr;
}

// What the files hold is reason for so much memory at once, and not for more.
void MemoryPlatform::CheckMemory(size_t bytes) const {
    if (bytes > 256 * 1024 + 8 * TotalBytes())
        Broken("more memory is asked for than the files give reason to");
}

void* MemoryPlatform::Allocate(size_t bytes) {
    CheckMemory(bytes);
    allocations++;
    return calloc(1, bytes);
}

void* MemoryPlatform::Reallocate(void* memory, size_t bytes) {
    CheckMemory(bytes);
    if (!memory) allocations++;
    return realloc(memory, bytes);
}

void MemoryPlatform::Free(void* memory) {
    if (memory) allocations--;
    free(memory);
}

void MemoryPlatform::ProfileText(const char*, const char*, char* text, size_t size) {
    snprintf(text, size, "%s", profile[0].c_str());
}

int32_t MemoryPlatform::ProfileNumber(const char*, const char*, int32_t fallback) {
    return profile[1].empty() ? fallback : atoi(profile[1].c_str());
}

zb::LocalTime MemoryPlatform::Now() { return {1999, 12, 31, 5, 23, 59, 58}; }

}  // namespace fuzz
