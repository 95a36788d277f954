#include "findings.h"

#include <algorithm>

#include "terminal.h"

namespace tool {
namespace {

constexpr size_t kShownRecords = 8;

}  // namespace

const char* SeverityName(Severity severity) {
    switch (severity) {
        case Severity::note: return "note";
        case Severity::warning: return "warning";
        case Severity::fault: break;
    }
    return "fault";
}

void Findings::Add(Severity severity, const std::string& code, const std::string& text,
                   const std::string& advice) {
    found.push_back({severity, code, text, advice, 1, {}});
}

void Findings::AddRecord(Severity severity, const std::string& code, const std::string& text, uint32_t record,
                         const std::string& advice) {
    auto same = std::find_if(found.begin(), found.end(), [&](const Finding& finding) {
        return finding.code == code && finding.text == text && !finding.records.empty();
    });
    if (same == found.end()) {
        found.push_back({severity, code, text, advice, 1, {record}});
        return;
    }
    ++same->count;
    if (same->records.size() < kShownRecords) same->records.push_back(record);
}

uint64_t Findings::Number(Severity severity) const {
    return static_cast<uint64_t>(std::count_if(
        found.begin(), found.end(), [&](const Finding& finding) { return finding.severity == severity; }));
}

bool Findings::Has(const std::string& code) const {
    return std::any_of(found.begin(), found.end(),
                       [&](const Finding& finding) { return finding.code == code; });
}

std::string Describe(const Finding& finding) {
    std::string text = finding.text;
    const std::vector<uint32_t>& records = finding.records;
    if (!records.empty()) {
        text += records.size() == 1 ? ": record" : ": records";
        uint64_t more = finding.count - records.size();
        for (size_t index = 0; index < records.size(); ++index) {
            bool last = index + 1 == records.size() && more == 0;
            text += (index == 0 ? " " : last ? " and " : ", ") + std::to_string(records[index]);
        }
        if (more > 0) text += " and " + std::to_string(more) + " more";
    }
    if (!finding.advice.empty()) text += " (" + finding.advice + ")";
    return text;
}

}  // namespace tool
