// Memo files, written in a way that leaves every other memo whole.
//
// A write call of the library trusts the file: a replace believes the block
// number, and goes by a capacity that can be wrong; a new memo goes where the
// header says, or where the chain of free runs leads, and in time that can be
// where another memo lives. So nothing is written here before it is known which
// blocks the table's records name, a text is replaced only where it can't grow,
// and the free chain is never extended and never walked.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "data.h"
#include "text.h"

namespace tool {

enum class MemoLayout { terminated, counted, fpt };

MemoLayout LayoutOf(int dialect);
const char* MemoExtension(int dialect);  // ".DBT" or ".FPT"

// Where a table's memo file is: `given`, or else beside the table under its base
// name. Nothing when no such file is there.
std::optional<std::string> FindMemoFile(const std::string& tablePath, int dialect, const std::string& given);

// The memo file of a table that is to be written to. Makes one where there is
// none and no record needs one; throws where a record does.
std::string MemoFileForWriting(Data& data, const std::string& given);

// The name of a memo file to be made for a table: the extension has the case of
// the table's own.
std::string NewMemoName(const std::string& tablePath, int dialect);

// Where a memo file for a table in the making goes: `given`, or beside it. One
// that is there under another case would be found instead of a new one.
std::string MemoNameFor(const std::string& tablePath, int dialect, const std::string& given);

bool HasMemoField(const std::vector<Field>& fields);

// An empty memo file; block size 0 takes the usual one.
void CreateMemoFile(const std::string& path, int dialect, uint32_t blockSize = 0);

// The block that a memo field's bytes name: 0 for none, nothing for no number.
std::optional<uint32_t> MemoNumber(std::string_view raw);
// The bytes of a memo field of this width for a block, 0 for none.
std::string MemoPointer(uint32_t block, uint16_t width);

// The longest text that any sequence of writes keeps whole.
constexpr size_t kMemoLimit = 32765;

// Takes out the marks where lines were broken for their width. In an encoding of
// several bytes a character may end with the first byte of such a mark.
std::string WithoutSoftReturns(std::string text, int dialect, Codec& codec);

enum class MemoFit { exact, tooLong, unencodable, reserved };

// The bytes to store for a text; cut, or without what can't be stored, where it
// doesn't fit. `reserved`: bytes that the layout keeps for itself.
MemoFit MakeMemo(std::string_view utf8, int dialect, Codec& codec, std::string& bytes);
std::string DescribeMemoFit(MemoFit fit);

class MemoFile {
  public:
    MemoFile(const std::string& path, int dialect, Access access);
    ~MemoFile();
    MemoFile(const MemoFile&) = delete;
    void operator=(const MemoFile&) = delete;
    void Close();

    const std::string& path() const { return name; }
    uint32_t blockSize() const { return size; }

    // The text as it is stored; a code below 0 where none can be read.
    int Read(uint32_t block, std::string& text);

    // Looks at every record's memo fields, deleted records included. Needed
    // before the first write, under a lock that holds until the last.
    void Survey(Data& data);

    // The same for a file just made, which no record names.
    void Begin();

    // Stores a text and returns its block; `old` is the block that the text takes
    // the place of, 0 for none. Throws where the file leaves no safe place.
    uint32_t Write(const std::string& text, uint32_t old = 0);

  private:
    struct Head {
        uint32_t next;
        uint64_t length;  // of the file
    };
    Head ReadHead() const;
    uint64_t BlocksOf(size_t text) const;
    bool Named(uint64_t from, uint64_t to);
    bool FitsInPlace(uint32_t block, size_t length);
    void MakeRoom(size_t length);
    uint32_t Put(const std::string& text, uint32_t block, bool replace);

    std::string name;
    int dialect;
    MemoLayout layout;
    int16_t handle = -1;
    uint32_t size = 512;
    std::map<uint32_t, uint32_t> uses;  // how many memo fields name a block
    bool surveyed = false;
    bool roomKnown = false;
};

// The lock on a whole table, taken while its memos are written.
class TableLock {
  public:
    TableLock(Data& data, double wait);
    ~TableLock();
    TableLock(const TableLock&) = delete;
    void operator=(const TableLock&) = delete;

  private:
    Data& data;
};

}  // namespace tool
