// The index formats, one entry of a table each: what the commands ask of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "pages/pages.h"

namespace tool {

// An index to be made.
struct NewIndex {
    std::string tag;  // of the formats whose files hold several
    std::string expression;
    char type = 0;  // C, N or D
    int length = 0;
    int decimals = 0;
    bool unique = false;
    bool compact = false;
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
    bool numeric = false;
    bool keysAreHidden = false;  // the library's reads don't give the keys' bytes
};

struct IndexFormat {
    const char* name;
    const char* extension;
    bool hasTags;
    bool tellsType;  // its files tell texts from numbers

    // Walks the pages of the file, or of one tag. `type` is that of the keys as
    // far as it is known, or 0.
    pages::Survey (*survey)(const std::string& path, const std::string& tag, char type,
                            const pages::EntrySink& sink);

    // Makes an empty index, or one filled from the table, at `path`.
    int32_t (*create)(const std::string& path, const NewIndex& wanted, std::string expression);
    int32_t (*build)(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression);

    int32_t (*open)(OpenIndex& index, const std::string& path, const std::string& tag, char type,
                    uint16_t mode);
    int32_t (*close)(const OpenIndex& index);
    int32_t (*info)(const OpenIndex& index, IndexInfo& info);
    int32_t (*find)(int32_t index, void* key, uint32_t* record, int16_t mode);
    int32_t (*next)(int32_t index, void* key, uint32_t* record);
    int32_t (*add)(int32_t index, const void* key, uint32_t record);
    int32_t (*make)(int16_t data, int32_t index, void** key);
    int32_t (*number)(int32_t index, void* key, double value);
    int32_t (*date)(void* key, const char* digits, int16_t style);

    // A stored number or date as text: digits with a point, YYYYMMDD, or nothing
    // for a blank one. False when the bytes are none.
    bool (*readNumber)(std::string_view key, std::string& text);
    bool (*readDate)(std::string_view key, std::string& text);
};

// The format that the file's extension stands for; null when it stands for none.
const IndexFormat* FindFormat(const std::string& path);

// The same. Throws a usage failure.
const IndexFormat& FormatOf(const std::string& path);

}  // namespace tool
