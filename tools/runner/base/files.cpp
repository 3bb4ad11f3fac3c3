#include "base/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace preview {
namespace {

std::string SystemReason() {
    return std::strerror(errno);
}

bool Inside(const std::string& dir, const std::string& real) {
    return real == dir || real.compare(0, dir.size() + 1, dir + "/") == 0;
}

std::string Outside(const std::string& dir) {
    return "outside the folder served (" + dir +
           "): the preview reads and writes only files inside it";
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Closes a descriptor on every path out.
struct Descriptor {
    int fd;
    explicit Descriptor(int f) : fd(f) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
};

bool EndsWith(const std::string& name, const std::string& suffix) {
    return name.size() > suffix.size() &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Whether a name the page sends could lead anywhere but inside: empty, absolute, with a ".."
// part or a NUL byte.
bool BadName(const std::string& name) {
    const bool dots = name == ".." || name.rfind("../", 0) == 0 ||
                      name.find("/../") != std::string::npos ||
                      (name.size() >= 3 && name.compare(name.size() - 3, 3, "/..") == 0);
    return name.empty() || name[0] == '/' || dots || name.find('\0') != std::string::npos;
}

const char* const kNotRelative =
    "not a relative path inside the folder served (no '..', not absolute)";

// Adds to out the folders at fd (named rel) that hold a file ending in suffix; fd is closed.
void Walk(int fd, const std::string& rel, const std::string& suffix, int depth, size_t& entries,
          std::vector<std::string>& out) {
    DIR* folder = fdopendir(fd);
    if (folder == nullptr) {
        close(fd);
        return;
    }
    bool holds = false;
    std::vector<std::string> below;
    while (entries > 0) {
        const dirent* e = readdir(folder);
        if (e == nullptr) break;
        --entries;
        const std::string name = e->d_name;
        struct stat info;
        if (name[0] == '.' || fstatat(dirfd(folder), e->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISREG(info.st_mode) && EndsWith(name, suffix)) holds = true;
        if (S_ISDIR(info.st_mode) && depth > 0) below.push_back(name);
    }
    if (holds) out.push_back(rel);
    std::sort(below.begin(), below.end());
    for (const std::string& name : below) {
        const int sub =
            openat(dirfd(folder), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (sub >= 0)
            Walk(sub, rel == "." ? name : rel + "/" + name, suffix, depth - 1, entries, out);
    }
    closedir(folder);
}

bool WriteAll(int fd, const std::string& text) {
    for (size_t at = 0; at < text.size();) {
        const ssize_t n = write(fd, text.data() + at, text.size() - at);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        at += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool WriteFile(const std::string& given, const std::string& text, std::string& reason,
               WriteOptions options) {
    // A stream (/dev/stdout, a FIFO, a terminal) is written as it is: it has no content to
    // keep, and renaming over it would replace the stream by a file.
    struct stat target;
    const bool exists = stat(given.c_str(), &target) == 0;
    if (given.rfind("/dev/", 0) == 0 || given.rfind("/proc/", 0) == 0 ||
        (exists && !S_ISREG(target.st_mode))) {
        const Descriptor stream(open(given.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
        if (stream.fd < 0 || !WriteAll(stream.fd, text)) {
            reason = SystemReason();
            return false;
        }
        return true;
    }
    // Through a link, the file it leads to is replaced and the link stays.
    char resolved[PATH_MAX];
    const std::string path =
        exists && realpath(given.c_str(), resolved) != nullptr ? resolved : given;
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        reason = SystemReason();
        return false;
    }
    struct stat before;
    const bool existed = stat(path.c_str(), &before) == 0;
    bool ok = fchmod(fd, existed ? (before.st_mode & 07777) : 0644) == 0 && WriteAll(fd, text) &&
              fsync(fd) == 0;
    if (!ok) reason = SystemReason();
    if (close(fd) != 0 && ok) {
        reason = SystemReason();
        ok = false;
    }
    // The former content stays as path~: a second link to it, which the rename below leaves.
    const std::string backup = path + "~";
    if (ok && existed && options.keepBackup) {
        if (unlink(backup.c_str()) != 0 && errno != ENOENT) {
            reason = "cannot replace the backup " + backup + ": " + SystemReason();
            ok = false;
        } else if (link(path.c_str(), backup.c_str()) != 0) {
            reason = "cannot keep the former content as " + backup + ": " + SystemReason();
            ok = false;
        }
    }
    if (ok && rename(temporary.c_str(), path.c_str()) != 0) {
        reason = SystemReason();
        ok = false;
    }
    if (!ok) {
        unlink(temporary.c_str());
        return false;
    }
    // The rename itself reaches the disk with its folder.
    const Descriptor folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.fd >= 0) fsync(folder.fd);
    return true;
}

bool ResolveInside(const std::string& dir, const std::string& path, std::string& real,
                   std::string& reason, bool missingOk) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
        const int error = errno;
        // Where a missing file would be tells whether it is ours to name at all.
        char folder[PATH_MAX];
        const bool placed = realpath(FolderOf(path).c_str(), folder) != nullptr;
        if (placed && !Inside(dir, folder)) {
            reason = Outside(dir);
            return false;
        }
        if (error != ENOENT || !missingOk || !placed) {
            reason = std::strerror(error);
            return false;
        }
        const size_t slash = path.rfind('/');
        real = std::string(folder) + "/" +
               (slash == std::string::npos ? path : path.substr(slash + 1));
        return true;
    }
    real = resolved;
    if (!Inside(dir, real)) {
        reason = Outside(dir);
        return false;
    }
    struct stat info;
    if (stat(real.c_str(), &info) != 0) {
        reason = SystemReason();
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        reason = S_ISDIR(info.st_mode) ? "a folder, not a file"
                                       : "not a regular file (a FIFO, socket or device)";
        return false;
    }
    return true;
}

bool ReadInside(const std::string& dir, const std::string& path, std::string& text,
                std::string& reason) {
    std::string real;
    if (!ResolveInside(dir, path, real, reason)) return false;
    // Non-blocking and no link: a FIFO or a link swapped in since the check neither blocks
    // the open nor leads elsewhere.
    const Descriptor file(
        open(real.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    struct stat info;
    if (file.fd < 0 || fstat(file.fd, &info) != 0) {
        reason = SystemReason();
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        reason = "not a regular file (a FIFO, socket or device)";
        return false;
    }
    // The file opened is still inside: a folder on the way may have been swapped for a link.
    char opened[PATH_MAX];
    const std::string self = "/proc/self/fd/" + std::to_string(file.fd);
    const ssize_t n = readlink(self.c_str(), opened, sizeof opened - 1);
    if (n > 0 && !Inside(dir, std::string(opened, static_cast<size_t>(n)))) {
        reason = Outside(dir);
        return false;
    }
    if (static_cast<unsigned long long>(info.st_size) > kMaxInsideFileBytes) {
        reason = "larger than " + std::to_string(kMaxInsideFileBytes >> 20) + " MiB";
        return false;
    }
    text.clear();
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(file.fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            reason = SystemReason();
            return false;
        }
        if (got == 0) return true;
        text.append(buffer, static_cast<size_t>(got));
        if (text.size() > kMaxInsideFileBytes) {
            reason = "larger than " + std::to_string(kMaxInsideFileBytes >> 20) + " MiB";
            return false;
        }
    }
}

bool PathInside(const std::string& dir, const std::string& name, std::string& path,
                std::string& reason) {
    if (BadName(name)) {
        reason = kNotRelative;
        return false;
    }
    std::string real;
    if (!ResolveInside(dir, dir + "/" + name, real, reason, true)) return false;
    path = dir + "/" + name;
    return true;
}

bool ListInside(const std::string& dir, const std::string& name, const std::string& suffix,
                std::vector<std::string>& paths, std::string& reason) {
    if (BadName(name)) {
        reason = kNotRelative;
        return false;
    }
    char resolved[PATH_MAX];
    if (realpath((dir + "/" + name).c_str(), resolved) == nullptr) {
        reason = SystemReason();
        return false;
    }
    const std::string real = resolved;
    if (!Inside(dir, real)) {
        reason = Outside(dir);
        return false;
    }
    const int fd = open(real.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    DIR* folder = fd < 0 ? nullptr : fdopendir(fd);
    if (folder == nullptr) {
        reason = errno == ENOTDIR ? "a file, not a folder" : SystemReason();
        if (fd >= 0) close(fd);
        return false;
    }
    std::vector<std::string> names;
    while (const dirent* e = readdir(folder)) {
        if (EndsWith(e->d_name, suffix)) names.push_back(e->d_name);
    }
    closedir(folder);
    std::sort(names.begin(), names.end());
    paths.clear();
    for (const std::string& n : names) paths.push_back(real + "/" + n);
    return true;
}

std::vector<std::string> FoldersHolding(const std::string& dir, const std::string& suffix,
                                        int depth, size_t entries) {
    std::vector<std::string> out;
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) Walk(fd, ".", suffix, depth, entries, out);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace preview
