#include "index/mdx/kept.h"

#include <algorithm>

#include "file/operations.h"
#include "index/build.h"
#include "index/mdx/mdx.h"

namespace zb {

void MdxKept::Begin(MdxTag& of) {
    tag = &of;
    firstRoot = of.rootPage;
    of.kept = this;
}

Code MdxKept::Get(uint32_t number, uint8_t** data) {
    uint32_t index = number - MdxFirstPage;
    if ((index >= room || !pages[index].data) && Load(number) < 0) return Pass("Mpget");
    *data = pages[index].data;
    return CurrentCode();
}

// Reads a page first: a number from a file that no page there can have must not
// lead to room for it.
Code MdxKept::Load(uint32_t number) {
    const MdxFile& file = *tag->file;
    uint32_t index = number - MdxFirstPage;
    auto* memory =
        static_cast<uint8_t*>(platform->Allocate(static_cast<size_t>(file.blockBytes() + PagePool::Margin)));
    if (!memory) return Fail("Mpget", ErrMemory);
    bool loaded = Hseek(file.handle, int64_t{number} * MdxUnit) >= 0 &&
                  Hread(file.handle, memory, static_cast<int16_t>(file.blockBytes())) >= 0;
    if (loaded && index >= room) {
        uint32_t wanted = std::max(2 * room, index + 1024);
        loaded = (room ? BlockRealloc(pages.memory, wanted * sizeof(Page)) : pages.Alloc(wanted)) >= 0 &&
                 pages.Lock() >= 0;
        if (loaded) room = wanted;
    }
    if (!loaded) {
        platform->Free(memory);
        return CurrentCode();
    }
    pages[index] = {memory, false};
    bytes += file.blockBytes();
    return CurrentCode();
}

// Writes all changed pages but the first root. The free list goes first: its pages
// are overwritten from here on.
Code MdxKept::WritePages() {
    MdxFile& file = *tag->file;
    if (MdxWriteHeader(file, 32, 12) < 0) return CurrentCode();
    PageWriter writer;
    for (uint32_t i = 0; i < room; i++)
        if (pages[i].dirty && i != rootIndex() &&
            writer.Write(file.handle, (MdxFirstPage + int64_t{i}) * MdxUnit, pages[i].data,
                         file.blockBytes()) < 0)
            return CurrentCode();
    return writer.Flush(file.handle);
}

void MdxKept::Drop(uint32_t index) {
    if (!pages[index].data) return;
    platform->Free(pages[index].data);
    pages[index] = {};
    bytes -= tag->file->blockBytes();
}

Code MdxKept::Relieve() {
    if (bytes <= mostBytes) return CurrentCode();
    if (WritePages() < 0) return Pass("Mtindex");
    for (uint32_t i = 0; i < room; i++)
        if (i != rootIndex()) Drop(i);
    return CurrentCode();
}

Code MdxKept::End() {
    const MdxFile& file = *tag->file;
    tag->kept = nullptr;
    WritePages();
    if (!Pending() && rootIndex() < room && pages[rootIndex()].dirty &&
        Hseek(file.handle, int64_t{firstRoot} * MdxUnit) >= 0)
        Hwrite(file.handle, pages[rootIndex()].data, static_cast<int16_t>(file.blockBytes()), false);
    if (!Pending()) MdxWriteRoot(*tag);
    for (uint32_t i = 0; i < room; i++) Drop(i);
    pages.Free();
    room = 0;
    return Pending() ? Pass("Mtindex") : CurrentCode();
}

}  // namespace zb
