#include "plot.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "report.h"

namespace bench {
namespace {

constexpr double Left = 420;  // of the axis
constexpr double Width = 520;
constexpr double LineHeight = 17;
constexpr double TopMargin = 62;
constexpr int Powers = 6;  // the axis goes from 1 / 2^Powers to 2^Powers

struct Mark {
    const char* name;
    const char* color;
};
constexpr Mark marks[] = {
    {"SQLite", "#1f5fa8"}, {"LMDB", "#c0392b"}, {"shapelib", "#2e8b57"}, {"floor", "#888888"}};

const char* ColorOf(const Contender& contender) {
    if (contender.role == Role::Floor) return marks[3].color;
    for (const Mark& mark : marks)
        if (contender.name.rfind(mark.name, 0) == 0) return mark.color;
    return "black";
}

double Across(double ratio) {
    double power = std::clamp(std::log2(ratio), -double{Powers}, double{Powers});
    return Left + Width * (power + Powers) / (2 * Powers);
}

std::string Number(double value) { return Format("%.1f", value); }

std::string Text(double x, double y, const std::string& text, const std::string& attributes = "") {
    return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" " + attributes + ">" + text + "</text>\n";
}

std::string Line(double x1, double y1, double x2, double y2, const char* color) {
    return "<line x1=\"" + Number(x1) + "\" y1=\"" + Number(y1) + "\" x2=\"" + Number(x2) + "\" y2=\"" +
           Number(y2) + "\" stroke=\"" + color + "\"/>\n";
}

std::string Dot(double x, double y, const char* color, const std::string& title) {
    return "<circle cx=\"" + Number(x) + "\" cy=\"" + Number(y) + "\" r=\"4.5\" fill=\"" + color +
           "\" fill-opacity=\"0.8\"><title>" + title + "</title></circle>\n";
}

// The largest size at which both were run.
uint32_t CommonSize(const Contender& a, const Contender& b, uint32_t most) {
    uint32_t size = 0;
    for (auto& [records, times] : a.times)
        if (records <= most && b.TimesAt(records)) size = std::max(size, records);
    return size;
}

}  // namespace

std::string Plot(uint32_t most) {
    std::string rows;
    double y = TopMargin;
    for (auto& workload : workloads) {
        bool titled = false;
        for (auto& own : workload.contenders) {
            if (own.role != Role::Own) continue;
            std::string dots;
            for (auto& peer : workload.contenders) {
                uint32_t records = peer.role == Role::Own ? 0 : CommonSize(own, peer, most);
                if (records == 0) continue;
                double ratio = peer.TimesAt(records)->PerItem() / own.TimesAt(records)->PerItem();
                dots += Dot(Across(ratio), y + LineHeight / 2, ColorOf(peer),
                            peer.name + Format(": %.2f", ratio));
            }
            if (dots.empty()) continue;
            if (!titled) rows += Line(0, y, Left + Width + 20, y, "#dddddd");
            if (!titled) rows += Text(8, y + 12.5, workload.title);
            rows += Text(Left - 10, y + 12.5, own.name, "text-anchor=\"end\" fill=\"#555555\"") + dots;
            titled = true;
            y += LineHeight;
        }
    }

    double bottom = y;
    std::string out =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + Number(Left + Width + 30) + "\" height=\"" +
        Number(bottom + 12) + "\" font-family=\"sans-serif\" font-size=\"11\">\n" +
        "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n" +
        Text(8, 18, "Time of each contender as a multiple of the library's: right of 1 the library is faster",
             "font-size=\"13\"");
    double x = 8;
    for (const Mark& mark : marks) {
        out += Dot(x + 5, 34, mark.color, mark.name) + Text(x + 14, 38, mark.name);
        x += 85;
    }
    for (int power = -Powers; power <= Powers; power++) {
        double at = Across(std::exp2(power));
        out += Line(at, TopMargin - 4, at, bottom, power == 0 ? "black" : "#eeeeee");
        std::string label = power < 0 ? "1/" + std::to_string(1 << -power) : std::to_string(1 << power);
        out += Text(at, TopMargin - 8, label, "text-anchor=\"middle\"");
    }
    return out + rows + "</svg>\n";
}

}  // namespace bench
