// File names: finding one whatever its case, and writing a file as a whole or
// not at all.
#pragma once

#include <optional>
#include <string>

namespace tool {

// The file that `path` names: itself, or else the one file in its directory
// whose name differs in case only. Throws when there is none, or more than one.
std::string FindFile(const std::string& path);

// `path` with another extension, found in the same way; nothing when there is none.
std::optional<std::string> FindSibling(const std::string& path, const std::string& extension);

// `path` with its extension replaced.
std::string WithExtension(const std::string& path, const std::string& extension);

bool Exists(const std::string& path);

// Throws unless `path` may be written: it is new, or replacing it was allowed by
// `force` or by an answer on the terminal.
void MayReplace(const std::string& path, bool force);

// A file in the making beside its final place. It goes away unless it is
// committed, also when an interrupt ends the program.
class PartFile {
  public:
    explicit PartFile(const std::string& target);
    ~PartFile();
    PartFile(const PartFile&) = delete;
    void operator=(const PartFile&) = delete;

    const std::string& path() const { return part; }
    void Commit();  // puts it in the place of the final name

  private:
    std::string target;
    std::string part;
};

}  // namespace tool
