// The options that several commands share, under the same names everywhere.
#pragma once

#include <string>
#include <vector>

#include "command.h"
#include "data.h"
#include "text.h"
#include "value.h"

namespace tool {

// --dialect, --wait
void AddOpenOptions(Command& command, OpenOptions& options);

struct TextOptions {
    std::string encoding;
    BadText badText = BadText::replace;
};

// --encoding, --bad-text; what becomes of bad text by default is for the command to say.
void AddTextOptions(Command& command, TextOptions& options);

enum class Deleted { skip, include, only };

struct Range {
    uint32_t first;
    uint32_t last;
};

// "7", "10-20", "10-", "-20". Throws a usage failure.
Range ParseRange(const std::string& text);

struct ScanOptions {
    OpenOptions open;
    TextOptions text;
    std::vector<std::string> fields;
    std::string records;
    Deleted deleted = Deleted::skip;
    uint64_t limit = UINT64_MAX;
    BadValues badValues = BadValues::empty;
    std::string memo;  // the memo file, where it isn't beside the table
    bool noMemo = false;
};

// The above, and --fields, --records, --deleted, --limit, --bad-values, --memo, --no-memo.
void AddScanOptions(Command& command, ScanOptions& options);

// The number of the field that `name`, in UTF-8, stands for. Throws when there is none.
size_t FindField(const Data& data, const std::string& name, Codec& codec);

// Throws when the table has no such record.
void RequireRecord(const Data& data, uint32_t record);

// One character, or "tab". Throws a usage failure.
char ParseDelimiter(const std::string& text);

// Whether a value is stored that doesn't fit: characters are lost where
// --bad-text says so, all else needs --loose.
bool Tolerated(Fit fit, bool loose, const TextOptions& text);

}  // namespace tool
