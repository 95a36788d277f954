// The index formats, one entry of a table each: what the commands ask of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pages/pages.h"
#include "zb.h"

namespace tool {

// An index to be made.
struct NewIndex {
    std::string tag;  // of the formats whose files hold several
    std::string expression;
    char type = 0;  // C, N, D or L
    int length = 0;
    int decimals = 0;
    bool unique = false;
    bool compact = false;

    int16_t TypeWord() const;
};

// An index that the library has open.
struct OpenIndex {
    int32_t keys = -1;  // what the key calls take
    int16_t file = -1;  // the file around it, of formats with tags
};

// What the library tells of it.
struct IndexInfo {
    std::string expression;
    int keyLength = 0;
    bool numeric = false;        // keys are numbers or dates, where the file tells
    char type = 0;               // where the file tells all of it
    bool keysAreHidden = false;  // the library's reads don't give the keys' bytes
};

struct IndexFormat {
    const char* name;
    const char* extension;
    const char* types;   // of keys
    bool tellsType;      // its files tell texts from numbers
    bool numberByValue;  // a number's key is made of the value: the call that makes keys gives another form
    const char* notes;   // what notes on its pages mean; null when they say it themselves

    // The tags of a file; null for formats with one index a file.
    std::vector<std::string> (*tags)(const std::string& path);
    // What is wrong with the file around its tags.
    std::vector<std::string> (*fileFaults)(const std::string& path);

    // Walks the pages of the file, or of one tag. `type` is that of the keys as
    // far as it is known, or 0.
    pages::Survey (*survey)(const std::string& path, const std::string& tag, char type,
                            const pages::EntrySink& sink);

    // Makes an empty index, or one filled from the table, at `path`. Where there
    // are tags the file may be there already.
    int32_t (*create)(const std::string& path, const NewIndex& wanted, std::string expression);
    int32_t (*build)(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression);

    // Without a tag's name, where there are tags, the file alone.
    int32_t (*open)(OpenIndex& index, const std::string& path, const std::string& tag, char type,
                    uint16_t mode);
    int32_t (*close)(const OpenIndex& index);
    int32_t (*info)(const OpenIndex& index, IndexInfo& info);
    int32_t(ZB_CALL* find)(int32_t index, void* key, uint32_t* record, int16_t mode);
    int32_t(ZB_CALL* next)(int32_t index, void* key, uint32_t* record);
    int32_t(ZB_CALL* add)(int32_t index, const void* key, uint32_t record);
    int32_t(ZB_CALL* remove)(int32_t index, const void* key, uint32_t record);
    int32_t(ZB_CALL* make)(int16_t data, int32_t index, void** key);
    int32_t(ZB_CALL* number)(int32_t index, void* key, double value);
    int32_t(ZB_CALL* date)(void* key, const char* digits, int16_t style);

    // A stored number or date as text: digits with a point; YYYYMMDD, or nothing
    // for a blank one. False when the bytes are none.
    bool (*readNumber)(std::string_view key, std::string& text);
    bool (*readDate)(std::string_view key, std::string& text);

    // The key that a build gives a blank date, where it isn't the one that `date`
    // makes.
    std::string_view builtBlankDate;
};

// The format that the file's extension stands for. Throws a usage failure when
// it stands for none.
const IndexFormat& FormatOf(const std::string& path);

// Removes a tag, in the one format that has them. Leaves of it that read as
// branches, which deletes can leave, are put right first: the erase would follow
// them into the pages of other tags.
int32_t EraseTag(const std::string& path, const std::string& tag);

// What is wrong in a file of that format, all its tags taken together. Throws
// where it is no such file.
std::vector<std::string> FaultsOfAllTags(const std::string& path);

// The highest record number that a packed key of this length can carry.
uint32_t HighestPackedRecord(int keyLength);

}  // namespace tool
