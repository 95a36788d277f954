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
      left(options.limit),
      memoName(options.memo),
      noMemo(options.noMemo) {
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
    if (!data.lengthFits())
        Say(data.path() + ": " + DescribeCode(ZB_WarnFileSize) + " (zb check tells more)");
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
    if (value.kind == Kind::memo && !noMemo)
        ReadMemo();
    else if (value.kind == Kind::unreadable)
        ++unreadable;
    if (value.kind == Kind::badText) ++unconverted;
    return value;
}

// When the first memo is met: a table whose memo fields are all blank needs no memo file.
void Scan::OpenMemos() {
    memosSought = true;
    std::string why = " (--no-memo shows the numbers of memo fields, --memo names a file)";
    std::string shownAs = badValues == BadValues::empty ? "empty" : "as their numbers";
    std::optional<std::string> path = FindMemoFile(data.path(), data.dialect(), memoName);
    if (!path) {
        std::string missing = memoName.empty() ? NewMemoName(data.path(), data.dialect()) : memoName;
        Say(data.path() + ": there is no memo file " + missing + ", memos are shown " + shownAs + why);
        return;
    }
    try {
        memos = std::make_unique<MemoFile>(*path, data.dialect(), Access::read);
    } catch (const Failure& failure) {
        Say(failure.what() + std::string("; memos are shown ") + shownAs + why);
    }
}

void Scan::ReadMemo() {
    if (!memosSought) OpenMemos();
    std::optional<uint32_t> block = MemoNumber(value.text);
    int code = memos && block ? memos->Read(*block, memoBytes) : ZB_ErrSeek;
    if (code >= 0) {
        bool whole =
            codec.Decode(WithoutSoftReturns(std::move(memoBytes), data.dialect(), codec), value.text);
        value.kind = whole ? Kind::text : Kind::badText;
        return;
    }
    if (memos && lostMemos++ == 0)
        lostWhere = "the first in record " + std::to_string(current) + ": " + DescribeCode(code);
    value.kind = Kind::unreadable;
    if (badValues == BadValues::empty) value.text.clear();
}

void Scan::Report() const {
    std::string text =
        Count(unconverted, "text") + (unconverted == 1 ? " isn't " : " aren't ") + encoding.name;
    if (unreadable > 0)
        Say(data.path() + ": " + Count(unreadable, "value") + (unreadable == 1 ? " doesn't" : " don't") +
            " parse, shown " + (badValues == BadValues::empty ? "empty" : "as raw text"));
    if (lostMemos > 0)
        Say(data.path() + ": " + Count(lostMemos, "memo") + " can't be read, shown " +
            (badValues == BadValues::empty ? "empty" : "as numbers") + "; " + lostWhere);
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
