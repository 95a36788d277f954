#include "memo.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "failure.h"
#include "files.h"

namespace tool {
namespace {

constexpr size_t kBlock = 512;        // of the terminated layout
constexpr size_t kMemoHead = 8;       // before the text in the other two
constexpr size_t kFptHeader = 512;    // no memo begins within it
constexpr size_t kLongest = 0x1000B;  // bytes that a readable memo takes at most, head and mark included
constexpr uint16_t kFptMode = 4;
constexpr int16_t kUsualFptBlock = 64;
constexpr int16_t kWholeFile = 2;
constexpr uint16_t kConflict = 100;
constexpr char kEndMark = 0x1A;
constexpr std::string_view kSoftReturn = "\x8D\x0A";

uint64_t Ceil(uint64_t bytes, uint64_t block) { return (bytes + block - 1) / block; }

uint32_t Le32(const uint8_t* bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

uint32_t Be32(const uint8_t* bytes) {
    return bytes[3] | uint32_t{bytes[2]} << 8 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[0]} << 24;
}

bool ReadAt(const std::string& path, uint64_t position, uint8_t* bytes, size_t count) {
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(position));
    return static_cast<bool>(file.read(reinterpret_cast<char*>(bytes), static_cast<std::streamsize>(count)));
}

Failure NoRoom(const std::string& name, const std::string& why) {
    return Failure(Exit::damaged, name + ": " + DescribeCode(ZB_ErrStructure) + "; " + why +
                                      ", nothing was written (zb memo pack makes the file anew)");
}

}  // namespace

MemoLayout LayoutOf(int dialect) {
    if (dialect == ZB_DialectFox128 || dialect == ZB_DialectFox255) return MemoLayout::fpt;
    return dialect == ZB_DialectDb4 ? MemoLayout::counted : MemoLayout::terminated;
}

const char* MemoExtension(int dialect) { return LayoutOf(dialect) == MemoLayout::fpt ? ".FPT" : ".DBT"; }

std::optional<std::string> FindMemoFile(const std::string& tablePath, int dialect, const std::string& given) {
    if (given.empty()) {
        std::string likely = NewMemoName(tablePath, dialect);
        return Exists(likely) ? likely : FindSibling(tablePath, MemoExtension(dialect));
    }
    if (Exists(given)) return given;
    return FindSibling(given, std::filesystem::path(given).extension().string());
}

std::string NewMemoName(const std::string& tablePath, int dialect) {
    std::string extension = MemoExtension(dialect);
    std::string own = std::filesystem::path(tablePath).extension().string();
    if (std::any_of(own.begin(), own.end(), [](unsigned char c) { return std::islower(c); }))
        for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return WithExtension(tablePath, extension);
}

std::string MemoNameFor(const std::string& tablePath, int dialect, const std::string& given) {
    if (!given.empty()) return given;
    return FindMemoFile(tablePath, dialect, {}).value_or(NewMemoName(tablePath, dialect));
}

bool HasMemoField(const std::vector<Field>& fields) {
    return std::any_of(fields.begin(), fields.end(), [](const Field& field) { return field.type == 'M'; });
}

std::string MemoFileForWriting(Data& data, const std::string& given) {
    if (auto path = FindMemoFile(data.path(), data.dialect(), given)) return *path;
    std::string path = given.empty() ? NewMemoName(data.path(), data.dialect()) : given;
    uint32_t count = data.count();
    for (uint32_t record = 1; record <= count; ++record) {
        data.Read(record);
        for (const Field& field : data.fields())
            if (field.type == 'M' && MemoNumber(data.Raw(field)).value_or(1) != 0)
                throw Failure(Exit::notFound, path + ": " + DescribeCode(ZB_ErrOpen) +
                                                  "; there is no memo file, and record " +
                                                  std::to_string(record) + " has a memo in it");
    }
    CreateMemoFile(path, data.dialect());
    return path;
}

