#include "support/idx.h"

namespace test {

std::vector<uint32_t> IdxImage::FreeChain() const {
    std::vector<uint32_t> chain;
    for (uint32_t page = freeHead(); page != 0 && page != 0xFFFFFFFF && chain.size() < bytes.size() / 512;
         page = Le32(page))
        chain.push_back(page);
    return chain;
}

std::vector<IdxEntry> IdxImage::Walk(int checks) {
    std::vector<IdxEntry> entries;
    pages::Survey survey = pages::SurveyIdx(Readable(name), [&](const pages::Entry& entry) {
        entries.push_back({entry.key, entry.record});
    });
    depth = survey.levels;
    auto faults = survey.faults;
    for (auto& note : survey.notes) {
        if (checks & Siblings && note.find("sibling") != std::string::npos) faults.push_back(note);
        if (checks & Separators && note.find("the key over") != std::string::npos) faults.push_back(note);
    }
    fault = faults.empty() ? "" : faults[0];
    return entries;
}

std::vector<IdxEntry> IdxImage::Entries(uint32_t page) const {
    std::vector<IdxEntry> entries;
    pages::SurveyIdx(Readable(name), [&](const pages::Entry& entry) {
        if (entry.page == page) entries.push_back({entry.key, entry.record});
    });
    return entries;
}

}  // namespace test
