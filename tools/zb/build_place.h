// A directory beside an index in the making: nothing half-done ever stands
// under the index's name, and the library's work file, whose name is fixed,
// meets no other one.
#pragma once

#include <string>

namespace tool {

class BuildPlace {
  public:
    // Makes the directory and goes there: relative names mean files in it until
    // the place is gone.
    explicit BuildPlace(const std::string& target);
    ~BuildPlace();
    BuildPlace(const BuildPlace&) = delete;
    void operator=(const BuildPlace&) = delete;

    // The index while it is made, by the name that it will have.
    const std::string& path() const { return name; }
    void CopyTarget();  // begins with the index that is there
    void Commit();      // puts it in the place of the final name

  private:
    std::string target;  // as given, for messages
    std::string final;   // from the root
    std::string name;
    std::string directory;
    std::string before;
};

}  // namespace tool
