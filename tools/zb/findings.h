// What a check finds in a file: how bad it is, what it is about, and what helps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

enum class Severity {
    note,     // odd and allowed
    warning,  // something isn't as it should be, and nothing is lost by it
    fault,    // data are lost, or can't be reached, or will be written over
};

const char* SeverityName(Severity severity);

struct Finding {
    Severity severity;
    std::string code;  // one word, for programs
    std::string text;
    std::string advice;             // the next step; nothing where there is none
    uint64_t count = 1;             // how often it was met
    std::vector<uint32_t> records;  // the first of them, where records have it
};

class Findings {
  public:
    void Add(Severity severity, const std::string& code, const std::string& text,
             const std::string& advice = {});
    // The same of a record: records that have the same are one finding.
    void AddRecord(Severity severity, const std::string& code, const std::string& text, uint32_t record,
                   const std::string& advice = {});

    const std::vector<Finding>& all() const { return found; }
    uint64_t Number(Severity severity) const;
    bool Has(const std::string& code) const;

  private:
    std::vector<Finding> found;
};

// "BORN isn't a date: records 2, 5 and 9" and, behind it, what helps.
std::string Describe(const Finding& finding);

}  // namespace tool
