// zb find: the entries of an index that have a key, or a key like it.
#include <charconv>
#include <memory>

#include "commands.h"
#include "index.h"
#include "terminal.h"
#include "value.h"

namespace tool {
namespace {

struct Options {
    IndexOptions index;
    std::string key;
    std::vector<std::string> fields;
    uint64_t limit = UINT64_MAX;
    bool whole = false;
    bool plain = false;
    bool json = false;
};

// What is looked for: the bytes that a key has to begin with, each `?` of a
// pattern standing for any.
struct Wanted {
    std::string bytes;
    std::string otherForm;  // another key of the same value
    bool pattern = false;

    std::string Beginning() const { return pattern ? bytes.substr(0, bytes.find('?')) : bytes; }

    bool Fits(const std::string& key) const {
        if (!otherForm.empty() && key == otherForm) return true;
        if (key.size() < bytes.size()) return false;
        for (size_t index = 0; index < bytes.size(); ++index)
            if (key[index] != bytes[index] && !(pattern && bytes[index] == '?')) return false;
        return true;
    }
};

Wanted MakeWanted(IndexSearch& search, const Options& options) {
    Wanted wanted;
    size_t length = static_cast<size_t>(search.index().info().keyLength);
    switch (search.type()) {
        case 'N': {
            double number = 0;
            std::string text = options.key.substr(options.key[0] == '+' ? 1 : 0);
            auto result = std::from_chars(text.data(), text.data() + text.size(), number);
            if (!IsNumber(options.key) || result.ec != std::errc())
                throw Failure(Exit::usage, "'" + options.key + "' is no number, as the keys of " +
                                               search.title() + " are");
            wanted.bytes = search.index().Number(number);
            return wanted;
        }
        case 'D': {
            std::string digits(8, ' ');
            if (!options.key.empty() && !IsDate(options.key, digits))
                throw Failure(Exit::usage, "'" + options.key + "' is no date (YYYY-MM-DD), as the keys of " +
                                               search.title() + " are");
            wanted.bytes = search.index().Date(digits);
            if (options.key.empty()) wanted.otherForm = search.format().builtBlankDate;
            return wanted;
        }
        default: break;
    }
    if (!search.codec().Encode(options.key, wanted.bytes))
        throw Failure(Exit::usage, "'" + options.key + "' has characters that the table's encoding lacks");
    wanted.pattern = !options.plain && wanted.bytes.find('?') != std::string::npos;
    if (options.whole && wanted.bytes.size() < length) wanted.bytes.resize(length, ' ');
    return wanted;
}

// By the library's search, and steps from there. A search that finds nothing ends
// on the entry before the place, or on the first of all.
template <class Show>
void Search(Index& index, const std::string& beginning, Show show) {
    auto begins = [&](const pages::Entry& entry) {
        return entry.key.compare(0, beginning.size(), beginning) == 0;
    };
    pages::Entry entry{};
    bool there = index.Find(beginning, entry);
    if (there && !begins(entry)) there = index.Next(entry);
    while (there && begins(entry) && show(entry)) there = index.Next(entry);
}

void Run(const Options& options) {
    IndexSearch search(options.index);
    Wanted wanted = MakeWanted(search, options);
    EntryList list(search, options.json, options.fields);
    uint64_t found = 0;
    auto show = [&](const pages::Entry& entry) {
        if (found < options.limit && wanted.Fits(entry.key)) {
            list.Show(entry);
            ++found;
        }
        return found < options.limit;
    };
    if (search.index().info().keysAreHidden) {
        IndexPages pages(options.index);
        for (const pages::Entry& entry : pages.entries()) show(entry);
    } else {
        Search(search.index(), wanted.Beginning(), show);
        if (!wanted.otherForm.empty()) Search(search.index(), wanted.otherForm, show);
    }
    list.Finish();
    if (found == 0 && options.limit > 0)
        throw Failure(Exit::notFound, search.title() + ": there is no key '" + options.key + "'" +
                                          (search.type() == 'C' && !options.whole ? " or longer" : ""));
}

constexpr const char* kFooter =
    "A text finds all keys that begin with it, and each ? in it stands for any one\n"
    "byte. A number finds equal keys, a date (YYYY-MM-DD, or '' for a blank one) too.\n"
    "A negative number goes behind --.\n"
    "\n"
    "Examples:\n"
    "  zb find name.ndx SMI --data people.dbf\n"
    "  zb find name.ndx 'SM?TH' --whole\n"
    "  zb find born.ndx 1970-01-01 --type D --json\n"
    "  zb find people.mdx --tag AMOUNT -- -12.5\n";

}  // namespace

void AddFind(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "find", "Find records by their keys in an index");
    AddIndexName(command, options->index);
    command.Positional("KEY", options->key, "The key, or its beginning");
    command.Option("--data", options->index.data, "The table: shows the records too");
    command.List("--fields", options->fields, "Fields to show, in this order: NAME,BORN (default: all)");
    command.Flag("--whole", options->whole, "Whole keys alone, not those that go on behind KEY");
    command.Flag("--plain", options->plain, "A ? stands for itself");
    command.Option("--limit", options->limit, "At most so many entries");
    command.Flag("--json", options->json, "As JSON, one object a line");
    AddIndexOptions(command, options->index);
    command.Footer(kFooter);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
