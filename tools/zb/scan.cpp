#include "scan.h"

#include <algorithm>
#include <set>

#include "terminal.h"

namespace tool {

Scan::Scan(Data& table, const ScanOptions& options)
    : data(table),
      deleted(options.deleted),
      badValues(options.badValues),
      badText(options.text.badText),
      encoding(ChooseEncoding(options.text.encoding, table.header().language, table.path())),
      codec(encoding.name, badText),
      left(options.limit) {
    for (const std::string& name : options.fields)
        shown.push_back(data.fields()[FindField(data, name, codec)]);
    if (options.fields.empty()) shown = data.fields();
    MakeTitles();
    last = data.count();
    if (!options.records.empty()) {
        Range range = ParseRange(options.records);
        next = range.first;
        last = std::min(last, range.last);
    }
    if (!data.lengthFits()) Say(data.path() + ": " + DescribeCode(ZB_WarnFileSize));
}

void Scan::MakeTitles() {
    std::set<std::string> taken;
    std::string title;
    for (const Field& field : shown) {
        if (!codec.Decode(field.name, title)) title = field.name;
        std::string unique = title;
        for (int number = 2; !taken.insert(unique).second; ++number)
            unique = title + "_" + std::to_string(number);
        names.push_back(unique);
    }
}

bool Scan::Next() {
    while (left > 0 && next <= last) {
        current = next++;
        try {
            currentDeleted = data.Read(current);
        } catch (const Failure& failure) {
            broken = failure;
            return false;
        }
        if (currentDeleted ? deleted == Deleted::skip : deleted == Deleted::only) continue;
        --left;
        return true;
    }
    return false;
}

const Value& Scan::Get(size_t column) {
    const Field& field = shown[column];
    ReadValue(field, data.Raw(field), codec, badValues, value);
    if (value.kind == Kind::unreadable) ++unreadable;
    if (value.kind == Kind::badText) ++unconverted;
    return value;
}

void Scan::Report() const {
    std::string text =
        Count(unconverted, "text") + (unconverted == 1 ? " isn't " : " aren't ") + encoding.name;
    if (unreadable > 0)
        Say(data.path() + ": " + Count(unreadable, "value") + (unreadable == 1 ? " doesn't" : " don't") +
            " parse, shown " + (badValues == BadValues::empty ? "empty" : "as raw text"));
    if (unconverted > 0 && badText != BadText::refuse)
        Say(data.path() + ": " + text + " (" + encoding.reason + "); the bytes in question are shown " +
            (badText == BadText::replace ? "replaced" : "escaped") + " (--encoding names another)");
    if (broken)
        throw Failure(broken->status, std::string(broken->what()) + "; only the records before it are shown");
    if (unconverted > 0 && badText == BadText::refuse)
        throw Failure(Exit::other,
                      data.path() + ": " + text + " (" + encoding.reason + "), refused: shown empty");
}

}  // namespace tool
