// serve in a runner built without cpp-httplib (a build for a device root): says so.
#include "base/diag.h"
#include "serve/serve.h"

namespace preview {

int ServeCommand(const std::string&, const Options&) {
    Diagnostics(ColourFor(2))
        .Say(Severity::kError, "formatv2_preview",
             "this runner was built without the browser preview; run 'formatv2_preview serve' "
             "on a PC (docs/preview.md)");
    return kExitUsage;
}

}  // namespace preview
