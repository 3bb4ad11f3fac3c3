#include "serve/serve.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <netdb.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>

#include "base/diag.h"
#include "base/files.h"
#include "record/record.h"
#include "serve/child.h"
#include "serve/guarded_server.h"
#include "serve/live.h"

namespace preview {

// The page, built from tools/runner/web with CodeMirror inlined (web_page.cpp, generated).
extern const unsigned char kPage[];
extern const size_t kPageSize;

namespace {

// Far above any configuration: a request carries the two texts of the editors. It holds for
// every transfer encoding: bodies are read through a counting receiver, never whole.
constexpr size_t kMaxBody = 1024 * 1024;
// Request line and headers: a few hundred bytes from a browser.
constexpr size_t kMaxHeaderBytes = 64 * 1024;
// Where the page looks for recordings: folders this far below the folder served, among this
// many entries (a module's folder holds a few; its recordings are one folder down by default).
constexpr int kRecordingDepth = 3;
constexpr size_t kRecordingEntries = 10000;
// Two evaluations at once keep the page responsive while a slow one finishes, and bound what
// the children take together.
constexpr int kRunningPreviews = 2;
const char* const kTokenHeader = "X-Formatv2-Token";
const char* const kJson = "application/json; charset=utf-8";

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

// A file of the folder as it is now: none when it does not exist; false with the reason when
// it cannot be read (or must not be: a link out, a FIFO).
bool Current(const std::string& dir, const std::string& path, std::optional<std::string>& text,
             std::string& reason) {
    struct stat info;
    if (lstat(path.c_str(), &info) != 0 && errno == ENOENT) {
        text.reset();
        return true;
    }
    std::string read;
    if (!ReadInside(dir, path, read, reason)) return false;
    text = std::move(read);
    return true;
}

// Why an editor cannot hold a file's bytes exactly, or "" when it can: a NUL ends a text on
// its way through JSON, and a byte of no UTF-8 character has no character to stand for it.
std::string NotEditable(const std::string& text) {
    const size_t nul = text.find('\0');
    if (nul != std::string::npos) {
        return "holds a NUL byte (at byte " + std::to_string(nul) +
               "): shown read-only so that no byte is lost; edit it with a binary-safe editor";
    }
    for (size_t at = 0; at < text.size();) {
        const size_t n = Utf8Length(text, at);
        if (n == 0) {
            return "is not UTF-8 text (byte " + std::to_string(at) + " is 0x" +
                   Hex(static_cast<unsigned char>(text[at]), 2) +
                   "; GBK or another encoding?): shown read-only so that no byte is lost; "
                   "previews read it from the disk. Save it as UTF-8 to edit it here";
        }
        at += n;
    }
    return "";
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
    res.set_content(Printed(json), kJson);
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
    std::string text;
    // Read once, before the server's threads start: cJSON's parser keeps its error position
    // in a global.
    const JsonPtr root(ReadInside(dir, path, text, reason) ? cJSON_Parse(text.c_str()) : nullptr);
    const cJSON* config = cJSON_GetObjectItemCaseSensitive(root.get(), "config");
    if (cJSON_IsString(config) && PathInside(dir, config->valuestring, path, reason)) {
        s.config = config->valuestring;
    }
    return s;
}

std::string SelfPath() {
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

// At most kRunningPreviews evaluations at once; one more request may wait, and a newer one
// takes its place (the page only wants the preview of its latest text).
class PreviewGate {
  public:
    // False when a newer request took this one's place while it waited.
    bool Enter() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_running < kRunningPreviews) {
            ++m_running;
            return true;
        }
        const unsigned long long ticket = ++m_tickets;
        m_waiting = ticket;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_waiting != ticket || m_running < kRunningPreviews; });
        if (m_waiting != ticket) return false;
        m_waiting = 0;
        ++m_running;
        return true;
    }
    void Leave() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            --m_running;
        }
        m_changed.notify_all();
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_running = 0;
    unsigned long long m_tickets = 0;
    unsigned long long m_waiting = 0;  // the ticket of the request waiting; 0 for none
};

// Reads a request's body through cpp-httplib's content reader, whatever its transfer encoding,
// stopping at the limit. False (answered with 413, the connection to close) past it.
bool ReadBody(const httplib::ContentReader& reader, httplib::Response& res, std::string& body) {
    bool tooLarge = false;
    const bool read = reader([&](const char* data, size_t length) {
        if (body.size() + length > kMaxBody) {
            tooLarge = true;
            return false;
        }
        body.append(data, length);
        return true;
    });
    if (read && !tooLarge) return true;
    GuardedServer::CloseAfterAnswer();
    Fail(res, tooLarge ? 413 : 400,
         tooLarge ? "the request is larger than " + std::to_string(kMaxBody >> 20) + " MiB"
                  : "the request's body could not be read");
    return false;
}

