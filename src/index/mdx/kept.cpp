#include "index/mdx/kept.h"

#include <algorithm>

#include "file/operations.h"
#include "index/build.h"
#include "index/mdx/mdx.h"

namespace zb {

void MdxKept::Begin(MdxTag& of) {
    tag = &of;
    of.kept = this;
}

Code MdxKept::Get(uint32_t number, uint8_t** data) {
    const MdxFile& file = *tag->file;
    uint32_t index = number - MdxFirstPage;
    if (index >= room) {
        uint32_t wanted = std::max(2 * room, index + 1024);
        if ((room ? BlockRealloc(pages.memory, wanted * sizeof(Page)) : pages.Alloc(wanted)) < 0 ||
            pages.Lock() < 0)
            return Pass("Mpget");
        room = wanted;
    }
    Page& page = pages[index];
    if (!page.data) {
        auto* memory = static_cast<uint8_t*>(
            platform->Allocate(static_cast<size_t>(file.blockBytes() + PagePool::Margin)));
        if (!memory) return Fail("Mpget", ErrMemory);
        if (Hseek(file.handle, int64_t{number} * MdxUnit) < 0 ||
            Hread(file.handle, memory, static_cast<int16_t>(file.blockBytes())) < 0) {
            platform->Free(memory);
            return Pass("Mpget");
        }
        page = {memory, false};
        bytes += file.blockBytes();
    }
    *data = page.data;
    return CurrentCode();
}

Code MdxKept::Write() {
    MdxFile& file = *tag->file;
    tag->kept = nullptr;
    PageWriter writer;
    for (uint32_t i = 0; i < room && !Pending(); i++)
        if (pages[i].dirty)
            writer.Write(file.handle, (MdxFirstPage + int64_t{i}) * MdxUnit, pages[i].data,
                         file.blockBytes());
    if (!Pending()) writer.Flush(file.handle);
    if (!Pending() && MdxWriteRoot(*tag) >= 0) MdxWriteHeader(file, 32, 12);
    Drop();
    return Pending() ? Pass("Mtindex") : CurrentCode();
}

void MdxKept::Drop() {
    for (uint32_t i = 0; i < room; i++) {
        if (pages[i].data) platform->Free(pages[i].data);
        pages[i] = {};
    }
    bytes = 0;
}

Code MdxKept::Relieve() {
    if (bytes <= MostBytes) return CurrentCode();
    Write();
    tag->kept = this;
    return CurrentCode();
}

Code MdxKept::End() {
    Write();
    pages.Free();
    room = 0;
    tag = nullptr;
    return CurrentCode();
}

}  // namespace zb
