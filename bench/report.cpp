#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <regex>
#include <vector>

#include "files.h"

namespace bench {
namespace {

struct Goal {
    std::string ours, peer;
    double ratio;
};

struct Section {
    std::string name, title, unit, text;
    std::vector<std::string> contenders;
    std::vector<Goal> goals;
    std::function<void()> prepare;
};

std::vector<Section> sections;

// Gathers the times of all rounds.
class Times : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            auto& taken = all[run.run_name.function_name];
            taken.seconds.push_back(run.real_accumulated_time / static_cast<double>(run.iterations));
            taken.items = run.counters.at("items");
        }
    }

    struct Taken {
        std::vector<double> seconds;
        double items = 0;

        double Median() const {
            auto sorted = seconds;
            std::sort(sorted.begin(), sorted.end());
            size_t half = sorted.size() / 2;
            return sorted.size() % 2 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
        }
        double PerItem() const { return Median() / items; }
    };
    std::map<std::string, Taken> all;
};

std::string Format(const char* format, double value) {
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

std::string Duration(double seconds) {
    if (seconds < 1e-6) return Format("%.0f ns", seconds * 1e9);
    if (seconds < 1e-3) return Format("%.2f us", seconds * 1e6);
    if (seconds < 1) return Format("%.1f ms", seconds * 1e3);
    return Format("%.2f s", seconds);
}

bool IsOurs(const std::string& contender) { return contender.rfind("zb", 0) == 0; }

std::string Table(const Section& section, const std::map<std::string, Times::Taken>& all) {
    auto taken = [&](const std::string& contender) { return all.at(section.name + "/" + contender); };
    std::vector<std::string> ours;
    for (auto& contender : section.contenders)
        if (IsOurs(contender)) ours.push_back(contender);

    std::string out = "### " + section.title + "\n\n" + section.text + "\n\n";
    out += "| | time | per " + section.unit + " |";
    std::string line = "|---|---:|---:|";
    for (auto& contender : ours) {
        out += " against " + contender + " |";
        line += "---:|";
    }
    out += "\n" + line + "\n";
    for (auto& contender : section.contenders) {
        double perItem = taken(contender).PerItem();
        out +=
            "| " + contender + " | " + Duration(taken(contender).Median()) + " | " + Duration(perItem) + " |";
        for (auto& own : ours) out += " " + Format("%.2f", perItem / taken(own).PerItem()) + " |";
        out += "\n";
    }
    out += "\n";
    for (auto& goal : section.goals) {
        double ratio = taken(goal.peer).PerItem() / taken(goal.ours).PerItem();
        out += "- Aim: " + goal.ours + " at least " + Format("%.2g", goal.ratio) + " times as fast as " +
               goal.peer + ". It is " + Format("%.2f", ratio) + " times as fast" +
               (ratio < goal.ratio ? ": **not reached**.\n" : ".\n");
    }
    if (!section.goals.empty()) out += "\n";
    return out;
}

}  // namespace

void Workload(const std::string& name, const std::string& title, const std::string& unit,
              const std::string& text) {
    sections.push_back({name, title, unit, text, {}, {}, {}});
}

void Needs(std::function<void()> prepare) { sections.back().prepare = std::move(prepare); }

std::string QualifiedName(const std::string& contender) {
    sections.back().contenders.push_back(contender);
    return sections.back().name + "/" + contender;
}

void Aim(const std::string& ours, const std::string& peer, double ratio) {
    sections.back().goals.push_back({ours, peer, ratio});
}

void RunAndReport(const std::string& filter, int rounds, const std::string& head, const std::string& measures,
                  const std::string& fileName) {
    std::string out = head;
    Times times;
    for (auto& section : sections) {
        if (!std::regex_search(section.name, std::regex(filter))) continue;
        if (section.prepare) section.prepare();
        for (int round = 0; round < rounds; round++)
            benchmark::RunSpecifiedBenchmarks(&times, "^" + section.name + "/");
        std::string table = Table(section, times.all);
        fputs(table.c_str(), stdout);
        fflush(stdout);
        out += table;
    }
    out += measures;
    FILE* file = fopen(fileName.c_str(), "w");
    Check(file && fputs(out.c_str(), file) >= 0 && fclose(file) == 0, fileName.c_str());
}

}  // namespace bench