void CreateMemoFile(const std::string& path, int dialect, uint32_t blockSize) {
    bool multiple = blockSize % kBlock == 0 && blockSize / kBlock >= 1 && blockSize / kBlock <= 32;
    auto multiplier = static_cast<int16_t>(multiple ? blockSize / kBlock : 1);
    if (LayoutOf(dialect) != MemoLayout::fpt) {
        Check(ZBDTCREATEX(path.c_str(), multiplier, static_cast<int16_t>(dialect)), path);
        return;
    }
    int16_t bytes = blockSize > 32 && blockSize < kBlock ? static_cast<int16_t>(blockSize) : kUsualFptBlock;
    Check(ZBDWCREATE(path.c_str(), multiple ? multiplier : bytes), path);
}

std::optional<uint32_t> MemoNumber(std::string_view raw) {
    size_t first = raw.find_first_not_of(std::string_view(" \0", 2));
    if (first == std::string_view::npos) return 0;
    raw.remove_prefix(first);
    raw = raw.substr(0, raw.find_last_not_of(std::string_view(" \0", 2)) + 1);
    uint32_t block = 0;
    auto result = std::from_chars(raw.data(), raw.data() + raw.size(), block);
    bool whole = result.ec == std::errc() && result.ptr == raw.data() + raw.size();
    // The library's block numbers are signed.
    if (!whole || block > INT32_MAX) return std::nullopt;
    return block;
}

std::string MemoPointer(uint32_t block, uint16_t width) {
    std::string digits = block == 0 ? "" : std::to_string(block);
    return std::string(width > digits.size() ? width - digits.size() : 0, ' ') + digits;
}

std::string WithoutSoftReturns(std::string text, int dialect, Codec& codec) {
    // This library breaks no lines of counted memos, but others do.
    if (LayoutOf(dialect) == MemoLayout::fpt || dialect == ZB_DialectWideChar || codec.raw()) return text;
    for (size_t at = 0; (at = text.find(kSoftReturn, at)) != std::string::npos;) {
        bool ofCharacter = !codec.singleByte() && at > 0 && static_cast<unsigned char>(text[at - 1]) >= 0x80;
        if (ofCharacter)
            at += kSoftReturn.size();
        else
            text.erase(at, kSoftReturn.size());
    }
    return text;
}

namespace {

MemoFit EncodeMemo(std::string_view utf8, int dialect, Codec& codec, std::string& bytes) {
    bool whole = codec.Encode(utf8, bytes);
    MemoFit fit = whole ? MemoFit::exact : MemoFit::unencodable;
    auto drop = [&](char byte) {
        auto end = std::remove(bytes.begin(), bytes.end(), byte);
        if (end != bytes.end()) fit = MemoFit::reserved;
        bytes.erase(end, bytes.end());
    };
    drop('\0');
    if (LayoutOf(dialect) == MemoLayout::terminated) drop(kEndMark);
    // A reader would take these out; what is left may be another.
    for (std::string read; (read = WithoutSoftReturns(bytes, dialect, codec)) != bytes; bytes = read)
        fit = MemoFit::reserved;
    return fit;
}

}  // namespace

MemoFit MakeMemo(std::string_view utf8, int dialect, Codec& codec, std::string& bytes) {
    MemoFit fit = EncodeMemo(utf8, dialect, codec, bytes);
    if (bytes.size() <= kMemoLimit) return fit;
    while (bytes.size() > kMemoLimit) {
        // A character takes at most four bytes, so that never too much is cut.
        size_t excess = std::min((bytes.size() - kMemoLimit + 3) / 4, utf8.size());
        utf8 = utf8.substr(0, WholeCharacters(utf8, utf8.size() - excess));
        EncodeMemo(utf8, dialect, codec, bytes);
    }
    return MemoFit::tooLong;
}

std::string DescribeMemoFit(MemoFit fit) {
    switch (fit) {
        case MemoFit::exact: return "fits";
        case MemoFit::tooLong: return "is longer than " + std::to_string(kMemoLimit) + " bytes";
        case MemoFit::unencodable: return "has characters that the table's encoding lacks";
        case MemoFit::reserved: break;
    }
    return "has bytes that a memo of this layout can't hold";
}

