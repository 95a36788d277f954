// zb recall: takes the mark of deleted records away.
#include <memory>

#include "commands.h"
#include "mark.h"

namespace tool {

void AddRecall(CLI::App& app) { AddMarkCommand(app, "recall", "Make deleted records live again", false); }

}  // namespace tool