class Server {
  public:
    Server(Served served, std::string module, std::string token, ChildLimits limits)
        : m_served(std::move(served)),
          m_token(std::move(token)),
          m_self(SelfPath()),
          m_live{std::move(module), m_served.dir, m_served.config, m_served.scenario, limits} {}

    // The routes, the Host, the Origin and the token, in that order: a request failing one
    // gets no further, and its connection ends with the answer (before any body is read).
    httplib::Server::HandlerResponse Guard(const httplib::Request& req,
                                           httplib::Response& res) const {
        // A local link: compression costs more time than the bytes it saves.
        const_cast<httplib::Request&>(req).headers.erase("Accept-Encoding");
        const std::string host = req.get_header_value("Host");
        const bool get = req.method == "GET" && (req.path == "/" || req.path == "/api/files");
        const bool post =
            req.method == "POST" && (req.path == "/api/preview" || req.path == "/api/save");
        if (!get && !post) {
            Fail(res, 404, "no such page: " + req.method + " " + req.path);
        } else if (!HostAllowed(host)) {
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
        GuardedServer::CloseAfterAnswer();
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
            cJSON_AddItemToObject(json, key, FileJson(name));
        }
        // Names only: a recording is read by the preview's child, never here.
        cJSON* recordings = cJSON_AddArrayToObject(json, "recordings");
        for (const std::string& folder : FoldersHolding(m_served.dir, formatv2::record::kFileSuffix,
                                                        kRecordingDepth, kRecordingEntries)) {
            cJSON_AddItemToArray(recordings, cJSON_CreateString(folder.c_str()));
        }
        Reply(res, 200, json);
    }

    void Preview(const httplib::ContentReader& reader, httplib::Response& res) {
        std::string body;
        if (!ReadBody(reader, res, body)) return;
        if (!m_gate.Enter()) {
            cJSON* json = cJSON_CreateObject();
            cJSON_AddBoolToObject(json, "superseded", true);
            return Reply(res, 200, json);
        }
        const struct Leave {
            PreviewGate& gate;
            ~Leave() { gate.Leave(); }
        } leave{m_gate};
        const ChildOutcome o =
            RunChild(m_self, "evaluate", LiveRequest(m_live, body), m_live.limits);
        if (o.exitCode == kExitUsage) return Fail(res, 400, o.problem);
        if (!o.problem.empty()) return Fail(res, 200, o.problem);
        res.set_content(o.out, kJson);
    }

    void Save(const httplib::Request& req, const httplib::ContentReader& reader,
              httplib::Response& res) {
        std::string text;
        if (!ReadBody(reader, res, text)) return;
        if (!req.has_param("name") || !req.has_param("version")) {
            return Fail(res, 400, "a save needs ?name=FILE&version=VERSION and the text as body");
        }
        const std::string name = req.get_param_value("name");
        std::string path;
        std::string reason;
        if (!PathInside(m_served.dir, name, path, reason))
            return Fail(res, 403, name + ": " + reason);
        if (name != m_served.config && name != m_served.scenario) {
            return Fail(res, 403, name + ": only the files the page shows can be saved");
        }
        const std::lock_guard<std::mutex> saving(m_saving);  // a check and its write, together
        std::optional<std::string> current;
        if (!Current(m_served.dir, path, current, reason))
            return Fail(res, 403, name + ": " + reason);
        const std::string before = VersionOf(current);
        if (before != req.get_param_value("version") && req.get_param_value("force") != "1") {
            cJSON* json = cJSON_CreateObject();
            cJSON_AddStringToObject(json, "error",
                                    (name + " changed on disk since the page loaded it").c_str());
            cJSON_AddStringToObject(json, "version", before.c_str());
            return Reply(res, 409, json);
        }
        struct stat info;
        if (current && stat(path.c_str(), &info) == 0 && !Writable(info) &&
            req.get_param_value("unlock") != "1") {
            cJSON* json = cJSON_CreateObject();
            cJSON_AddStringToObject(
                json, "error",
                (name + " is read-only (mode " + Octal(info.st_mode & 07777) + ")").c_str());
            cJSON_AddBoolToObject(json, "readonly", true);
            return Reply(res, 403, json);
        }
        if (!WriteFile(path, text, reason, {true})) return Fail(res, 500, name + ": " + reason);
        cJSON* json = cJSON_CreateObject();
        cJSON_AddStringToObject(json, "version", VersionOf(text).c_str());
        cJSON_AddStringToObject(json, "backup", (name + "~").c_str());
        Reply(res, 200, json);
    }

