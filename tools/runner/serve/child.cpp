#include "serve/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>

extern char** environ;

namespace preview {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

size_t g_memoryMiB = 0;  // for the message of the new handler

[[noreturn]] void OutOfMemory() {
    char text[160];
    const int n = std::snprintf(text, sizeof text,
                                "evaluate: out of memory: the limit is %zu MiB\n", g_memoryMiB);
    if (n > 0) (void)!write(STDERR_FILENO, text, static_cast<size_t>(n));
    _exit(kExitOutOfMemory);
}

bool Limit(int resource, rlim_t soft, rlim_t hard, const char* what, std::string& reason) {
    const struct rlimit limit = {soft, hard};
    if (setrlimit(resource, &limit) == 0) return true;
    reason = std::string("cannot limit the evaluation's ") + what + ": " + std::strerror(errno);
    return false;
}

// A pipe whose ends close with it unless taken.
struct Pipe {
    int fd[2] = {-1, -1};
    bool Open(std::string& reason) {
        if (pipe2(fd, O_CLOEXEC) == 0) return true;
        reason = std::string("cannot make a pipe: ") + std::strerror(errno);
        return false;
    }
    void Close(int end) {
        if (fd[end] >= 0) close(fd[end]);
        fd[end] = -1;
    }
    ~Pipe() {
        Close(0);
        Close(1);
    }
};

bool NonBlocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

// posix_spawn's attributes and file actions, destroyed with it.
struct Spawn {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    bool actionsMade = false;
    bool attributesMade = false;
    ~Spawn() {
        if (actionsMade) posix_spawn_file_actions_destroy(&actions);
        if (attributesMade) posix_spawnattr_destroy(&attributes);
    }
    // The child's standard streams are the pipes' ends; it gets SIGPIPE's default back (the
    // server ignores it).
    int Prepare(int in, int out, int err) {
        int e = posix_spawn_file_actions_init(&actions);
        if (e != 0) return e;
        actionsMade = true;
        if ((e = posix_spawn_file_actions_adddup2(&actions, in, 0)) != 0 ||
            (e = posix_spawn_file_actions_adddup2(&actions, out, 1)) != 0 ||
            (e = posix_spawn_file_actions_adddup2(&actions, err, 2)) != 0) {
            return e;
        }
        if ((e = posix_spawnattr_init(&attributes)) != 0) return e;
        attributesMade = true;
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        if ((e = posix_spawnattr_setsigdefault(&attributes, &defaults)) != 0) return e;
        return posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    }
};

std::string Mib(size_t bytes) {
    return std::to_string(bytes >> 20) + " MiB";
}

std::string Problem(int status, bool timedOut, bool tooLarge, const ChildOutcome& o,
                    const ChildLimits& limits) {
    const std::string seconds = std::to_string(limits.seconds) + " s";
    if (tooLarge) {
        return "the run's report was larger than " + Mib(limits.outputBytes) +
               " and it was stopped";
    }
    if (timedOut) {
        return "the run did not end within " + seconds +
               " and was stopped: the module hangs on this configuration or its values";
    }
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        if (signal == SIGXCPU) {
            return "the run used more than " + seconds +
                   " of CPU time and was stopped: the module loops on this configuration or "
                   "its values";
        }
        if (signal == SIGXFSZ) {
            return "the run wrote a file larger than " + Mib(limits.outputBytes) +
                   " and was stopped";
        }
        return "the run ended with signal " + std::to_string(signal) + " (" + strsignal(signal) +
               "): the module crashed on this configuration or its values";
    }
    if (!WIFEXITED(status)) return "the evaluation ended in an unknown way";
    // Where posix_spawn cannot report a failed exec (a fork under an emulator, older C
    // libraries), the child exits with 127, as a shell's does.
    if (WEXITSTATUS(status) == 127 && o.err.empty()) {
        return "cannot start the evaluation: the program could not be run (exit code 127)";
    }
    if (WEXITSTATUS(status) == kExitOutOfMemory) {
        return "the run needed more than " + std::to_string(limits.memoryMiB) +
               " MiB of memory, the limit of a preview (serve --memory-limit), and was stopped";
    }
    if (WEXITSTATUS(status) != 0) {
        // Its first line, without the "formatv2_preview: error: " in front.
        const std::string line = o.err.substr(0, o.err.find('\n'));
        const size_t said = line.find("error: ");
        return "the evaluation failed: " +
               (said == std::string::npos ? line : line.substr(said + 7));
    }
    return "";
}

}  // namespace

