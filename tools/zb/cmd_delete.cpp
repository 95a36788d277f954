// zb delete: marks records as deleted.
#include <memory>

#include "commands.h"
#include "mark.h"

namespace tool {

void AddDelete(CLI::App& app) {
    AddMarkCommand(app, "delete", "Mark records as deleted; they stay in the file until a pack", true);
}

}  // namespace tool