MemoFile::MemoFile(const std::string& path, int tableDialect, Access access)
    : name(path), dialect(tableDialect), layout(LayoutOf(tableDialect)) {
    uint16_t mode = layout == MemoLayout::fpt ? kFptMode : static_cast<uint16_t>(dialect);
    if (access == Access::read) mode |= ZB_ReadOnly;
    if (access != Access::exclusive) mode |= ZB_Shared;
    if (access != Access::read && ::access(name.c_str(), W_OK) != 0)
        throw CodeFailure(ZB_ErrReadOnly, name, "permission denied");
    Check(layout == MemoLayout::fpt ? ZBDWOPENX(&handle, name.c_str(), mode)
                                    : ZBDTOPENX(&handle, name.c_str(), mode),
          name);
    uint8_t bytes[22] = {};
    ReadAt(name, 0, bytes, sizeof bytes);
    if (layout == MemoLayout::fpt) size = Be32(bytes + 4);
    if (layout == MemoLayout::counted) size = bytes[20] | uint32_t{bytes[21]} << 8;
}

MemoFile::~MemoFile() {
    if (handle < 0) return;
    ZBESCODE(0);
    layout == MemoLayout::fpt ? ZBDWCLOSE(handle) : ZBDTCLOSE(handle);
}

void MemoFile::Close() {
    int16_t closing = handle;
    handle = -1;
    Check(layout == MemoLayout::fpt ? ZBDWCLOSE(closing) : ZBDTCLOSE(closing), name);
}

int MemoFile::Read(uint32_t block, std::string& text) {
    void* memory = nullptr;
    auto number = static_cast<int32_t>(block);
    int code =
        layout == MemoLayout::fpt ? ZBDWRGET(handle, number, &memory) : ZBDTRGET(handle, number, &memory, 0);
    text.clear();
    if (code < 0) ZBESCODE(0);
    if (memory == nullptr) return code < 0 ? code : ZB_ErrRead;
    text = static_cast<const char*>(memory);
    ZBMFREE(memory);
    return code;
}

void MemoFile::Begin() {
    uses.clear();
    surveyed = true;
    roomKnown = false;
}

void MemoFile::Survey(Data& data) {
    Begin();
    uint32_t count = data.count();
    for (uint32_t record = 1; record <= count; ++record) {
        data.Read(record);
        for (const Field& field : data.fields()) {
            if (field.type != 'M') continue;
            uint32_t block = MemoNumber(data.Raw(field)).value_or(0);
            if (block != 0) ++uses[block];
        }
    }
}

MemoFile::Head MemoFile::ReadHead() const {
    uint8_t bytes[4];
    std::error_code error;
    uint64_t length = std::filesystem::file_size(name, error);
    if (error || !ReadAt(name, 0, bytes, sizeof bytes)) throw CodeFailure(ZB_ErrRead, name);
    return {layout == MemoLayout::fpt ? Be32(bytes) : Le32(bytes), length};
}

// The blocks that a text owns where it stands: in the terminated layout with one
// of its two marks, since other programs may write no more.
uint64_t MemoFile::BlocksOf(size_t text) const {
    return Ceil(layout == MemoLayout::terminated ? text + 1 : text + kMemoHead, size);
}

// Whether a record names a memo with a byte in the blocks `from` up to `to`.
bool MemoFile::Named(uint64_t from, uint64_t to) {
    uint64_t reach = Ceil(kLongest, size);
    auto memo = uses.lower_bound(static_cast<uint32_t>(from > reach ? from - reach : 0));
    std::string text;
    for (; memo != uses.end() && memo->first < to; ++memo) {
        if (memo->first >= from) return true;
        if (Read(memo->first, text) >= 0 && memo->first + BlocksOf(text.size()) > from) return true;
    }
    return false;
}