bool ApplyLimits(const ChildLimits& limits, std::string& reason) {
    g_memoryMiB = limits.memoryMiB;
    std::set_new_handler(OutOfMemory);
    const rlim_t seconds = static_cast<rlim_t>(limits.seconds);
    const rlim_t bytes = static_cast<rlim_t>(limits.outputBytes);
    if (!kSanitized) {
        const rlim_t space = static_cast<rlim_t>(limits.memoryMiB) << 20;
        if (!Limit(RLIMIT_AS, space, space, "address space", reason)) return false;
    }
    // SIGXCPU at the soft limit, SIGKILL a second later.
    return Limit(RLIMIT_CPU, seconds, seconds + 1, "CPU time", reason) &&
           Limit(RLIMIT_FSIZE, bytes, bytes, "file size", reason) &&
           Limit(RLIMIT_CORE, 0, 0, "core dumps", reason);
}

ChildOutcome RunChild(const std::string& program, const std::string& argument,
                      const std::string& input, const ChildLimits& limits) {
    ChildOutcome o;
    Pipe in;
    Pipe out;
    Pipe err;
    if (!in.Open(o.problem) || !out.Open(o.problem) || !err.Open(o.problem)) return o;
    Spawn spawn;
    int e = spawn.Prepare(in.fd[0], out.fd[1], err.fd[1]);
    pid_t pid = 0;
    char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>(argument.c_str()),
                    nullptr};
    if (e == 0)
        e = posix_spawn(&pid, program.c_str(), &spawn.actions, &spawn.attributes, argv, environ);
    if (e != 0) {
        o.problem = std::string("cannot start the evaluation: ") + std::strerror(e);
        return o;
    }
    in.Close(0);
    out.Close(1);
    err.Close(1);
    // Non-blocking, so that neither a large request nor a child that stops reading holds the
    // server past the deadline.
    bool ok = NonBlocking(in.fd[1]) && NonBlocking(out.fd[0]) && NonBlocking(err.fd[0]);
    if (input.empty()) in.Close(1);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(limits.seconds);
    const auto left = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   deadline - std::chrono::steady_clock::now())
            .count();
    };
    bool timedOut = !ok;
    bool tooLarge = false;
    size_t written = 0;
    while (!timedOut && !tooLarge && (out.fd[0] >= 0 || err.fd[0] >= 0)) {
        if (left() <= 0) {
            timedOut = true;
            break;
        }
        struct pollfd fds[3] = {
            {out.fd[0], POLLIN, 0}, {err.fd[0], POLLIN, 0}, {in.fd[1], POLLOUT, 0}};
        if (poll(fds, 3, static_cast<int>(left())) < 0 && errno != EINTR) {
            timedOut = true;  // cannot wait: stop it rather than spin
            break;
        }
        if (in.fd[1] >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
            const ssize_t n = write(in.fd[1], input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<size_t>(n);
            if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == input.size())
                in.Close(1);
        }
        Pipe* pipes[2] = {&out, &err};
        for (int k = 0; k < 2; ++k) {
            if ((fds[k].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
            char buffer[65536];
            const ssize_t n = read(pipes[k]->fd[0], buffer, sizeof buffer);
            if (n > 0) {
                (k == 0 ? o.out : o.err).append(buffer, static_cast<size_t>(n));
                tooLarge = o.out.size() + o.err.size() > limits.outputBytes;
            } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
                pipes[k]->Close(0);
            }
        }
    }
    if (timedOut || tooLarge) kill(pid, SIGKILL);
    // A child that closed its outputs may still be running: it gets what is left of the limit.
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(pid, &status, WNOHANG);
        if (ended == pid) break;
        if (ended < 0 && errno != EINTR) {
            o.problem = std::string("cannot wait for the evaluation: ") + std::strerror(errno);
            return o;
        }
        if (ended == 0 && left() <= 0 && !timedOut && !tooLarge) {
            timedOut = true;
            kill(pid, SIGKILL);
        }
        if (ended == 0) usleep(1000);
    }
    if (WIFEXITED(status)) o.exitCode = WEXITSTATUS(status);
    o.problem = Problem(status, timedOut, tooLarge, o, limits);
    return o;
}

}  // namespace preview
