#include "index.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "evaluate.h"
#include "files.h"
#include "json.h"
#include "terminal.h"

namespace tool {
namespace {

constexpr size_t kKeyRoom = 256;

}  // namespace

void AddIndexName(Command& command, IndexOptions& options) {
    command.Positional("INDEX", options.index, "The index file");
}

void AddIndexOptions(Command& command, IndexOptions& options) {
    command.Option("--tag", options.tag, "The tag, of an MDX file (default: its only one)");
    command.Option("--type", options.type,
                   "What the keys are: C texts, N numbers, D dates, L logicals\n"
                   "(default: by the file and the table; most files don't tell all of it)");
    AddTextOptions(command, options.text);
    AddOpenOptions(command, options.open);
}

char ParseType(const std::string& text) {
    if (text.empty()) return 0;
    constexpr std::string_view kTypes = "CNDLcndl";
    size_t place = text.size() == 1 ? kTypes.find(text[0]) : std::string_view::npos;
    if (place == std::string_view::npos)
        throw Failure(Exit::usage, "--type '" + text + "': give C, N, D or L");
    return kTypes[place % 4];
}

std::string FindTag(const IndexFormat& format, const std::string& path, const std::string& wanted) {
    if (format.tags == nullptr) {
        if (wanted.empty()) return {};
        throw Failure(Exit::usage, path + ": --tag is for MDX files");
    }
    std::vector<std::string> names;
    try {
        names = format.tags(path);
    } catch (const pages::NotAnIndex& error) {
        throw Failure(Exit::damaged, path + ": no " + format.name + " index; " + error.what());
    }
    if (wanted.empty() && names.size() == 1) return names[0];
    std::string known;
    for (const std::string& name : names) {
        if (strcasecmp(name.c_str(), wanted.c_str()) == 0) return name;
        known += (known.empty() ? " " : ", ") + name;
    }
    known = names.empty() ? "; the file has no tags" : "; its tags are" + known;
    if (wanted.empty()) throw Failure(Exit::usage, path + ": --tag is needed" + known);
    throw Failure(Exit::notFound, path + ": " + DescribeCode(ZB_ErrTagName) + ": " + wanted + known);
}

IndexView::IndexView(const IndexOptions& options)
    : form(FormatOf(options.index)), name(FindFile(options.index)), wantedType(ParseType(options.type)) {
    if (!options.data.empty()) table = std::make_unique<Data>(options.data, Access::read, options.open);
    if (table && options.lock) table->LockShared();
    tagName = FindTag(form, name, options.tag);
    Encoding encoding = ChooseEncoding(options.text.encoding, table ? table->header().language : 0,
                                       table ? table->path() : name);
    coding = std::make_unique<Codec>(encoding.name, options.text.badText);
}

void IndexView::ChooseType(const std::string& expression, bool numeric, char told) {
    keyType = told != 0 ? told : numeric ? 'N' : 'C';
    if (wantedType != 0) {
        bool wantsNumber = wantedType == 'N' || wantedType == 'D';
        if (form.tellsType && (numeric != wantsNumber || (told != 0 && told != wantedType)))
            throw Failure(Exit::usage, title() + ": --type " + wantedType + ": its keys are " +
                                           (told == 'D'   ? "dates"
                                            : !numeric    ? "texts"
                                            : told == 'N' ? "numbers"
                                                          : "numbers or dates"));
        keyType = wantedType;
        return;
    }
    if (!table || told != 0) return;
    try {
        char type = TryExpression(*table, expression).type;
        if (type == 'F') type = 'N';
        if (!form.tellsType || (numeric && type == 'D')) keyType = type;
    } catch (const Failure&) {
        // What is wrong with the expression shows where keys are made of it.
    }
}

std::string IndexView::typeName() const {
    switch (keyType) {
        case 'N': return "number";
        case 'D': return "date";
        case 'L': return "logical";
        default: return "text";
    }
}

Value IndexView::Read(std::string_view key) {
    Value value;
    std::string text;
    if (keyType == 'N') {
        value.kind = form.readNumber(key, value.text) ? Kind::number : Kind::unreadable;
    } else if (keyType == 'D') {
        Result date{'D', {}};
        if (form.readDate(key, date.bytes)) return ReadResult(date, *coding);
        // No day has that count, and yet it is a number.
        value.kind = form.readNumber(key, value.text) ? Kind::number : Kind::unreadable;
    } else {
        size_t end = key.find_last_not_of(' ');
        key = key.substr(0, end == std::string_view::npos ? 0 : end + 1);
        value.kind = coding->Decode(key, value.text) ? Kind::text : Kind::badText;
    }
    if (value.kind == Kind::unreadable) coding->Decode(key, value.text);
    return value;
}

IndexPages::IndexPages(const IndexOptions& options) : IndexView(options) {
    Survey(wanted());
    ChooseType(found.expression, found.numeric, found.type);
    // How packed keys begin depends on the type, which is only known now.
    if (wanted() == 0 && !format().tellsType) Survey(type());
}

void IndexPages::Survey(char type) {
    all.clear();
    try {
        found =
            format().survey(path(), tag(), type, [this](const pages::Entry& entry) { all.push_back(entry); });
    } catch (const pages::NotAnIndex& error) {
        throw Failure(Exit::damaged, title() + ": no " + format().name + " index; " + error.what());
    }
}

Index::Index(const IndexFormat& format, const std::string& path, const std::string& tag, char type,
             bool write)
    : form(format), name(path), keyType(type) {
    Check(form.open(handles, path, tag, type, write ? 0 : ZB_ReadOnly | ZB_Shared), name);
    open = true;
    Check(form.info(handles, about), name);
}

Index::~Index() {
    if (!open) return;
    ZBESCODE(0);
    form.close(handles);
}

void Index::Close() {
    open = false;
    Check(form.close(handles), name);
}

bool Index::Find(const std::string& bytes, pages::Entry& entry) {
    char buffer[kKeyRoom] = {};
    std::memcpy(buffer, bytes.data(), std::min(bytes.size(), length()));
    int code = Check(form.find(handles.keys, buffer, &entry.record, 0), name);
    entry.key.assign(buffer, length());
    return code != ZB_KeyEmpty;
}

bool Index::Next(pages::Entry& entry) {
    char buffer[kKeyRoom] = {};
    int code = Check(form.next(handles.keys, buffer, &entry.record), name);
    entry.key.assign(buffer, length());
    return code != ZB_KeyEnd;
}

void Index::Add(const std::string& key, uint32_t record) {
    char buffer[kKeyRoom] = {};
    std::memcpy(buffer, key.data(), std::min(key.size(), length()));
    Check(form.add(handles.keys, buffer, record), name, "record " + std::to_string(record));
}

std::string Index::Make(const Data& data) {
    if (form.numberByValue && keyType == 'N') {
        Result result = Evaluate(data, about.expression);
        double value = 0;
        if (result.bytes.size() == sizeof value) std::memcpy(&value, result.bytes.data(), sizeof value);
        return Number(value);
    }
    if (keyType == 'D' && IsBlankDate(data, about.expression)) return Date(std::string(8, ' '));
    void* made = nullptr;
    if (int code = form.make(data.id(), handles.keys, &made); code < 0)
        throw EvaluationFailure(code, data, about.expression);
    auto bytes = static_cast<const char*>(made);
    std::string key(bytes, keyType == 'C' ? strnlen(bytes, length()) : length());
    ZBMFREE(made);
    key.resize(length(), ' ');
    return key;
}

std::string Index::Number(double value) {
    char buffer[kKeyRoom];
    std::memset(buffer, ' ', sizeof buffer);
    Check(form.number(handles.keys, buffer, value), name);
    // A text that is shorter than the key has its terminator there.
    std::string key(buffer, length());
    if (form.numberByValue) std::replace(key.begin(), key.end(), '\0', ' ');
    return key;
}

std::string Index::Date(const std::string& digits) {
    constexpr int16_t kPlainDates = 4;
    char buffer[kKeyRoom] = {};
    Check(form.date(buffer, digits.c_str(), kPlainDates), name);
    return std::string(buffer, length());
}

IndexSearch::IndexSearch(const IndexOptions& options)
    : IndexView(options), calls(format(), path(), tag(), wanted(), false) {
    ChooseType(calls.info().expression, calls.info().numeric, calls.info().type);
    calls.SetType(type());
}

EntryList::EntryList(IndexView& index, bool asJson, const std::vector<std::string>& fields)
    : view(index), json(asJson) {
    std::vector<Column> columns{{"#", true}, {"KEY", view.type() == 'N'}};
    if (Data* data = view.data()) {
        for (const std::string& field : fields)
            shown.push_back(data->fields()[FindField(*data, field, view.codec())]);
        if (fields.empty()) shown = data->fields();
        columns.push_back({"*"});
        for (const Field& field : shown) {
            std::string title;
            if (!view.codec().Decode(field.name, title)) title = field.name;
            titles.push_back(title);
            columns.push_back({"", field.type == 'N' || field.type == 'F' || field.type == 'M'});
            AppendPrintable(title, columns.back().title);
        }
    }
    if (!json) rows = std::make_unique<Table>(output, columns);
}

void EntryList::Show(const pages::Entry& entry) {
    Data* data = view.data();
    bool there = data != nullptr && entry.record >= 1 && entry.record <= data->count();
    if (data != nullptr && !there) ++missing;
    if (json) return ShowJson(entry, there);
    rows->Cell(0) = std::to_string(entry.record);
    AppendPrintable(view.Read(entry.key).text, rows->Cell(1));
    if (there) {
        if (data->Read(entry.record)) rows->Cell(2) = "*";
        Value value;
        for (size_t column = 0; column < shown.size(); ++column) {
            ReadValue(shown[column], data->Raw(shown[column]), view.codec(), BadValues::raw, value);
            AppendPrintable(value.text, rows->Cell(3 + column));
        }
    }
    rows->EndRow();
}

void EntryList::ShowJson(const pages::Entry& entry, bool there) {
    std::string& out = output.buffer();
    out += "{\"_record\":" + std::to_string(entry.record) + ",\"_key\":";
    AppendJson(view.Read(entry.key), out);
    if (there) {
        out += view.data()->Read(entry.record) ? ",\"_deleted\":true" : ",\"_deleted\":false";
        Value value;
        for (size_t column = 0; column < shown.size(); ++column) {
            out += ',';
            AppendJson(titles[column], out);
            out += ':';
            ReadValue(shown[column], view.data()->Raw(shown[column]), view.codec(), BadValues::raw, value);
            AppendJson(value, out);
        }
    }
    out += "}\n";
    output.Breathe();
}

void EntryList::Finish() {
    if (rows) rows->Finish();
    output.Finish();
    if (missing > 0)
        Say(view.title() + ": " + Count(missing, "key") + (missing == 1 ? " has" : " have") +
            " a record number that the table hasn't");
}

}  // namespace tool
