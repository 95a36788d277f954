#include "report.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <regex>

#include "count.h"
#include "data.h"
#include "files.h"

namespace bench {

std::vector<WorkloadReport> workloads;

namespace {

WorkloadReport* current;

std::string Duration(double seconds) {
    if (seconds < 1e-6) return Format("%.0f ns", seconds * 1e9);
    if (seconds < 1e-3) return Format("%.2f us", seconds * 1e6);
    if (seconds < 1) return Format("%.1f ms", seconds * 1e3);
    return Format("%.2f s", seconds);
}

// How many times our time another takes.
double Ratio(const Times& ours, const Times& other) { return other.PerItem() / ours.PerItem(); }

std::string RatioText(double ratio) { return Format(ratio < 0.1 ? "%.3f" : "%.2f", ratio); }

// The sizes at which a workload was run, the smallest first.
std::vector<uint32_t> SizesOf(const WorkloadReport& workload) {
    std::vector<uint32_t> all;
    for (auto& contender : workload.contenders)
        for (auto& [records, times] : contender.times) all.push_back(records);
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

std::string TimesTable(const WorkloadReport& workload, const std::vector<uint32_t>& at) {
    bool counted = false;
    for (auto& contender : workload.contenders)
        counted |= contender.counts.instructions >= 0 || !contender.counts.calls.empty();

    std::string out = "| time per " + workload.unit + " |";
    std::string line = "|---|";
    for (uint32_t records : at) {
        out += " " + Grouped(records) + " records |";
        line += "---:|";
    }
    if (counted) {
        out += " instructions | reads | system calls |";
        line += "---:|---:|---|";
    }
    out += "\n" + line + "\n";
    for (auto& contender : workload.contenders) {
        out += "| " + contender.name + " |";
        for (uint32_t records : at) {
            const Times* times = contender.TimesAt(records);
            out += times ? " " + Duration(times->PerItem()) + " |" : " |";
        }
        if (counted) {
            const Counts& counts = contender.counts;
            out += counts.instructions < 0 ? " |" : " " + Format("%.0f", counts.instructions) + " |";
            out += counts.reads < 0 ? " |" : " " + Format("%.1f", counts.reads) + " |";
            out += " " + counts.calls + " |";
        }
        out += "\n";
    }
    return out + "\n";
}

std::string RatioTable(const WorkloadReport& workload, const std::vector<uint32_t>& at) {
    std::string out = "| against |";
    std::string line = "|---|";
    for (auto& peer : workload.contenders) {
        if (peer.role == Role::Own) continue;
        out += " " + peer.name + " |";
        line += "---:|";
    }
    if (line == "|---|") return "";
    out += "\n" + line + "\n";
    for (auto& own : workload.contenders) {
        if (own.role != Role::Own) continue;
        out += "| " + own.name + " |";
        for (auto& peer : workload.contenders) {
            if (peer.role == Role::Own) continue;
            std::string cell;
            for (uint32_t records : at) {
                const Times* ours = own.TimesAt(records);
                const Times* other = peer.TimesAt(records);
                if (!cell.empty()) cell += " / ";
                cell += ours && other ? RatioText(Ratio(*ours, *other)) : "-";
            }
            out += " " + cell + " |";
        }
        out += "\n";
    }
    return out + "\n";
}

std::string AimLines(const WorkloadReport& workload, uint32_t records) {
    std::string out;
    const Aim* before = nullptr;
    for (auto& aim : workload.aims) {
        const Contender* own = workload.Find(aim.ours);
        const Contender* peer = workload.Find(aim.peer);
        const Times* ours = own ? own->TimesAt(records) : nullptr;
        const Times* other = peer ? peer->TimesAt(records) : nullptr;
        if (!ours || !other) continue;
        double ratio = Ratio(*ours, *other);
        if (before && before->peer == aim.peer && before->ratio == aim.ratio)
            out += ", ";
        else
            out += (before ? ".\n" : "") + std::string("- Aim: at least ") + Format("%.2g", aim.ratio) +
                   " times as fast as " + aim.peer + ". Reached: ";
        out += aim.ours + " " + RatioText(ratio) + (ratio < aim.ratio ? " (**less**)" : "");
        before = &aim;
    }
    return before ? out + ".\n" : out;
}

// Who is ahead of whom, and why: peers of one reason together.
std::string AheadLines(const WorkloadReport& workload, uint32_t records) {
    std::vector<std::pair<std::string, std::string>> lines;  // by reason
    for (auto& peer : workload.contenders) {
        const Times* other = peer.TimesAt(records);
        if (peer.role != Role::Peer || !other) continue;
        std::string behind;
        for (auto& own : workload.contenders) {
            const Times* ours = own.role == Role::Own ? own.TimesAt(records) : nullptr;
            if (!ours || Ratio(*ours, *other) >= 1) continue;
            behind += (behind.empty() ? "" : ", ") + own.name + " (" + RatioText(Ratio(*ours, *other)) + ")";
        }
        if (behind.empty()) continue;
        std::string reason;
        for (auto& [name, text] : workload.reasons)
            if (name == peer.name) reason = text;
        auto same = [&](auto& line) { return line.first == reason; };
        auto line = std::find_if(lines.begin(), lines.end(), same);
        if (line == lines.end()) line = lines.insert(line, {reason, "-"});
        line->second += " **" + peer.name + "** is ahead of " + behind + ".";
    }
    std::string out;
    for (auto& [reason, line] : lines) out += line + " " + reason + "\n";
    return out;
}

std::string Section(const WorkloadReport& workload) {
    std::vector<uint32_t> at = SizesOf(workload);
    if (at.empty()) return "";
    // Aims and comparisons in words hold for one size: a million where that was run.
    uint32_t records = at.back();
    for (uint32_t size : at)
        if (size <= 1000000) records = size;
    std::string notes = AimLines(workload, records) + AheadLines(workload, records);
    return "### " + workload.title + "\n\n" + workload.text + "\n\n" + TimesTable(workload, at) +
           RatioTable(workload, at) + notes + (notes.empty() ? "" : "\n");
}

}  // namespace

double Times::PerItem() const {
    std::vector<double> sorted;
    for (const Round& round : rounds) sorted.push_back(round.seconds / static_cast<double>(round.items));
    std::sort(sorted.begin(), sorted.end());
    size_t half = sorted.size() / 2;
    return sorted.size() % 2 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
}

const Times* Contender::TimesAt(uint32_t records) const {
    for (auto& [size, taken] : times)
        if (size == records) return &taken;
    return nullptr;
}

const Contender* WorkloadReport::Find(const std::string& contender) const {
    for (auto& one : contenders)
        if (one.name == contender) return &one;
    return nullptr;
}

std::string Format(const char* format, double value) {
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

std::string Grouped(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, " ");
    return text;
}

void BeginSize() {
    for (auto& workload : workloads) {
        workload.registered = false;
        for (auto& contender : workload.contenders) contender.run = nullptr;
    }
}

void Workload(const std::string& name, const std::string& title, const std::string& unit,
              const std::string& text) {
    auto same = [&](const WorkloadReport& workload) { return workload.name == name; };
    auto found = std::find_if(workloads.begin(), workloads.end(), same);
    if (found == workloads.end()) {
        workloads.push_back({});
        found = workloads.end() - 1;
    }
    current = &*found;
    current->name = name;
    current->title = title;
    current->unit = unit;
    current->text = text;
    current->prepare = nullptr;
    current->aims.clear();
    current->reasons.clear();
    current->registered = true;
}

void Needs(std::function<void()> prepare) { current->prepare = std::move(prepare); }

void AimAt(const std::string& ours, const std::string& peer, double ratio) {
    current->aims.push_back({ours, peer, ratio});
}

void Reason(const std::string& peer, const std::string& text) { current->reasons.emplace_back(peer, text); }

void AddContender(const std::string& name, Role role, std::function<Round()> run) {
    for (auto& contender : current->contenders) {
        if (contender.name != name) continue;
        contender.run = std::move(run);
        return;
    }
    current->contenders.push_back({name, role, std::move(run), {}, {}});
}

double Measure(const std::function<void()>& work) {
    auto begin = std::chrono::steady_clock::now();
    Counted(work);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void RunWorkloads(const std::string& filter, int rounds) {
    for (auto& workload : workloads) {
        if (!workload.registered || !std::regex_search(workload.name, std::regex(filter))) continue;
        printf("%s\n", workload.name.c_str());
        if (workload.prepare) workload.prepare();
        std::vector<Contender*> running;
        for (auto& contender : workload.contenders) {
            if (!contender.run) continue;
            contender.times.push_back({sizes.records, {}});
            running.push_back(&contender);
        }
        for (int round = 0; round < rounds; round++)
            for (Contender* contender : running)
                contender->times.back().second.rounds.push_back(contender->run());
        for (Contender* contender : running)
            printf("    %-20s %s a %s\n", contender->name.c_str(),
                   Duration(contender->times.back().second.PerItem()).c_str(), workload.unit.c_str());
        fflush(stdout);
    }
}

std::string Page(const std::string& head, const std::string& measures, const std::string& plotName) {
    std::string out = head + "![The time of each contender against the library's](" + plotName + ")\n\n";
    for (auto& workload : workloads) out += Section(workload);
    return out + measures;
}

}  // namespace bench
