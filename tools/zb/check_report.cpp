#include "check_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "terminal.h"
#include "text.h"

namespace tool {
namespace {

using Json = nlohmann::ordered_json;

uint64_t Sum(const std::vector<Checked>& files, Severity severity) {
    uint64_t sum = 0;
    for (const Checked& one : files) sum += one.findings.Number(severity);
    return sum;
}

std::string Verdict(uint64_t faults, uint64_t warnings) {
    if (faults == 0 && warnings == 0) return "sound";
    std::string text = faults > 0 ? Count(faults, "fault") : "";
    if (warnings > 0) text += (text.empty() ? "" : ", ") + Count(warnings, "warning");
    return text;
}

std::string Title(Severity severity) {
    std::string name = SeverityName(severity);
    if (!OutputColour()) return name;
    switch (severity) {
        case Severity::fault: return "\x1b[1;31m" + name + "\x1b[0m";
        case Severity::warning: return "\x1b[1;33m" + name + "\x1b[0m";
        case Severity::note: break;
    }
    return "\x1b[2m" + name + "\x1b[0m";
}

// An index that is out of date can have as many faults as the table has records.
void ShowFindings(const Checked& one, Severity severity, Output& output) {
    constexpr uint64_t kShown = 20;
    uint64_t number = 0;
    for (const Finding& finding : one.findings.all()) {
        if (finding.severity != severity || number++ >= kShown) continue;
        output.Write("  " + Title(severity) + ": ");
        AppendPrintable(Describe(finding), output.buffer());
        output.Write("\n");
    }
    if (number > kShown)
        output.Write("  " + Count(number - kShown, std::string("more ") + SeverityName(severity)) +
                     " (--json tells all)\n");
}

Json ToJson(const Finding& finding) {
    Json one{{"severity", SeverityName(finding.severity)}, {"code", finding.code}, {"text", finding.text}};
    if (!finding.records.empty()) {
        one["count"] = finding.count;
        one["records"] = finding.records;
    }
    if (!finding.advice.empty()) one["advice"] = finding.advice;
    return one;
}

}  // namespace

void ShowText(const std::vector<Checked>& files, Output& output) {
    for (const Checked& one : files) {
        output.Write(one.path + ": " + one.about + ": " +
                     Verdict(one.findings.Number(Severity::fault), one.findings.Number(Severity::warning)) +
                     "\n");
        for (Severity severity : {Severity::fault, Severity::warning, Severity::note})
            ShowFindings(one, severity, output);
    }
    if (files.size() > 1)
        output.Write(Count(files.size(), "file") + ": " +
                     Verdict(Sum(files, Severity::fault), Sum(files, Severity::warning)) + "\n");
}

void ShowJson(const std::vector<Checked>& files, Output& output) {
    Json list = Json::array();
    for (const Checked& one : files) {
        Json found = Json::array();
        for (const Finding& finding : one.findings.all()) found.push_back(ToJson(finding));
        list.push_back({{"file", one.path},
                        {"about", one.about},
                        {"checked", !one.failed},
                        {"faults", one.findings.Number(Severity::fault)},
                        {"warnings", one.findings.Number(Severity::warning)},
                        {"findings", found}});
    }
    Json all{{"faults", Sum(files, Severity::fault)},
             {"warnings", Sum(files, Severity::warning)},
             {"files", list}};
    output.Write(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

Exit StatusOf(const std::vector<Checked>& files) {
    bool failed = std::any_of(files.begin(), files.end(), [](const Checked& one) { return one.failed; });
    bool damaged = std::any_of(files.begin(), files.end(), [](const Checked& one) {
        return !one.failed && one.findings.Number(Severity::fault) > 0;
    });
    if (damaged) return Exit::damaged;
    if (failed) return Exit::other;
    return Sum(files, Severity::warning) > 0 ? Exit::warned : Exit::ok;
}

}  // namespace tool
