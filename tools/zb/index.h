// An index as the commands look at it: all that its pages hold, and the calls
// of the library on it.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"
#include "formats.h"
#include "options.h"
#include "output.h"
#include "table.h"

namespace tool {

struct IndexOptions {
    std::string index;
    std::string tag;
    std::string type;
    std::string data;   // the table; none where it is empty
    bool lock = false;  // keep others from changing the table meanwhile
    OpenOptions open;
    TextOptions text;
};

// The positional INDEX; and the options --tag, --type, --encoding, --bad-text,
// --dialect, --wait.
void AddIndexName(Command& command, IndexOptions& options);
void AddIndexOptions(Command& command, IndexOptions& options);

// C, N, D or L in either case; 0 for nothing. Throws a usage failure.
char ParseType(const std::string& text);

// The tag of that name among those of a file, or its only one where none is
// named; nothing for formats without tags. Throws when there is none.
std::string FindTag(const IndexFormat& format, const std::string& path, const std::string& wanted);

// An index file, the table behind it where one is given, and how its keys read.
class IndexView {
  public:
    explicit IndexView(const IndexOptions& options);

    const std::string& path() const { return name; }
    const std::string& tag() const { return tagName; }
    std::string title() const { return tagName.empty() ? name : name + " " + tagName; }
    const IndexFormat& format() const { return form; }
    Data* data() { return table.get(); }
    Codec& codec() { return *coding; }

    // C, N, D or L.
    char type() const { return keyType; }
    std::string typeName() const;

    // A stored key, for people and programs.
    Value Read(std::string_view key);

  protected:
    // Finds the type by what the file tells, by what the expression gives on the
    // table, and by what the user says.
    void ChooseType(const std::string& expression, bool numeric, char told);
    char wanted() const { return wantedType; }

  private:
    const IndexFormat& form;
    std::string name;
    std::string tagName;
    char wantedType;
    std::unique_ptr<Data> table;
    std::unique_ptr<Codec> coding;
    char keyType = 0;
};

// An index's pages, read without the library.
class IndexPages : public IndexView {
  public:
    explicit IndexPages(const IndexOptions& options);

    const pages::Survey& survey() const { return found; }
    const std::vector<pages::Entry>& entries() const { return all; }

  private:
    void Survey(char type);

    pages::Survey found;
    std::vector<pages::Entry> all;
};

// An index that the library has open.
class Index {
  public:
    // `type` is that of the keys, where it is known.
    Index(const IndexFormat& format, const std::string& path, const std::string& tag, char type, bool write);
    ~Index();
    Index(const Index&) = delete;
    void operator=(const Index&) = delete;
    void Close();

    const IndexInfo& info() const { return about; }
    void SetType(char type) { keyType = type; }

    // Searches for the first key that begins with these bytes. False when the
    // index is empty; otherwise `entry` is the one found, or one near by.
    bool Find(const std::string& bytes, pages::Entry& entry);
    // Steps on; false at the end.
    bool Next(pages::Entry& entry);
    void Add(const std::string& key, uint32_t record);

    // The key of the record in the table's buffer, a text's filled with blanks.
    std::string Make(const Data& data);

    // The key for a number, or for a date as YYYYMMDD or blanks.
    std::string Number(double value);
    std::string Date(const std::string& digits);

  private:
    size_t length() const { return static_cast<size_t>(about.keyLength); }

    const IndexFormat& form;
    std::string name;
    OpenIndex handles;
    IndexInfo about;
    char keyType;
    bool open = false;
};

// The same with how its keys read: for searches, which need not look at all pages.
class IndexSearch : public IndexView {
  public:
    explicit IndexSearch(const IndexOptions& options);
    Index& index() { return calls; }

  private:
    Index calls;
};

// Entries as a listing: a table of record numbers and keys, or JSON lines; with
// the records' fields where there is a table.
class EntryList {
  public:
    EntryList(IndexView& view, bool json, const std::vector<std::string>& fields);
    void Show(const pages::Entry& entry);
    // Tells of records that aren't there.
    void Finish();

  private:
    void ShowJson(const pages::Entry& entry, bool there);

    IndexView& view;
    bool json;
    Output output;
    std::vector<Field> shown;
    std::vector<std::string> titles;
    std::unique_ptr<Table> rows;
    uint64_t missing = 0;
};

}  // namespace tool
