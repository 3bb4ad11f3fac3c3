// The browser preview: an HTTP server on one folder's configuration and scenario that serves
// one page and previews every state of its editors through the runner's own session code, each
// evaluation in a child process so that a run that crashes or hangs ends alone.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"

namespace preview {

// The checks every request passes, apart so that they can be tested without a socket.
//
// A Host header names localhost or an IP address literal, with a port or without (port 80).
// Any other name could be a site's own name that its DNS points at 127.0.0.1 (DNS rebinding).
// The port is not checked: an SSH tunnel may forward another local port to the one listened on.
bool HostAllowed(const std::string& host);
// Absent, or the page's own origin: "http://" and the request's Host.
bool OriginAllowed(const std::string& origin, const std::string& host);
// Equal, in a time that does not depend on where they differ.
bool TokenMatches(const std::string& given, const std::string& token);
// "ADDR:PORT" as --listen takes it.
bool ParseListen(const std::string& text, std::string& address, int& port);

int ServeCommand(const std::string& dir, const Options& options);

}  // namespace preview
