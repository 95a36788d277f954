// File names: finding one whatever its case, and writing a file as a whole or
// not at all.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tool {

// The file that `path` names: itself, or else the one file in its directory
// whose name differs in case only. Throws when there is none, or more than one.
std::string FindFile(const std::string& path);

// `path` with another extension, found in the same way; nothing when there is none.
std::optional<std::string> FindSibling(const std::string& path, const std::string& extension);

// `path` with its extension replaced.
std::string WithExtension(const std::string& path, const std::string& extension);

// The files that names, directories and patterns with * ? [ stand for: of a
// directory all with one of these extensions, sorted. Throws when a name or a pattern stands for none.
std::vector<std::string> ExpandNames(const std::vector<std::string>& names,
                                     const std::vector<std::string>& extensions = {".dbf"});

// Whether the name of a file ends so, in either case.
bool HasExtension(const std::string& path, const std::string& extension);

bool Exists(const std::string& path);

// Throws unless `path` may be written: it is new, or replacing it was allowed by
// `force` or by an answer on the terminal.
void MayReplace(const std::string& path, bool force);

// Gives a file a second name, in the place of what had it before.
void KeepAs(const std::string& path, const std::string& backup);

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
