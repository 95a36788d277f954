#include "assign.h"

#include "failure.h"
#include "terminal.h"

namespace tool {

std::vector<Assignment> ParseAssignments(const std::vector<std::string>& texts) {
    std::vector<Assignment> assignments;
    for (const std::string& text : texts) {
        size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Failure(Exit::usage, "'" + text + "': write it as FIELD=VALUE");
        assignments.push_back({text.substr(0, equals), text.substr(equals + 1)});
    }
    return assignments;
}

Assigner::Assigner(Data& table, const std::vector<Assignment>& assignments, Codec& tableCodec)
    : data(table), codec(tableCodec) {
    for (const Assignment& assignment : assignments) {
        size_t number = FindField(data, assignment.field, codec);
        values.emplace_back(number, assignment.value);
        if (data.fields()[number].type == 'M' && !assignment.value.empty()) anyMemo = true;
    }
}

void Assigner::OpenMemos(const std::string& memoName, double wait) {
    lock.emplace(data, wait);
    memos.emplace(MemoFileForWriting(data, memoName), data.dialect(), Access::write);
    memos->Survey(data);
}

// The bytes to store; throws where the value doesn't fit and has to.
std::string Assigner::Fitting(const Field& field, const std::string& value, bool loose,
                              const TextOptions& text) {
    std::string bytes, what;
    bool tolerated = true;
    if (field.type == 'M') {
        MemoFit fit = MakeMemo(value, data.dialect(), codec, bytes);
        if (fit == MemoFit::exact) return bytes;
        what = field.name + ": the text " + DescribeMemoFit(fit);
        tolerated = Tolerated(fit == MemoFit::unencodable ? Fit::unencodable : Fit::cut, loose, text);
    } else {
        Fit fit = MakeValue(field, value, codec, bytes);
        if (fit == Fit::exact) return bytes;
        what = field.name + ": '" + value + "' " + DescribeFit(fit, field);
        tolerated = Tolerated(fit, loose, text);
    }
    if (!tolerated)
        throw CodeFailure(ZB_ErrFieldValue, data.path(),
                          what + "; nothing was stored (--loose stores what fits)");
    Say(data.path() + ": " + what + "; stored is " + (field.type == 'M' ? "what fits" : "'" + bytes + "'"));
    return bytes;
}

void Assigner::Assign(bool loose, const TextOptions& text) {
    std::vector<std::string> fitting;
    for (const auto& [number, value] : values)
        fitting.push_back(Fitting(data.fields()[number], value, loose, text));
    for (size_t index = 0; index < values.size(); ++index) {
        const Field& field = data.fields()[values[index].first];
        std::string& bytes = fitting[index];
        if (field.type == 'M') {
            uint32_t old = MemoNumber(data.Raw(field)).value_or(0);
            bytes = MemoPointer(bytes.empty() ? 0 : memos->Write(bytes, old), field.width);
        }
        data.Put(values[index].first, bytes);
    }
    if (memos) memos->Close();
}

}  // namespace tool
