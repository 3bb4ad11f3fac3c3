#include "serve.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <httplib.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>

#include "diag.h"
#include "live.h"

extern char** environ;

namespace preview {

// The page, built from tools/runner/web with CodeMirror inlined (web_page.cpp, generated).
extern const unsigned char kPage[];
extern const size_t kPageSize;

namespace {

// Far above any configuration: a request carries the two texts of the editors.
constexpr size_t kMaxBody = 1024 * 1024;
// An evaluation of the bundled examples takes milliseconds; one that takes this long is a
// module that hangs on the configuration or its values.
constexpr int kRunLimitMs = 5000;
const char* const kTokenHeader = "X-Formatv2-Token";

bool IsIpv4(const std::string& name) {
    int parts = 0;
    size_t at = 0;
    while (at <= name.size()) {
        size_t end = name.find('.', at);
        if (end == std::string::npos) end = name.size();
        const std::string part = name.substr(at, end - at);
        if (part.empty() || part.size() > 3 ||
            part.find_first_not_of("0123456789") != std::string::npos || std::stoi(part) > 255) {
            return false;
        }
        ++parts;
        at = end + 1;
    }
    return parts == 4;
}

std::string Hex(unsigned long long value, int digits) {
    char text[24];
    std::snprintf(text, sizeof text, "%0*llx", digits, value);
    return text;
}

// What a file held when the page loaded it, to see whether it changed on disk since:
// FNV-1a of its bytes, or "none" for a file that does not exist.
std::string VersionOf(const std::optional<std::string>& text) {
    if (!text) return "none";
    unsigned long long hash = 14695981039346656037ULL;
    for (unsigned char c : *text) hash = (hash ^ c) * 1099511628211ULL;
    return Hex(hash, 16) + "-" + std::to_string(text->size());
}

std::optional<std::string> ReadIfThere(const std::string& path) {
    std::string text;
    std::string reason;
    if (access(path.c_str(), F_OK) != 0 || !ReadInput(path, text, reason)) return std::nullopt;
    return text;
}

std::string NewToken() {
    std::random_device random;  // /dev/urandom
    std::string token;
    for (int i = 0; i < 4; ++i) token += Hex(random(), 8);
    return token;
}

std::string Printed(cJSON* json) {
    char* text = cJSON_PrintUnformatted(json);
    std::string out = text != nullptr ? EscapeInvalidUtf8(text, Escape::kJson) : "null";
    cJSON_free(text);
    cJSON_Delete(json);
    return out;
}

void Reply(httplib::Response& res, int status, cJSON* json) {
    res.status = status;
    res.set_content(Printed(json), "application/json");
}

void Fail(httplib::Response& res, int status, const std::string& why) {
    cJSON* json = cJSON_CreateObject();
    cJSON_AddStringToObject(json, "error", why.c_str());
    Reply(res, status, json);
}

// The files the page edits: the folder's scenario.json when there is one, and the
// configuration it names when that is a file inside the folder, else algo_private.json.
struct Served {
    std::string dir;       // absolute, links resolved
    std::string config;    // names relative to dir
    std::string scenario;  // "" when the folder has no scenario.json
};

Served Choose(const std::string& dir) {
    Served s{dir, "algo_private.json", ""};
    std::string path;
    std::string reason;
    if (!PathInside(dir, "scenario.json", path, reason) || access(path.c_str(), F_OK) != 0) {
        return s;
    }
    s.scenario = "scenario.json";
    const std::optional<std::string> text = ReadIfThere(path);
    const JsonPtr root(text ? cJSON_Parse(text->c_str()) : nullptr);
    const cJSON* config = cJSON_GetObjectItemCaseSensitive(root.get(), "config");
    if (cJSON_IsString(config) && PathInside(dir, config->valuestring, path, reason)) {
        s.config = config->valuestring;
    }
    return s;
}

struct Outcome {
    std::string out;
    std::string err;
    std::string problem;  // why there is no result; "" when the child gave one
};

// Runs the runner's evaluate command in a child process with request on its standard input.
Outcome Evaluate(const std::string& self, const std::string& request) {
    Outcome o;
    int in[2];
    int out[2];
    int err[2];
    if (pipe2(in, O_CLOEXEC) != 0) return {"", "", std::strerror(errno)};
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        for (int fd : {in[0], in[1]}) close(fd);
        return {"", "", std::strerror(errno)};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;  // the server ignores SIGPIPE; the child does not
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    char* argv[] = {const_cast<char*>(self.c_str()), const_cast<char*>("evaluate"), nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, self.c_str(), &actions, &attributes, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    for (int fd : {in[0], out[1], err[1]}) close(fd);
    if (spawned != 0) {
        for (int fd : {in[1], out[0], err[0]}) close(fd);
        return {"", "", std::string("cannot start the evaluation: ") + std::strerror(spawned)};
    }

    struct pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {in[1], POLLOUT, 0}};
    size_t written = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kRunLimitMs);
    bool timedOut = false;
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 3, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
        if (fds[2].fd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
            const ssize_t n = write(in[1], request.data() + written, request.size() - written);
            if (n > 0) written += static_cast<size_t>(n);
            if (n < 0 || written == request.size()) {
                close(in[1]);
                fds[2].fd = -1;
            }
        }
        for (int k = 0; k < 2; ++k) {
            if (fds[k].fd < 0 || (fds[k].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
            char buffer[65536];
            const ssize_t n = read(fds[k].fd, buffer, sizeof buffer);
            if (n > 0) {
                (k == 0 ? o.out : o.err).append(buffer, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                close(fds[k].fd);
                fds[k].fd = -1;
            }
        }
    }
    for (const pollfd& p : fds) {
        if (p.fd >= 0) close(p.fd);
    }
    // A child that closed its outputs may still be running: it gets what is left of the limit.
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(pid, &status, timedOut ? 0 : WNOHANG);
        if (ended == pid || (ended < 0 && errno != EINTR)) break;
        if (ended != 0) continue;
        if (std::chrono::steady_clock::now() < deadline) {
            usleep(1000);
        } else {
            timedOut = true;
            kill(pid, SIGKILL);
        }
    }
    if (timedOut) {
        o.problem = "the run did not end within " + std::to_string(kRunLimitMs / 1000) +
                    " s and was stopped: the module hangs on this configuration or its values";
    } else if (WIFSIGNALED(status)) {
        o.problem = "the run ended with signal " + std::to_string(WTERMSIG(status)) + " (" +
                    strsignal(WTERMSIG(status)) +
                    "): the module crashed on this configuration or its values";
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        o.problem = "the evaluation failed: " + o.err.substr(0, o.err.find('\n'));
    }
    return o;
}

std::string SelfPath() {
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

class Server {
  public:
    Server(Served served, std::string module, std::string token)
        : m_served(std::move(served)),
          m_module(std::move(module)),
          m_token(std::move(token)),
          m_self(SelfPath()) {}

    // Host, Origin and token, in that order: a request failing one gets no further.
    httplib::Server::HandlerResponse Guard(const httplib::Request& req,
                                           httplib::Response& res) const {
        const std::string host = req.get_header_value("Host");
        if (!HostAllowed(host)) {
            Fail(res, 403,
                 "unknown Host '" + host + "': open the page as localhost or by IP address");
        } else if (!OriginAllowed(req.get_header_value("Origin"), host)) {
            Fail(res, 403, "requests from another site are refused");
        } else if (!TokenMatches(req.has_param("token") ? req.get_param_value("token")
                                                        : req.get_header_value(kTokenHeader),
                                 m_token)) {
            Fail(res, 401,
                 "this server needs the token it printed when it started: open the URL it printed");
        } else {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        return httplib::Server::HandlerResponse::Handled;
    }

    void Page(httplib::Response& res) const {
        res.set_content(reinterpret_cast<const char*>(kPage), kPageSize,
                        "text/html; charset=utf-8");
        res.set_header(
            "Content-Security-Policy",
            "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
            "connect-src 'self'; img-src data:; frame-ancestors 'none'; base-uri 'none'; "
            "form-action 'none'");
    }

    void Files(httplib::Response& res) const {
        cJSON* json = cJSON_CreateObject();
        cJSON_AddStringToObject(json, "dir", m_served.dir.c_str());
        for (const auto& [key, name] :
             {std::pair<const char*, const std::string&>{"config", m_served.config},
              {"scenario", m_served.scenario}}) {
            if (name.empty()) {
                cJSON_AddNullToObject(json, key);
                continue;
            }
            const std::optional<std::string> text = ReadIfThere(m_served.dir + "/" + name);
            cJSON* file = cJSON_AddObjectToObject(json, key);
            cJSON_AddStringToObject(file, "name", name.c_str());
            cJSON_AddStringToObject(file, "text", text.value_or("").c_str());
            cJSON_AddStringToObject(file, "version", VersionOf(text).c_str());
        }
        Reply(res, 200, json);
    }

    void Preview(const httplib::Request& req, httplib::Response& res) const {
        const JsonPtr body(cJSON_Parse(req.body.c_str()));
        const cJSON* config = cJSON_GetObjectItemCaseSensitive(body.get(), "config");
        const cJSON* scenario = cJSON_GetObjectItemCaseSensitive(body.get(), "scenario");
        if (!cJSON_IsString(config)) return Fail(res, 400, "the request needs \"config\", a text");
        LiveInput input;
        input.module = m_module;  // never the request's: no request loads another module
        input.configName = m_served.config;
        input.configText = config->valuestring;
        input.scenarioPath =
            m_served.dir + "/" + (m_served.scenario.empty() ? "scenario.json" : m_served.scenario);
        if (cJSON_IsString(scenario) && !m_served.scenario.empty())
            input.scenarioText = scenario->valuestring;
        const Outcome o = Evaluate(m_self, Printed(LiveInputJson(input)));
        if (!o.problem.empty()) return Fail(res, 200, o.problem);
        res.set_content(o.out, "application/json");
    }

    void Save(const httplib::Request& req, httplib::Response& res) const {
        const JsonPtr body(cJSON_Parse(req.body.c_str()));
        const auto field = [&](const char* key) {
            return cJSON_GetObjectItemCaseSensitive(body.get(), key);
        };
        if (!cJSON_IsString(field("name")) || !cJSON_IsString(field("text")) ||
            !cJSON_IsString(field("version"))) {
            return Fail(res, 400, "the request needs \"name\", \"text\" and \"version\", texts");
        }
        const std::string name = field("name")->valuestring;
        std::string path;
        std::string reason;
        if (!PathInside(m_served.dir, name, path, reason))
            return Fail(res, 403, name + ": " + reason);
        if (name != m_served.config && name != m_served.scenario) {
            return Fail(res, 403, name + ": only the files the page shows can be saved");
        }
        const std::lock_guard<std::mutex> saving(m_saving);  // a check and its write, together
        const std::string before = VersionOf(ReadIfThere(path));
        if (before != field("version")->valuestring && !cJSON_IsTrue(field("force"))) {
            cJSON* json = cJSON_CreateObject();
            cJSON_AddStringToObject(json, "error",
                                    (name + " changed on disk since the page loaded it").c_str());
            cJSON_AddStringToObject(json, "version", before.c_str());
            return Reply(res, 409, json);
        }
        const std::string text = field("text")->valuestring;
        if (!SaveFile(path, text, reason)) return Fail(res, 500, name + ": " + reason);
        cJSON* json = cJSON_CreateObject();
        cJSON_AddStringToObject(json, "version", VersionOf(text).c_str());
        cJSON_AddStringToObject(json, "backup", (name + "~").c_str());
        Reply(res, 200, json);
    }

  private:
    Served m_served;
    std::string m_module;
    std::string m_token;
    mutable std::mutex m_saving;
    std::string m_self;
};

std::string UrlHost(const std::string& address) {
    if (address == "0.0.0.0" || address == "::") return "127.0.0.1";
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

}  // namespace

bool HostAllowed(const std::string& host) {
    const size_t colon = host.rfind(':');
    if (colon == std::string::npos || colon + 1 == host.size() ||
        host.find_first_not_of("0123456789", colon + 1) != std::string::npos) {
        return false;
    }
    const std::string name = host.substr(0, colon);
    if (name == "localhost") return true;
    if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
        return name.find_first_not_of("0123456789abcdefABCDEF:.", 1) == name.size() - 1;
    }
    return IsIpv4(name);
}

bool OriginAllowed(const std::string& origin, const std::string& host) {
    return origin.empty() || origin == "http://" + host;
}

bool TokenMatches(const std::string& given, const std::string& token) {
    unsigned char differ = given.size() == token.size() ? 0 : 1;
    for (size_t i = 0; i < token.size(); ++i) {
        differ |= static_cast<unsigned char>(token[i] ^ (i < given.size() ? given[i] : 0));
    }
    return differ == 0 && !token.empty();
}

bool PathInside(const std::string& dir, const std::string& name, std::string& path,
                std::string& reason) {
    const bool dots = name == ".." || name.rfind("../", 0) == 0 ||
                      name.find("/../") != std::string::npos ||
                      (name.size() >= 3 && name.compare(name.size() - 3, 3, "/..") == 0);
    if (name.empty() || name[0] == '/' || dots || name.find('\0') != std::string::npos) {
        reason = "not a relative path inside the folder served (no '..', not absolute)";
        return false;
    }
    path = dir + "/" + name;
    // The folder holding the file, and the file itself when it exists, once links are followed.
    const size_t slash = path.rfind('/');
    char resolved[PATH_MAX];
    for (const std::string& p : {path.substr(0, slash), path}) {
        if (realpath(p.c_str(), resolved) == nullptr) {
            if (p == path && errno == ENOENT) continue;  // a file about to be made
            reason = std::strerror(errno);
            return false;
        }
        const std::string real = resolved;
        if (real != dir && real.compare(0, dir.size() + 1, dir + "/") != 0) {
            reason = "leads out of the folder served";
            return false;
        }
    }
    return true;
}

bool SaveFile(const std::string& path, const std::string& text, std::string& reason) {
    std::string temporary = path + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0) {
        reason = std::strerror(errno);
        return false;
    }
    struct stat before;
    const bool existed = stat(path.c_str(), &before) == 0;
    bool ok = fchmod(fd, existed ? (before.st_mode & 07777) : 0644) == 0;
    for (size_t at = 0; ok && at < text.size();) {
        const ssize_t n = write(fd, text.data() + at, text.size() - at);
        ok = n > 0 || errno == EINTR;
        if (n > 0) at += static_cast<size_t>(n);
    }
    ok = ok && fsync(fd) == 0;
    if (!ok) reason = std::strerror(errno);
    close(fd);
    // The former content stays as path~: a second link to it, which the rename below leaves.
    const std::string backup = path + "~";
    if (ok && existed) {
        unlink(backup.c_str());
        ok = link(path.c_str(), backup.c_str()) == 0;
        if (!ok)
            reason = "cannot keep the former content as " + backup + ": " + std::strerror(errno);
    }
    if (ok && rename(temporary.c_str(), path.c_str()) != 0) {
        reason = std::strerror(errno);
        ok = false;
    }
    if (!ok) unlink(temporary.c_str());
    return ok;
}

bool ParseListen(const std::string& text, std::string& address, int& port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 1 == text.size() ||
        text.find_first_not_of("0123456789", colon + 1) != std::string::npos ||
        colon + 7 < text.size()) {
        return false;
    }
    address = text.substr(0, colon);
    if (address.size() > 2 && address.front() == '[' && address.back() == ']') {
        address = address.substr(1, address.size() - 2);
    }
    port = std::stoi(text.substr(colon + 1));
    return !address.empty() && port <= 65535;
}

int ServeCommand(const std::string& dir, const Options& options) {
    const Diagnostics diag(ColourFor(STDERR_FILENO));
    char resolved[PATH_MAX];
    struct stat info;
    errno = 0;  // a folder that exists but is not one leaves it 0
    if (realpath(dir.c_str(), resolved) == nullptr || stat(resolved, &info) != 0 ||
        !S_ISDIR(info.st_mode)) {
        diag.Say(Severity::kError, dir, errno != 0 ? std::strerror(errno) : "not a folder");
        return kExitUsage;
    }
    std::string address;
    int port = 0;
    if (!ParseListen(options.listen, address, port)) {
        diag.Say(Severity::kError, "formatv2_preview",
                 "--listen: '" + options.listen + "' is not ADDR:PORT");
        return kExitUsage;
    }
    signal(SIGPIPE, SIG_IGN);  // a browser that goes away mid-reply, a child that ends early
    httplib::Server http;
    http.set_payload_max_length(kMaxBody);
    port =
        port == 0 ? http.bind_to_any_port(address) : (http.bind_to_port(address, port) ? port : -1);
    if (port < 0) {
        diag.Say(Severity::kError, "formatv2_preview",
                 "cannot listen on " + options.listen + ": " + std::strerror(errno));
        return kExitUsage;
    }
    const std::string token = NewToken();
    const Server server(Choose(resolved), options.module, token);
    http.set_pre_routing_handler([&](const httplib::Request& req, httplib::Response& res) {
        return server.Guard(req, res);
    });
    http.Get("/", [&](const httplib::Request&, httplib::Response& res) { server.Page(res); });
    http.Get("/api/files",
             [&](const httplib::Request&, httplib::Response& res) { server.Files(res); });
    http.Post("/api/preview", [&](const httplib::Request& req, httplib::Response& res) {
        server.Preview(req, res);
    });
    http.Post("/api/save",
              [&](const httplib::Request& req, httplib::Response& res) { server.Save(req, res); });
    http.set_post_routing_handler([](const httplib::Request&, httplib::Response& res) {
        res.set_header("Cache-Control", "no-store");
        res.set_header("X-Content-Type-Options", "nosniff");
        res.set_header("Referrer-Policy", "no-referrer");
    });
    std::printf("formatv2_preview: serving %s\n  http://%s:%d/?token=%s\n", resolved,
                UrlHost(address).c_str(), port, token.c_str());
    if (address != "127.0.0.1" && address != "::1" && address != "localhost") {
        std::printf("  listening on %s: reachable from other machines, with the token\n",
                    address.c_str());
    }
    std::printf("Press Ctrl+C to stop.\n");
    std::fflush(stdout);
    return http.listen_after_bind() ? kExitOk : kExitUsage;
}

}  // namespace preview