  private:
    static bool Writable(const struct stat& info) {
        return (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
    }
    static std::string Octal(unsigned mode) {
        char text[8];
        std::snprintf(text, sizeof text, "%04o", mode);
        return text;
    }

    // A file as the page gets it: its text when an editor can hold every byte of it, else null
    // and why ("readonly"); whether its permissions let it be written.
    cJSON* FileJson(const std::string& name) const {
        cJSON* file = cJSON_CreateObject();
        cJSON_AddStringToObject(file, "name", name.c_str());
        const std::string path = m_served.dir + "/" + name;
        std::optional<std::string> text;
        std::string reason;
        const bool read = Current(m_served.dir, path, text, reason);
        if (read && text) reason = NotEditable(*text);
        if (reason.empty()) {
            cJSON_AddStringToObject(file, "text", text.value_or("").c_str());
            cJSON_AddNullToObject(file, "readonly");
        } else {
            cJSON_AddNullToObject(file, "text");
            cJSON_AddStringToObject(file, "readonly", (name + " " + reason).c_str());
        }
        cJSON_AddStringToObject(file, "version", read ? VersionOf(text).c_str() : "unreadable");
        struct stat info;
        cJSON_AddBoolToObject(file, "writable",
                              !text || (stat(path.c_str(), &info) == 0 && Writable(info)));
        return file;
    }

    Served m_served;
    std::string m_token;
    std::mutex m_saving;
    std::string m_self;
    LiveServer m_live;
    PreviewGate m_gate;
};

// Why the address cannot be bound, asked again of a socket of our own: cpp-httplib's errno
// after a failed bind may be its cleanup's.
int BindError(const std::string& address, const std::string& listen) {
    const size_t colon = listen.rfind(':');
    struct addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    struct addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), listen.substr(colon + 1).c_str(), &hints, &found) != 0) {
        return EADDRNOTAVAIL;
    }
    int error = 0;
    const int sock = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    if (sock < 0 || setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        bind(sock, found->ai_addr, found->ai_addrlen) != 0 || ::listen(sock, 1) != 0) {
        error = errno;
    }
    if (sock >= 0) close(sock);
    freeaddrinfo(found);
    return error != 0 ? error : EADDRINUSE;
}

std::string UrlHost(const std::string& address) {
    if (address == "0.0.0.0" || address == "::") return "127.0.0.1";
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

}  // namespace

bool HostAllowed(const std::string& host) {
    // The port, when there is one (a browser leaves out 80), is not checked.
    const size_t colon = host.rfind(':');
    const bool bracketed = !host.empty() && host.back() == ']';
    const bool port = colon != std::string::npos && !bracketed && host.find(':') == colon;
    const bool v6port = colon != std::string::npos && host.find("]:") == colon - 1;
    if ((port || v6port) &&
        (colon + 1 == host.size() ||
         host.find_first_not_of("0123456789", colon + 1) != std::string::npos)) {
        return false;
    }
    const std::string name = port || v6port ? host.substr(0, colon) : host;
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
    ServerBounds bounds;
    bounds.maxRequestBytes = kMaxBody + kMaxHeaderBytes;
    GuardedServer http(bounds);
    port =
        port == 0 ? http.bind_to_any_port(address) : (http.bind_to_port(address, port) ? port : -1);
    if (port < 0) {
        const int error = BindError(address, options.listen);
        diag.Say(Severity::kError, "formatv2_preview",
                 "cannot listen on " + options.listen + ": " + std::strerror(error) +
                     (error == EADDRINUSE ? " (another server listens there; choose another port "
                                            "with --listen)"
                                          : ""));
        return kExitUsage;
    }
    const std::string token = NewToken();
    ChildLimits limits;
    limits.memoryMiB = options.memoryLimitMiB;
    limits.seconds = options.timeLimitSeconds;
    Server server(Choose(resolved), options.module, token, limits);
    http.set_pre_routing_handler([&](const httplib::Request& req, httplib::Response& res) {
        return server.Guard(req, res);
    });
    http.Get("/", [&](const httplib::Request&, httplib::Response& res) { server.Page(res); });
    http.Get("/api/files",
             [&](const httplib::Request&, httplib::Response& res) { server.Files(res); });
    http.Post("/api/preview",
              [&](const httplib::Request&, httplib::Response& res,
                  const httplib::ContentReader& reader) { server.Preview(reader, res); });
    http.Post("/api/save",
              [&](const httplib::Request& req, httplib::Response& res,
                  const httplib::ContentReader& reader) { server.Save(req, reader, res); });
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