// A text that is no longer than the old one has room wherever the old one was,
// if no other record shares that room. The last lines tell whether the library
// will see it so; where it may not, a new memo is what it would write.
bool MemoFile::FitsInPlace(uint32_t block, size_t length) {
    auto use = uses.find(block);
    if (use == uses.end() || use->second != 1) return false;
    if (layout == MemoLayout::fpt && uint64_t{block} * size < kFptHeader) return false;
    std::string old;
    if (Read(block, old) < 0 || length > old.size()) return false;
    uint64_t end = block + BlocksOf(old.size());
    uses.erase(use);
    bool shared = Named(block, end);
    uses[block] = 1;
    if (shared) return false;
    switch (layout) {
        case MemoLayout::terminated:
            return length + 2 <= kBlock || Ceil(length + 2, kBlock) <= Ceil(old.size(), kBlock);
        case MemoLayout::counted: return true;
        case MemoLayout::fpt: return length + kMemoHead <= old.size();
    }
    return false;
}

// Sees to it that the next new memo goes where nothing is. Once that is so, the
// writes keep it so.
void MemoFile::MakeRoom(size_t length) {
    if (roomKnown) return;
    Head head = ReadHead();
    uint64_t whole = head.length / size;
    uint64_t headerBlocks = layout == MemoLayout::fpt ? Ceil(kFptHeader, size) : 1;
    if (head.next < headerBlocks || head.next > INT32_MAX)
        throw NoRoom(name, "its header names no block for new memos");
    if (layout != MemoLayout::counted || head.next >= whole) {
        if (Named(head.next, UINT32_MAX)) throw NoRoom(name, "a new memo would go where a record has one");
        roomKnown = true;
        return;
    }
    // The first free run, which is taken whole: that ends the chain, and with it
    // the danger that the chain leads into a memo.
    uint8_t bytes[8] = {};
    ReadAt(name, uint64_t{head.next} * size, bytes, sizeof bytes);
    uint64_t end = head.next + uint64_t{Le32(bytes + 4)};
    if (end == head.next || end > whole || Named(head.next, end) || Named(whole, UINT32_MAX))
        throw NoRoom(name, "its chain of free blocks can't be trusted");
    bool fits = BlocksOf(length) <= end - head.next;
    if (!fits) Put("", 0, false);
    roomKnown = true;
}

uint32_t MemoFile::Put(const std::string& text, uint32_t block, bool replace) {
    auto number = static_cast<int32_t>(block);
    uint16_t option = replace ? ZB_MemoReplace : ZB_MemoNew;
    int code = layout == MemoLayout::fpt
                   ? ZBDWRPUT(handle, &number, text.c_str(), static_cast<int16_t>(option))
                   : ZBDTRPUT(handle, &number, text.c_str(), option);
    Check(code, name);
    return static_cast<uint32_t>(number);
}

uint32_t MemoFile::Write(const std::string& text, uint32_t old) {
    if (!surveyed) throw Failure(Exit::other, name + ": written to before it was looked at");
    bool endMark = layout == MemoLayout::terminated && text.find(kEndMark) != std::string::npos;
    if (text.size() > kMemoLimit || endMark || text.find('\0') != std::string::npos)
        throw CodeFailure(ZB_ErrFieldValue, name, "a text that this file can't hold");
    if (old != 0 && FitsInPlace(old, text.size())) return Put(text, old, true);
    MakeRoom(text.size());
    uint32_t block = Put(text, 0, false);
    ++uses[block];
    auto use = uses.find(old);
    if (use != uses.end() && --use->second == 0) uses.erase(use);
    return block;
}

TableLock::TableLock(Data& table, double wait) : data(table) {
    using std::chrono::steady_clock;
    auto end = steady_clock::now() + std::chrono::duration<double>(wait);
    for (;;) {
        uint16_t conflict = 0;
        Check(ZBDDLOCK(data.id(), kWholeFile, &conflict), data.path());
        if (conflict != kConflict) return;
        if (steady_clock::now() >= end)
            throw CodeFailure(ZB_ErrLockViolation, data.path(), "no memo was written");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

TableLock::~TableLock() {
    uint16_t conflict = 0;
    // A table that is closed has given its locks up.
    if (data.id() >= 0 && ZBDDUNLOCK(data.id(), kWholeFile, &conflict) < 0) ZBESCODE(0);
}

}  // namespace tool
