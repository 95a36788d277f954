// Reads index files page by page, from their layout alone and without the
// library: what the tool shows and checks, and what tests hold the library
// against.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace pages {

struct Entry {
    std::string key;  // as stored
    uint32_t record;
    uint32_t page;  // where it stands, as the format addresses pages
};

// What a survey of a whole file found.
struct Survey {
    std::string format;
    std::string expression;
    int keyLength = 0;
    bool numeric = false;  // keys are numbers, whatever their form
    char type = 0;         // C, N or D, where the file tells all of it
    bool unique = false;
    uint64_t keys = 0;
    uint32_t pages = 0;      // reached, from the root
    uint32_t freePages = 0;  // on the free chain, or marked as free
    int levels = 0;
    std::vector<std::string> faults;   // broken rules of the format
    std::vector<std::string> hazards;  // allowed, and yet the library stops there
    std::vector<std::string> notes;    // what is odd and allowed
};

// Receives each entry in index order.
using EntrySink = std::function<void(const Entry&)>;

// Order of two stored keys: below 0, 0 or above 0.
using KeyOrder = std::function<int(std::string_view, std::string_view)>;

// A file whose header can't be what it is taken for.
struct NotAnIndex : std::runtime_error {
    using runtime_error::runtime_error;
};

// Each walks the whole tree from the root and then looks at what it didn't
// reach. `order` compares character keys; by bytes where it is empty.
Survey SurveyNdx(const std::string& file, const EntrySink& sink = {}, const KeyOrder& order = {});
Survey SurveyNtx(const std::string& file, const EntrySink& sink = {});

// IDX keys sort by bytes. `fill` stands before the first key of a packed leaf: a
// blank where the keys are texts, otherwise a zero byte, which the file doesn't
// tell.
Survey SurveyIdx(const std::string& file, const EntrySink& sink = {}, char fill = ' ');

// One tag of an MDX file.
struct TagSurvey {
    std::string name;
    char type = 0;  // C, D or N
    // Where in the file the trailing pointers stand that make leaves read as branches.
    std::vector<size_t> leftovers;
    Survey tree;  // its freePages stay 0: the tags share one free list
};

// What a survey of an MDX file found: each tag, and what belongs to none.
struct MdxSurvey {
    int blockUnits = 0;
    std::vector<TagSurvey> tags;
    uint32_t freePages = 0;
    std::vector<std::string> faults;
    std::vector<std::string> notes;

    // Those of the file and of all tags, with the tag's name in front.
    std::vector<std::string> AllFaults() const;
};

// Receives the entries of each tag in index order, with the tag's place in the
// list from 0 on. `hider` is null, or the separator over the entry's page when
// that is lower than the entry: a search for it looks in the next page.
using TagEntrySink = std::function<void(size_t tag, const Entry&, const std::string* hider)>;

MdxSurvey SurveyMdx(const std::string& file, const TagEntrySink& sink = {}, const KeyOrder& order = {});

// Numbers in a file's bytes; zero beyond their end.
uint16_t Le16(std::string_view bytes, size_t at);
uint32_t Le32(std::string_view bytes, size_t at);
uint32_t Be32(std::string_view bytes, size_t at);

// A whole file. Throws std::runtime_error.
std::string Load(const std::string& file);

// "page 5: ..." and the like, without a stream.
std::string Text(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace pages
